#include "monitor/PhoneArrivalReads.h"

namespace ambrel {

bool PhoneArrivalReads::wantsReading(const BatteryMonitor& monitor) {
    const auto& phone = monitor.phone();
    if (!phone || phone->isStale(monitor.clock().now())) {
        return true;
    }
    switch (monitor.phoneSetupState()) {
    case PhoneSetupState::needsPairing:
    case PhoneSetupState::notFound:
    case PhoneSetupState::unavailable:
        return true;
    case PhoneSetupState::checking:
    case PhoneSetupState::ready:
        return false;
    }
    return false;
}

bool PhoneArrivalReads::phoneArrived(const PhoneArrival& arrival) {
    if (m_monitor.isRefreshingPhone() || !wantsReading(m_monitor)) {
        return false;
    }
    const Date now = m_monitor.clock().now();
    const auto last = m_lastReadStarted.find(arrival.phone);
    if (last != m_lastReadStarted.end()) {
        const double since = now.secondsSince(last->second);
        // A clock set back counts as long ago, not as a debounce that never ends.
        if (since >= 0 && since < static_cast<double>(kDebounce.count())) {
            return false;
        }
    }
    m_lastReadStarted[arrival.phone] = now;
    m_monitor.refreshPhone();
    return true;
}

} // namespace ambrel
