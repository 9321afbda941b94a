#pragma once

#include <chrono>
#include <functional>
#include <memory>

namespace ambrel {

enum class TimerRepeat { once, repeating };

// A delay or period in seconds, fractions kept.
using TimerDelay = std::chrono::duration<double>;

// A timer made by MainScheduler. Main thread only.
class Timer {
public:
    virtual ~Timer() = default;
    // Stops the timer for good; a timer that has fired once and does not repeat is also invalid.
    virtual void invalidate() = 0;
    virtual bool isValid() const = 0;
};

// The main thread's event loop as the logic sees it: timers and queued tasks. Everything that
// touches published state runs through it.
class MainScheduler {
public:
    virtual ~MainScheduler() = default;

    // Main thread only. Calls `action` on the main thread `delay` from now and, when
    // repeating, every `delay` after that, until the timer is invalidated. The scheduler keeps
    // the timer alive while it is valid; callers keep it only to invalidate it.
    virtual std::shared_ptr<Timer> scheduleTimer(TimerDelay delay, TimerRepeat repeat,
                                                 std::function<void()> action) = 0;

    // Thread-safe. Runs `task` on the main thread after the tasks already posted.
    virtual void post(std::function<void()> task) = 0;
};

} // namespace ambrel
