#include "app/HistoryFeed.h"

namespace ambrel {

HistoryFeed::HistoryFeed(BatteryMonitor& monitor, HistoryRecorder& recorder)
    : m_monitor(monitor), m_recorder(recorder) {
    if (const auto cached = m_monitor.phone()) {
        m_lastPhone = cached->lastUpdated();
    }
    m_observer = m_monitor.addObserver([this](MonitorProperty property, ChangePhase phase) {
        if (phase != ChangePhase::didChange) {
            return;
        }
        if (property == MonitorProperty::mac) {
            take(m_monitor.mac(), m_lastMac);
        } else if (property == MonitorProperty::phone) {
            take(m_monitor.phone(), m_lastPhone);
        }
    });
}

HistoryFeed::~HistoryFeed() {
    m_monitor.removeObserver(m_observer);
}

void HistoryFeed::take(const std::optional<BatteryDeviceSnapshot>& snapshot,
                       std::optional<Date>& last) {
    if (!snapshot || (last && snapshot->lastUpdated() <= *last)) {
        return;
    }
    last = snapshot->lastUpdated();
    HistoryRow row;
    row.time = snapshot->lastUpdated();
    row.device = snapshot->id();
    row.percentage = static_cast<int>(snapshot->percentage());
    row.isCharging = snapshot->isCharging();
    row.isPluggedIn = snapshot->isPluggedIn();
    // The phone's snapshot names how it was reached; the computer's says where it is read.
    row.link = snapshot->id() == "iphone" ? snapshot->source() : std::string();
    if (m_listener) {
        m_listener(row);
    }
    m_recorder.record(std::move(row));
}

} // namespace ambrel
