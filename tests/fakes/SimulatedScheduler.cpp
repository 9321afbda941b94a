#include "tests/fakes/SimulatedScheduler.h"

#include <algorithm>
#include <limits>
#include <utility>

namespace ambrel::testing {

struct SimulatedScheduler::SimulatedTimer final : Timer {
    Date due;
    double interval = 0;
    TimerRepeat repeat = TimerRepeat::once;
    std::function<void()> action;
    bool valid = true;
    std::uint64_t sequence = 0;

    void invalidate() override { valid = false; }
    bool isValid() const override { return valid; }
};

SimulatedScheduler::SimulatedScheduler(Date start) : m_now(start) {}

Date SimulatedScheduler::now() const {
    std::lock_guard lock(m_mutex);
    return m_now;
}

std::shared_ptr<Timer> SimulatedScheduler::scheduleTimer(TimerDelay delay, TimerRepeat repeat,
                                                         std::function<void()> action) {
    const double seconds = delay.count();
    auto timer = std::make_shared<SimulatedTimer>();
    timer->due = now().addingSeconds(seconds);
    timer->interval = seconds;
    timer->repeat = repeat;
    timer->action = std::move(action);
    timer->sequence = m_sequence++;
    m_timers.push_back(timer);
    m_intervals.push_back(seconds);
    return timer;
}

void SimulatedScheduler::post(std::function<void()> task) {
    std::lock_guard lock(m_mutex);
    m_posted.push_back(std::move(task));
}

int SimulatedScheduler::runPosted() {
    int count = 0;
    while (true) {
        std::function<void()> task;
        {
            std::lock_guard lock(m_mutex);
            if (m_posted.empty()) {
                return count;
            }
            task = std::move(m_posted.front());
            m_posted.pop_front();
        }
        task();
        ++count;
    }
}

void SimulatedScheduler::shiftClock(double seconds) {
    std::lock_guard lock(m_mutex);
    m_now = m_now.addingSeconds(seconds);
}

void SimulatedScheduler::advance(double seconds) {
    const Date end = now().addingSeconds(seconds);
    runPosted();
    while (true) {
        std::erase_if(m_timers, [](const auto& timer) { return !timer->valid; });
        std::shared_ptr<SimulatedTimer> next;
        for (const auto& timer : m_timers) {
            if (timer->due <= end &&
                (!next || timer->due < next->due ||
                 (timer->due == next->due && timer->sequence < next->sequence))) {
                next = timer;
            }
        }
        if (!next) {
            break;
        }
        {
            std::lock_guard lock(m_mutex);
            m_now = std::max(m_now, next->due);
        }
        if (next->repeat == TimerRepeat::once) {
            next->valid = false;
        } else {
            next->due = next->due.addingSeconds(next->interval);
        }
        next->action();
        runPosted();
    }
    std::lock_guard lock(m_mutex);
    m_now = std::max(m_now, end);
}

int SimulatedScheduler::validTimerCount() const {
    return static_cast<int>(std::count_if(m_timers.begin(), m_timers.end(),
                                          [](const auto& timer) { return timer->valid; }));
}

} // namespace ambrel::testing
