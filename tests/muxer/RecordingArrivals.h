#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include "muxer/PhoneArrivalSink.h"

namespace ambrel::testing {

// Keeps every arrival it is told of, from any thread, as "usb <phone>" or "wifi <phone>".
class RecordingArrivals final : public PhoneArrivalSink {
public:
    void phoneAppeared(const std::string& phone, bool overWifi) override {
        {
            const std::lock_guard lock(m_mutex);
            m_arrivals.push_back((overWifi ? "wifi " : "usb ") + phone);
        }
        m_changed.notify_all();
    }

    std::vector<std::string> arrivals() const {
        const std::lock_guard lock(m_mutex);
        return m_arrivals;
    }

    // Waits (up to `limit`) until `count` arrivals came; whether they did.
    bool waitFor(std::size_t count, std::chrono::milliseconds limit) const {
        std::unique_lock lock(m_mutex);
        return m_changed.wait_for(lock, limit, [&] { return m_arrivals.size() >= count; });
    }

private:
    mutable std::mutex m_mutex;
    mutable std::condition_variable m_changed;
    std::vector<std::string> m_arrivals;
};

} // namespace ambrel::testing
