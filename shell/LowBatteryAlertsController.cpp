#include "shell/LowBatteryAlertsController.h"

namespace ambrel {

LowBatteryAlertsController::LowBatteryAlertsController(BatteryMonitor& monitor,
                                                       MainScheduler& scheduler,
                                                       const QString& applicationName,
                                                       const QString& desktopEntry,
                                                       QDBusConnection bus)
    : m_monitor(monitor), m_notifications(std::move(bus), applicationName, desktopEntry),
      m_alerts(monitor.clock(), scheduler, m_notifications) {
    m_alerts.setEnabled(m_settings.value(QLatin1String(kSettingsKey), true).toBool());
    m_notifications.setHandlers(
        {[this](BatteryDeviceKind device) { m_alerts.snooze(device); },
         [this](BatteryDeviceKind device) { m_alerts.alertClosed(device); }});
    m_observer = m_monitor.addObserver([this](MonitorProperty property, ChangePhase phase) {
        if (phase != ChangePhase::didChange) {
            return;
        }
        if (property == MonitorProperty::mac) {
            m_alerts.update(BatteryDeviceKind::mac, m_monitor.mac(), true);
        } else if (property == MonitorProperty::phone ||
                   property == MonitorProperty::phoneSetupState) {
            phoneChanged();
        }
    });
}

LowBatteryAlertsController::~LowBatteryAlertsController() {
    m_monitor.removeObserver(m_observer);
}

void LowBatteryAlertsController::phoneChanged() {
    // Only a reading from a read that just succeeded counts: not the saved one shown at start,
    // and not the last known one kept while the phone cannot be reached.
    m_alerts.update(BatteryDeviceKind::phone, m_monitor.phone(),
                    m_monitor.phoneSetupState() == PhoneSetupState::ready);
}

void LowBatteryAlertsController::setEnabled(bool enabled) {
    m_settings.setValue(QLatin1String(kSettingsKey), enabled);
    m_alerts.setEnabled(enabled);
}

} // namespace ambrel
