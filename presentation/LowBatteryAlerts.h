#pragma once

#include <array>
#include <memory>
#include <optional>

#include "model/BatteryDeviceSnapshot.h"
#include "platform/Clock.h"
#include "platform/LowBatteryNotifier.h"
#include "platform/MainScheduler.h"

namespace ambrel {

// Decides when to tell the user that a battery runs low, once per fall and never from a reading
// that may be out of date. Per device:
// - at or below 20 % an alert, at or below 10 % the same alert turned critical in place (a
//   first reading at 8 % gives the critical alert alone);
// - a level alerts again only after the battery has climbed 5 points above it, or once charging
//   starts; charging also closes the alert;
// - "Snooze" closes the alert and keeps the device quiet for 30 minutes, after which a battery
//   that is still low (and not charging) alerts again.
// Main thread only; time comes from the injected clock and scheduler.
class LowBatteryAlerts {
public:
    static constexpr int kWarningLevel = 20;
    static constexpr int kCriticalLevel = 10;
    // How far above a level the battery must climb before that level alerts again.
    static constexpr int kRearmMargin = 5;
    // Seconds a snoozed device stays quiet.
    static constexpr double kSnoozeSeconds = 30.0 * 60.0;

    // All three must outlive this object.
    LowBatteryAlerts(const Clock& clock, MainScheduler& scheduler, LowBatteryNotifier& notifier);
    ~LowBatteryAlerts();
    LowBatteryAlerts(const LowBatteryAlerts&) = delete;
    LowBatteryAlerts& operator=(const LowBatteryAlerts&) = delete;

    // The latest reading of `device`. `isConfirmed` is false when the last attempt to reach the
    // device failed or the reading only came from the saved file; such a reading, or a stale
    // one, is ignored.
    void update(BatteryDeviceKind device, const std::optional<BatteryDeviceSnapshot>& snapshot,
                bool isConfirmed);
    // The user chose "Snooze" on the device's alert.
    void snooze(BatteryDeviceKind device);
    // The device's alert went away on the desktop (dismissed, expired, or closed by us).
    void alertClosed(BatteryDeviceKind device);

    // Off closes open alerts and forgets every fall and snooze; on starts afresh, so a battery
    // that is low already alerts at its next reading.
    void setEnabled(bool enabled);
    bool isEnabled() const { return m_enabled; }

    // The texts of the alerts.
    static LowBatteryNotice notice(BatteryDeviceKind device, const BatteryDeviceSnapshot& snapshot,
                                   LowBatteryLevel level);
    static constexpr const char* kSnoozeActionTitle = "Snooze 30 min";

private:
    struct DeviceAlerts {
        bool warningArmed = true;
        bool criticalArmed = true;
        std::optional<LowBatteryLevel> shown;
        std::optional<Date> snoozedUntil;
        std::shared_ptr<Timer> snoozeTimer;
        std::optional<BatteryDeviceSnapshot> lastConfirmed;
    };

    DeviceAlerts& alerts(BatteryDeviceKind device);
    void evaluate(BatteryDeviceKind device);
    void show(BatteryDeviceKind device, const BatteryDeviceSnapshot& snapshot,
              LowBatteryLevel level);
    void closeShown(BatteryDeviceKind device);
    void endSnooze(BatteryDeviceKind device);
    void reset();

    const Clock& m_clock;
    MainScheduler& m_scheduler;
    LowBatteryNotifier& m_notifier;
    bool m_enabled = true;
    std::array<DeviceAlerts, 2> m_devices;
    // Snooze timers hold this weakly and do nothing once it is gone.
    std::shared_ptr<LowBatteryAlerts*> m_lifetime;
};

} // namespace ambrel
