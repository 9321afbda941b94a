#pragma once

#include <functional>
#include <optional>

#include "history/HistoryRecorder.h"
#include "monitor/BatteryMonitor.h"

namespace ambrel {

// Hands each new confirmed reading of the monitor to the history: the computer's every minute,
// the phone's after each read that reached it. A reading shown again is no new one: the phone's
// reading from the cache at start (made before this object, which is built before the monitor
// starts) and a reading kept as "Last known" add no row. Main thread only; the monitor and the
// recorder must outlive it.
class HistoryFeed {
public:
    HistoryFeed(BatteryMonitor& monitor, HistoryRecorder& recorder);
    ~HistoryFeed();
    HistoryFeed(const HistoryFeed&) = delete;
    HistoryFeed& operator=(const HistoryFeed&) = delete;

    // Told of each row handed to the recorder, on the main thread (an open history window
    // adds it).
    void setRowListener(std::function<void(const HistoryRow&)> listener) {
        m_listener = std::move(listener);
    }

private:
    void take(const std::optional<BatteryDeviceSnapshot>& snapshot, std::optional<Date>& last);

    BatteryMonitor& m_monitor;
    HistoryRecorder& m_recorder;
    BatteryMonitor::ObserverId m_observer = 0;
    std::optional<Date> m_lastMac;
    std::optional<Date> m_lastPhone;
    std::function<void(const HistoryRow&)> m_listener;
};

} // namespace ambrel
