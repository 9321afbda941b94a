#pragma once

#include <condition_variable>
#include <deque>
#include <filesystem>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "history/HistoryStore.h"
#include "model/Date.h"

namespace ambrel {

// Writes history rows on a thread of its own, so that the card never waits for the disk. The
// thread sleeps until a row comes (no timer); the file is opened with the first row, and rows
// older than the store's 30 days are pruned with the first row of each new day. A reading
// recorded again (shown from the cache, say) adds nothing: a device has one row per time.
class HistoryRecorder {
public:
    using Clock = std::function<Date()>;
    // Told once of each thing worth a line in the log: a damaged file set aside, history
    // turning off. Called on the recorder's thread.
    using Log = std::function<void(const std::string&)>;

    static constexpr double kPruneEverySeconds = 24 * 3600.0;

    HistoryRecorder(std::filesystem::path file, Clock clock, Log log);
    // Writes what is queued, then ends the thread.
    ~HistoryRecorder();
    HistoryRecorder(const HistoryRecorder&) = delete;
    HistoryRecorder& operator=(const HistoryRecorder&) = delete;

    // Queues one row; returns at once.
    void record(HistoryRow row);
    // Waits until every row queued so far is written (or history is off). For tests and quit.
    void flush();
    // Why history is off, in the program's words; empty while it is on (or not yet opened).
    std::string status() const;

private:
    void run();

    HistoryStore m_store;
    Clock m_clock;
    Log m_log;
    mutable std::mutex m_mutex;
    std::condition_variable m_changed;
    std::deque<HistoryRow> m_queue;
    bool m_busy = false;
    bool m_stopping = false;
    bool m_opened = false;
    std::string m_status;
    std::optional<Date> m_lastPrune;
    std::thread m_thread;
};

} // namespace ambrel
