#pragma once

#include <chrono>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "muxer/MuxDevice.h"
#include "muxer/PhoneArrivalSink.h"

namespace ambrel {

// Keeps one Listen standing at the system muxer, on a thread of its own, and the USB devices
// its Attached and Detached events announce: a phone read then lists devices without a round
// trip to the system muxer. Whenever the list might not be the system muxer's current one (no
// Listen standing, its first announcements not yet in, an event not yet taken in), it says so
// and the caller asks the system muxer itself. A system muxer that ends takes the list with it;
// one that comes back is listened to again.
class SystemDeviceWatch {
public:
    // `stopFd` ends every wait once it becomes readable; join() then returns at once.
    // `arrivals`, when given, is told of every device the system muxer announces as attached.
    SystemDeviceWatch(std::string systemMuxerPath, int stopFd,
                      std::chrono::milliseconds systemMuxerLimit,
                      PhoneArrivalSink* arrivals = nullptr);
    // Joins; the stop descriptor must have been made readable first.
    ~SystemDeviceWatch();
    SystemDeviceWatch(const SystemDeviceWatch&) = delete;
    SystemDeviceWatch& operator=(const SystemDeviceWatch&) = delete;

    void start();
    void join();

    // The system muxer's USB devices in the order it announced them; nothing when they are not
    // known for certain. Thread-safe.
    std::optional<std::vector<MuxDevice>> usbDevices() const;

    // How soon a Listen that the system muxer refused or did not answer is asked for again.
    // When there is no system muxer to ask (Debian's usbmuxd only runs while a phone is plugged
    // in), the watch sleeps until its socket appears instead; meanwhile the caller asks the
    // system muxer itself.
    static constexpr std::chrono::milliseconds kRetry{2000};
    // The system muxer announces every device it has right after it accepted the Listen; the
    // list counts as complete once none came for this long.
    static constexpr std::chrono::milliseconds kSettle{100};
    // A socket's file that was just made may not accept yet: tried this many more times, kSettle
    // apart, before the watch sleeps until the file changes again.
    static constexpr int kQuickTries = 20;

private:
    enum class Stand {
        // Nothing answers at the socket's path (no file there, or no process behind it).
        unreachable,
        // The system muxer answered but refused the Listen, or did not answer in time, or the
        // Listen it accepted has ended.
        ended,
    };

    void run();
    // One Listen, from connecting until it ends or the stop.
    Stand stand();
    enum class Wake { stop, timeUp, socketChanged };
    // Waits for the stop, for `wait` to pass (none: without end) or, with a folder watch, for
    // the socket's file to be made or changed, and says which came first.
    Wake waitFor(std::optional<std::chrono::milliseconds> wait, int folderWatch) const;

    std::string m_systemMuxerPath;
    int m_stopFd;
    std::chrono::milliseconds m_systemMuxerLimit;
    PhoneArrivalSink* m_arrivals;
    std::thread m_thread;

    // Guards everything below.
    mutable std::mutex m_mutex;
    // The standing Listen's socket; -1 when none stands. Closed only after it is set back.
    int m_listenFd = -1;
    bool m_settled = false;
    // While an event is being read and taken in.
    bool m_reading = false;
    std::vector<MuxDevice> m_devices;
};

} // namespace ambrel
