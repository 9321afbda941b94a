#include "presentation/LowBatteryAlerts.h"

#include <string>

namespace ambrel {

LowBatteryAlerts::LowBatteryAlerts(const Clock& clock, MainScheduler& scheduler,
                                   LowBatteryNotifier& notifier)
    : m_clock(clock), m_scheduler(scheduler), m_notifier(notifier),
      m_lifetime(std::make_shared<LowBatteryAlerts*>(this)) {}

LowBatteryAlerts::~LowBatteryAlerts() {
    for (auto& device : m_devices) {
        if (device.snoozeTimer) {
            device.snoozeTimer->invalidate();
        }
    }
}

LowBatteryAlerts::DeviceAlerts& LowBatteryAlerts::alerts(BatteryDeviceKind device) {
    return m_devices[device == BatteryDeviceKind::mac ? 0 : 1];
}

void LowBatteryAlerts::update(BatteryDeviceKind device,
                              const std::optional<BatteryDeviceSnapshot>& snapshot,
                              bool isConfirmed) {
    if (!snapshot || !isConfirmed || snapshot->isStale(m_clock.now())) {
        return;
    }
    alerts(device).lastConfirmed = snapshot;
    if (m_enabled) {
        evaluate(device);
    }
}

void LowBatteryAlerts::evaluate(BatteryDeviceKind device) {
    auto& state = alerts(device);
    const auto& snapshot = *state.lastConfirmed;
    const auto percentage = snapshot.percentage();
    if (snapshot.isCharging()) {
        closeShown(device);
        state.warningArmed = true;
        state.criticalArmed = true;
        if (state.snoozeTimer) {
            state.snoozeTimer->invalidate();
        }
        state.snoozedUntil.reset();
        return;
    }
    if (percentage >= kWarningLevel + kRearmMargin) {
        state.warningArmed = true;
    }
    if (percentage >= kCriticalLevel + kRearmMargin) {
        state.criticalArmed = true;
    }
    // A battery that climbed well clear of the level it was shown for needs no alert on screen.
    if (state.shown &&
        (*state.shown == LowBatteryLevel::warning ? state.warningArmed : state.criticalArmed)) {
        closeShown(device);
    }
    if (state.snoozedUntil) {
        return;
    }
    if (percentage <= kCriticalLevel && state.criticalArmed) {
        // Passing both levels at once is one fall, told once.
        state.criticalArmed = false;
        state.warningArmed = false;
        show(device, snapshot, LowBatteryLevel::critical);
    } else if (percentage <= kWarningLevel && state.warningArmed) {
        state.warningArmed = false;
        show(device, snapshot, LowBatteryLevel::warning);
    }
}

void LowBatteryAlerts::show(BatteryDeviceKind device, const BatteryDeviceSnapshot& snapshot,
                            LowBatteryLevel level) {
    alerts(device).shown = level;
    m_notifier.show(notice(device, snapshot, level));
}

void LowBatteryAlerts::closeShown(BatteryDeviceKind device) {
    auto& state = alerts(device);
    if (state.shown) {
        state.shown.reset();
        m_notifier.close(device);
    }
}

void LowBatteryAlerts::snooze(BatteryDeviceKind device) {
    if (!m_enabled) {
        return;
    }
    closeShown(device);
    auto& state = alerts(device);
    state.snoozedUntil = m_clock.now().addingSeconds(kSnoozeSeconds);
    if (state.snoozeTimer) {
        state.snoozeTimer->invalidate();
    }
    std::weak_ptr<LowBatteryAlerts*> weak = m_lifetime;
    state.snoozeTimer =
        m_scheduler.scheduleTimer(TimerDelay(kSnoozeSeconds), TimerRepeat::once, [weak, device] {
            if (const auto self = weak.lock()) {
                (*self)->endSnooze(device);
            }
        });
}

void LowBatteryAlerts::endSnooze(BatteryDeviceKind device) {
    auto& state = alerts(device);
    if (!state.snoozedUntil) {
        return;
    }
    const Date now = m_clock.now();
    // A timer that fires before its time waits out the rest.
    if (now < *state.snoozedUntil) {
        std::weak_ptr<LowBatteryAlerts*> weak = m_lifetime;
        state.snoozeTimer = m_scheduler.scheduleTimer(
            TimerDelay(state.snoozedUntil->secondsSince(now)), TimerRepeat::once, [weak, device] {
                if (const auto self = weak.lock()) {
                    (*self)->endSnooze(device);
                }
            });
        return;
    }
    state.snoozedUntil.reset();
    state.snoozeTimer.reset();
    const auto& snapshot = state.lastConfirmed;
    if (!snapshot || snapshot->isStale(now) || snapshot->isCharging() ||
        snapshot->percentage() > kWarningLevel) {
        return;
    }
    const bool critical = snapshot->percentage() <= kCriticalLevel;
    state.warningArmed = false;
    state.criticalArmed = state.criticalArmed && !critical;
    show(device, *snapshot, critical ? LowBatteryLevel::critical : LowBatteryLevel::warning);
}

void LowBatteryAlerts::alertClosed(BatteryDeviceKind device) {
    alerts(device).shown.reset();
}

void LowBatteryAlerts::setEnabled(bool enabled) {
    if (enabled == m_enabled) {
        return;
    }
    m_enabled = enabled;
    for (const auto device : {BatteryDeviceKind::mac, BatteryDeviceKind::phone}) {
        closeShown(device);
        auto& state = alerts(device);
        if (state.snoozeTimer) {
            state.snoozeTimer->invalidate();
        }
        auto lastConfirmed = std::move(state.lastConfirmed);
        state = DeviceAlerts();
        if (enabled && lastConfirmed && !lastConfirmed->isStale(m_clock.now())) {
            state.lastConfirmed = std::move(lastConfirmed);
            evaluate(device);
        }
    }
}

LowBatteryNotice LowBatteryAlerts::notice(BatteryDeviceKind device,
                                          const BatteryDeviceSnapshot& snapshot,
                                          LowBatteryLevel level) {
    const std::string word = device == BatteryDeviceKind::mac ? "This computer" : "iPhone";
    LowBatteryNotice notice;
    notice.device = device;
    notice.level = level;
    notice.snoozeTitle = kSnoozeActionTitle;
    const std::string percent = std::to_string(snapshot.percentage()) + "%";
    if (level == LowBatteryLevel::critical) {
        notice.summary = word + " battery very low";
        notice.body = snapshot.name() + " is at " + percent + ". Charge it now.";
    } else {
        notice.summary = word + " battery low";
        notice.body = snapshot.name() + " is at " + percent + ". Charge it soon.";
    }
    return notice;
}

} // namespace ambrel
