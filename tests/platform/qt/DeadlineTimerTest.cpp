#include "platform/qt/DeadlineTimer.h"

#include <memory>
#include <vector>

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include <gtest/gtest.h>

#include "tests/platform/qt/CoreApplication.h"

namespace ambrel {
namespace {

using namespace std::chrono_literals;
using Clock = DeadlineTimer::Clock;

// Runs `loop` until it quits, or for `limit` at the most.
void runAtMost(QEventLoop& loop, std::chrono::milliseconds limit) {
    QTimer guard;
    guard.setSingleShot(true);
    QObject::connect(&guard, &QTimer::timeout, &loop, &QEventLoop::quit);
    guard.start(limit);
    loop.exec();
}

// A monotonic clock the test moves by hand.
struct ManualClock {
    Clock::time_point now = Clock::time_point(1000s);
    std::function<Clock::time_point()> reader() {
        return [this] { return now; };
    }
};

// An alarm the test sets off by hand, as if the Qt timer had gone off at the clock's time.
class ManualAlarm final : public TimerAlarm {
public:
    void setWake(std::function<void()> wake) override { m_wake = std::move(wake); }
    void arm(std::chrono::milliseconds wait) override {
        m_wait = wait;
        m_armed = true;
    }
    void disarm() override { m_armed = false; }
    std::chrono::milliseconds wait() const override { return m_wait; }

    bool isArmed() const { return m_armed; }
    // Goes off whether armed or not: a stale firing must be harmless too.
    void goOff() {
        m_armed = false;
        const auto wake = m_wake;
        wake();
    }

private:
    std::function<void()> m_wake;
    std::chrono::milliseconds m_wait{};
    bool m_armed = false;
};

class DeadlineTimerTest : public ::testing::Test {
protected:
    void SetUp() override { testing::coreApplication(); }

    // A timer on the manual clock and alarm; the alarm stays reachable through m_alarm.
    std::unique_ptr<DeadlineTimer> makeTimer(std::function<void()> action) {
        auto alarm = std::make_unique<ManualAlarm>();
        m_alarm = alarm.get();
        return std::make_unique<DeadlineTimer>(std::move(action), m_clock.reader(),
                                               std::move(alarm));
    }
    std::unique_ptr<DeadlineTimer> makeCountingTimer() {
        return makeTimer([this] { ++m_fired; });
    }
    // Sets the clock to `now` and lets the alarm go off then.
    void goOffAt(Clock::time_point now) {
        m_clock.now = now;
        m_alarm->goOff();
    }

