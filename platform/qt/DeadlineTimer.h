#pragma once

#include <chrono>
#include <functional>

#include <QObject>
#include <QTimer>

#include "platform/MainScheduler.h"

namespace ambrel {

// A timer of the thread that made it (the main thread) that never fires before its time. Qt
// counts whole milliseconds and its default coarse timers may fire up to 5 % early; this one
// runs a precise QTimer and, should that still wake before the deadline on the monotonic clock,
// waits out the rest. A repeating timer keeps its deadlines on the grid start + k × interval, so
// late firings do not add up, and after a long stall (a suspended machine) it fires once, not
// once per missed period.
class DeadlineTimer final : public QObject {
public:
    using Clock = std::chrono::steady_clock;

    // `action` runs on this object's thread at each deadline; `now` reads the monotonic clock
    // (replaced only by tests).
    explicit DeadlineTimer(std::function<void()> action,
                           std::function<Clock::time_point()> now = &Clock::now,
                           QObject* parent = nullptr);
    ~DeadlineTimer() override;

    DeadlineTimer(const DeadlineTimer&) = delete;
    DeadlineTimer& operator=(const DeadlineTimer&) = delete;

    // (Re)starts the timer: the first deadline is `interval` from now. A negative interval
    // counts as zero.
    void start(Clock::duration interval, TimerRepeat repeat);
    void stop();

    bool isActive() const { return m_active; }
    Clock::duration interval() const { return m_interval; }
    TimerRepeat repeat() const { return m_repeat; }
    // The next deadline on the monotonic clock; meaningful while active.
    Clock::time_point deadline() const { return m_deadline; }
    // How long the underlying Qt timer waits now; meaningful while active.
    std::chrono::milliseconds pendingWait() const;

    // The whole milliseconds to wait so that `remaining` has surely passed (rounded up).
    static std::chrono::milliseconds waitCovering(Clock::duration remaining);

    // Acts as if the underlying Qt timer had just gone off, for tests that move the clock.
    void timeoutForTesting() { onTimeout(); }

private:
    void arm(Clock::time_point now);
    void onTimeout();

    std::function<void()> m_action;
    std::function<Clock::time_point()> m_now;
    QTimer m_timer;
    Clock::duration m_interval{};
    Clock::time_point m_deadline{};
    TimerRepeat m_repeat = TimerRepeat::once;
    bool m_active = false;
};

} // namespace ambrel
