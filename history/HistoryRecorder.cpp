#include "history/HistoryRecorder.h"

#include <pthread.h>

namespace ambrel {

HistoryRecorder::HistoryRecorder(std::filesystem::path file, Clock clock, Log log)
    : m_store(std::move(file)), m_clock(std::move(clock)), m_log(std::move(log)),
      m_thread([this] { run(); }) {}

HistoryRecorder::~HistoryRecorder() {
    {
        const std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_changed.notify_all();
    m_thread.join();
}

void HistoryRecorder::record(HistoryRow row) {
    {
        const std::lock_guard lock(m_mutex);
        m_queue.push_back(std::move(row));
    }
    m_changed.notify_all();
}

void HistoryRecorder::flush() {
    std::unique_lock lock(m_mutex);
    m_changed.wait(lock, [this] { return m_queue.empty() && !m_busy; });
}

std::string HistoryRecorder::status() const {
    const std::lock_guard lock(m_mutex);
    return m_status;
}

void HistoryRecorder::run() {
    ::pthread_setname_np(::pthread_self(), "history");
    std::unique_lock lock(m_mutex);
    for (;;) {
        m_changed.wait(lock, [this] { return m_stopping || !m_queue.empty(); });
        if (m_queue.empty()) {
            return;
        }
        const HistoryRow row = std::move(m_queue.front());
        m_queue.pop_front();
        m_busy = true;
        const bool opened = m_opened;
        lock.unlock();

        std::string said;
        std::string status;
        const Date now = m_clock();
        if (!opened) {
            m_store.open(now);
            if (m_store.setAside()) {
                said = "Battery history was damaged; it was kept as " +
                       m_store.setAside()->string() + " and a new one started.";
            }
        }
        const bool wasOn = m_store.isOn();
        if (wasOn) {
            m_store.append(row);
            if (!m_lastPrune || now.secondsSince(*m_lastPrune) >= kPruneEverySeconds) {
                m_store.prune(now.addingSeconds(-HistoryStore::kKeepSeconds));
                m_lastPrune = now;
            }
        }
        status = m_store.status();
        if (m_log) {
            if (!said.empty()) {
                m_log(said);
            }
            // Once, when history turns off.
            if ((!opened || wasOn) && !m_store.isOn() && !status.empty()) {
                m_log(status);
            }
        }

        lock.lock();
        m_opened = true;
        m_status = status;
        m_busy = false;
        if (!m_store.isOn()) {
            // Off for the rest of the run: what comes is dropped.
            m_queue.clear();
        }
        m_changed.notify_all();
    }
}

} // namespace ambrel