    ManualClock m_clock;
    ManualAlarm* m_alarm = nullptr;
    int m_fired = 0;
};

TEST_F(DeadlineTimerTest, WaitIsRoundedUpToWholeMilliseconds) {
    EXPECT_EQ(DeadlineTimer::waitCovering(1ns), 1ms);
    EXPECT_EQ(DeadlineTimer::waitCovering(999'999ns), 1ms);
    EXPECT_EQ(DeadlineTimer::waitCovering(1'000'001ns), 2ms);
    EXPECT_EQ(DeadlineTimer::waitCovering(4s), 4000ms);
    EXPECT_EQ(DeadlineTimer::waitCovering(0ns), 0ms);
    EXPECT_EQ(DeadlineTimer::waitCovering(-5ms), 0ms);
    EXPECT_EQ(DeadlineTimer::waitCovering(std::chrono::hours(24 * 365 * 100)),
              std::chrono::milliseconds(2147483647));
}

TEST_F(DeadlineTimerTest, AnEarlyWakeWaitsOutTheRest) {
    const auto owned = makeCountingTimer();
    DeadlineTimer& timer = *owned;
    const auto start = m_clock.now;
    timer.start(4s, TimerRepeat::once);
    EXPECT_EQ(timer.deadline(), start + 4s);
    EXPECT_EQ(timer.pendingWait(), 4000ms);

    // A coarse timer may go off 5 % early: 3.8 s into a 4 s wait.
    goOffAt(start + 3800ms);
    EXPECT_EQ(m_fired, 0);
    EXPECT_TRUE(timer.isActive());
    EXPECT_EQ(timer.pendingWait(), 200ms);

    goOffAt(start + 4s - 1ns);
    EXPECT_EQ(m_fired, 0);
    EXPECT_EQ(timer.pendingWait(), 1ms);

    goOffAt(start + 4s);
    EXPECT_EQ(m_fired, 1);
    EXPECT_FALSE(timer.isActive());

    goOffAt(start + 10s);
    EXPECT_EQ(m_fired, 1);
}

TEST_F(DeadlineTimerTest, RepeatingDeadlinesStayOnTheirGrid) {
    const auto owned = makeCountingTimer();
    DeadlineTimer& timer = *owned;
    const auto start = m_clock.now;
    timer.start(30s, TimerRepeat::repeating);

    goOffAt(start + 30s + 2ms);
    EXPECT_EQ(m_fired, 1);
    EXPECT_TRUE(timer.isActive());
    EXPECT_EQ(timer.deadline(), start + 60s);
    EXPECT_EQ(timer.pendingWait(), 29998ms);

    goOffAt(start + 59s);
    EXPECT_EQ(m_fired, 1);
    EXPECT_EQ(timer.pendingWait(), 1000ms);

    goOffAt(start + 60s);
    EXPECT_EQ(m_fired, 2);
    EXPECT_EQ(timer.deadline(), start + 90s);
}

TEST_F(DeadlineTimerTest, ALongStallFiresOnceAndSkipsTheMissedPeriods) {
    const auto owned = makeCountingTimer();
    DeadlineTimer& timer = *owned;
    const auto start = m_clock.now;
    timer.start(30s, TimerRepeat::repeating);
    goOffAt(start + 10 * 30s + 1s);
    EXPECT_EQ(m_fired, 1);
    EXPECT_EQ(timer.deadline(), start + 11 * 30s);
    EXPECT_EQ(timer.pendingWait(), 29000ms);
}

TEST_F(DeadlineTimerTest, StoppedTimerDoesNotFire) {
    const auto owned = makeCountingTimer();
    DeadlineTimer& timer = *owned;
    timer.start(1s, TimerRepeat::once);
    EXPECT_TRUE(m_alarm->isArmed());
    timer.stop();
    EXPECT_FALSE(m_alarm->isArmed());
    m_clock.now += 2s;
    m_alarm->goOff();
    EXPECT_EQ(m_fired, 0);
    EXPECT_FALSE(timer.isActive());
}

TEST_F(DeadlineTimerTest, ActionMayDestroyItsTimer) {
    std::unique_ptr<DeadlineTimer> timer;
    timer = makeTimer([&] {
        ++m_fired;
        timer.reset();
    });
    timer->start(1s, TimerRepeat::repeating);
    m_clock.now += 1s;
    // Under the address sanitizer, any touch of the timer after its action would show here.
    m_alarm->goOff();
    EXPECT_EQ(m_fired, 1);
    EXPECT_EQ(timer, nullptr);
}

// The real Qt event loop and the real monotonic clock: a timer never fires before its interval,
// measured from just before start() to the moment the action runs.
TEST_F(DeadlineTimerTest, RealTimersNeverFireEarly) {
    const std::vector<std::chrono::milliseconds> intervals = {1ms, 7ms, 20ms, 33ms, 50ms, 97ms};
    for (int round = 0; round < 3; ++round) {
        for (const auto interval : intervals) {
            QEventLoop loop;
            Clock::time_point firedAt;
            DeadlineTimer timer([&] {
                firedAt = Clock::now();
                loop.quit();
            });
            const auto startedAt = Clock::now();
            timer.start(interval, TimerRepeat::once);
            runAtMost(loop, 10s);
            ASSERT_NE(firedAt, Clock::time_point()) << "no firing within 10 s";
            EXPECT_GE(firedAt - startedAt, interval) << "interval " << interval.count() << " ms";
        }
    }
}

TEST_F(DeadlineTimerTest, RealRepeatingTimerNeverFiresEarly) {
    constexpr auto kInterval = 25ms;
    constexpr int kFirings = 8;
    QEventLoop loop;
    std::vector<Clock::time_point> firings;
    DeadlineTimer timer([&] {
        firings.push_back(Clock::now());
        if (firings.size() == kFirings) {
            loop.quit();
        }
    });
    const auto startedAt = Clock::now();
    timer.start(kInterval, TimerRepeat::repeating);
    runAtMost(loop, 20s);
    ASSERT_EQ(firings.size(), static_cast<std::size_t>(kFirings));
    for (int index = 0; index < kFirings; ++index) {
        EXPECT_GE(firings[index] - startedAt, kInterval * (index + 1)) << "firing " << index;
    }
}

} // namespace
} // namespace ambrel
