#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/Clock.h"
#include "platform/MainScheduler.h"

namespace ambrel::testing {

// A clock and a main-thread scheduler in simulated time: nothing happens until the test
// advances the clock or runs the posted tasks, so 60 s, 300 s and 600 s pass in microseconds.
class SimulatedScheduler final : public Clock, public MainScheduler {
public:
    explicit SimulatedScheduler(Date start = Date::fromSecondsSinceReferenceDate(800000000.0));

    Date now() const override;
    std::shared_ptr<Timer> scheduleTimer(TimerDelay delay, TimerRepeat repeat,
                                         std::function<void()> action) override;
    // Thread-safe; the task runs at the next runPosted() or advance().
    void post(std::function<void()> task) override;

    // Moves the clock forward by `seconds`, firing due timers in time order (each at its own
    // time) and running posted tasks as they come.
    void advance(double seconds);
    // Sets the clock without firing anything (for a worker's pause).
    void shiftClock(double seconds);
    // Runs every posted task, including ones posted meanwhile. Returns how many ran.
    int runPosted();

    // How many timers are valid now.
    int validTimerCount() const;
    // Intervals of every timer ever scheduled, in order.
    const std::vector<double>& scheduledIntervals() const { return m_intervals; }

private:
    struct SimulatedTimer;
    mutable std::mutex m_mutex;
    Date m_now;
    std::deque<std::function<void()>> m_posted;
    std::vector<std::shared_ptr<SimulatedTimer>> m_timers;
    std::vector<double> m_intervals;
    std::uint64_t m_sequence = 0;
};

} // namespace ambrel::testing
