#pragma once

#include <memory>

#include <QDBusConnection>
#include <QSettings>

#include "shell/SettingsFile.h"
#include <QString>

#include "monitor/BatteryMonitor.h"
#include "platform/qt/DesktopNotifications.h"
#include "presentation/LowBatteryAlerts.h"

namespace ambrel {

// Feeds the monitor's readings to the low-battery rules and shows what they decide through the
// desktop's notifications. Whether alerts are on is remembered in the program's settings under
// "LowBatteryAlerts" (on unless turned off). Main thread only; `monitor` and `scheduler` must
// outlive it.
class LowBatteryAlertsController {
public:
    static constexpr const char* kSettingsKey = "LowBatteryAlerts";

    LowBatteryAlertsController(BatteryMonitor& monitor, MainScheduler& scheduler,
                               const QString& applicationName, const QString& desktopEntry,
                               QDBusConnection bus = QDBusConnection::sessionBus());
    ~LowBatteryAlertsController();
    LowBatteryAlertsController(const LowBatteryAlertsController&) = delete;
    LowBatteryAlertsController& operator=(const LowBatteryAlertsController&) = delete;

    bool isEnabled() const { return m_alerts.isEnabled(); }
    // Applies and remembers the choice.
    void setEnabled(bool enabled);

private:
    void phoneChanged();

    BatteryMonitor& m_monitor;
    QSettings m_settings{QString::fromLatin1(SettingsFile::kOrganization),
                         QString::fromLatin1(SettingsFile::kApplication)};
    DesktopNotifications m_notifications;
    LowBatteryAlerts m_alerts;
    BatteryMonitor::ObserverId m_observer = 0;
};

} // namespace ambrel
