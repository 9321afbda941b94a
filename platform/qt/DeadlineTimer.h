#pragma once

#include <chrono>
#include <functional>
#include <memory>

#include <QObject>

#include "platform/MainScheduler.h"

namespace ambrel {

// What wakes a DeadlineTimer: a one-shot alarm counted in whole milliseconds. The program's is
// a precise QTimer; tests bring one that they set off by hand, early or late.
class TimerAlarm {
public:
    virtual ~TimerAlarm() = default;
    // `wake` runs each time the alarm goes off; given once, before the first arm().
    virtual void setWake(std::function<void()> wake) = 0;
    // Replaces any earlier arming.
    virtual void arm(std::chrono::milliseconds wait) = 0;
    virtual void disarm() = 0;
    // The wait of the last arm().
    virtual std::chrono::milliseconds wait() const = 0;
};

// A timer of the thread that made it (the main thread) that never fires before its time. Qt
// counts whole milliseconds and its default coarse timers may fire up to 5 % early; this one
// runs a precise QTimer and, should that still wake before the deadline on the monotonic clock,
// waits out the rest. A repeating timer keeps its deadlines on the grid start + k × interval, so
// late firings do not add up, and after a long stall (a suspended machine) it fires once, not
// once per missed period.
class DeadlineTimer final : public QObject {
public:
    using Clock = std::chrono::steady_clock;

    // `action` runs on this object's thread at each deadline; `now` reads the monotonic clock and
    // `alarm` wakes the timer (a precise QTimer unless given).
    explicit DeadlineTimer(std::function<void()> action,
                           std::function<Clock::time_point()> now = &Clock::now,
                           std::unique_ptr<TimerAlarm> alarm = nullptr, QObject* parent = nullptr);
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
    // How long the alarm waits now; meaningful while active.
    std::chrono::milliseconds pendingWait() const;

    // The whole milliseconds to wait so that `remaining` has surely passed (rounded up).
    static std::chrono::milliseconds waitCovering(Clock::duration remaining);

private:
    void arm(Clock::time_point now);
    void onTimeout();

    std::function<void()> m_action;
    std::function<Clock::time_point()> m_now;
    std::unique_ptr<TimerAlarm> m_alarm;
    Clock::duration m_interval{};
    Clock::time_point m_deadline{};
    TimerRepeat m_repeat = TimerRepeat::once;
    bool m_active = false;
};

} // namespace ambrel
