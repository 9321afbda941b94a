#pragma once

#include <chrono>
#include <map>
#include <string>

#include "model/Date.h"
#include "monitor/BatteryMonitor.h"

namespace ambrel {

// A phone that has just become reachable: plugged in, or its Wi-Fi advert arrived or came back.
struct PhoneArrival {
    enum class Path { usb, wifi };

    // The phone's udid (or, for an advert not yet matched to a pairing, its advert name).
    std::string phone;
    Path path = Path::usb;
};

// Reads the phone when it appears and the card has nothing good to show for it: a reading that
// is stale, a check that failed, or no reading at all. The read is the monitor's own
// refreshPhone(), so the retry rule, the states and texts and the next five-minute check are
// exactly those of any read. At most one such read per phone per kDebounce; an arrival while a
// read runs starts nothing (that read will serve), and a phone that leaves changes nothing.
// Main thread only; the monitor must outlive it.
class PhoneArrivalReads {
public:
    // A phone whose advert flaps (a sleeping phone's Wi-Fi waking for a moment) is read no
    // more often than this.
    static constexpr std::chrono::seconds kDebounce{30};

    explicit PhoneArrivalReads(BatteryMonitor& monitor) : m_monitor(monitor) {}

    // Whether the arrival started a read.
    bool phoneArrived(const PhoneArrival& arrival);

    // Whether the card's phone reading is one an arrival should replace.
    static bool wantsReading(const BatteryMonitor& monitor);

private:
    BatteryMonitor& m_monitor;
    // When each phone's last arrival read started.
    std::map<std::string, Date> m_lastReadStarted;
};

} // namespace ambrel
