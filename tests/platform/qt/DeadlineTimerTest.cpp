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

// A monotonic clock the test moves by hand.
struct ManualClock {
    Clock::time_point now = Clock::time_point(1000s);
    std::function<Clock::time_point()> reader() {
        return [this] { return now; };
    }
};

class DeadlineTimerTest : public ::testing::Test {
protected:
    void SetUp() override { testing::coreApplication(); }

    ManualClock m_clock;
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
    DeadlineTimer timer([this] { ++m_fired; }, m_clock.reader());
    const auto start = m_clock.now;
    timer.start(4s, TimerRepeat::once);
    EXPECT_EQ(timer.deadline(), start + 4s);
    EXPECT_EQ(timer.pendingWait(), 4000ms);

    // A coarse timer may go off 5 % early: 3.8 s into a 4 s wait.
    m_clock.now = start + 3800ms;
    timer.timeoutForTesting();
    EXPECT_EQ(m_fired, 0);
    EXPECT_TRUE(timer.isActive());
    EXPECT_EQ(timer.pendingWait(), 200ms);

    m_clock.now = start + 4s - 1ns;
    timer.timeoutForTesting();
    EXPECT_EQ(m_fired, 0);
    EXPECT_EQ(timer.pendingWait(), 1ms);

    m_clock.now = start + 4s;
    timer.timeoutForTesting();
    EXPECT_EQ(m_fired, 1);
    EXPECT_FALSE(timer.isActive());

    m_clock.now = start + 10s;
    timer.timeoutForTesting();
    EXPECT_EQ(m_fired, 1);
}

TEST_F(DeadlineTimerTest, RepeatingDeadlinesStayOnTheirGrid) {
    DeadlineTimer timer([this] { ++m_fired; }, m_clock.reader());
    const auto start = m_clock.now;
    timer.start(30s, TimerRepeat::repeating);

    m_clock.now = start + 30s + 2ms;
    timer.timeoutForTesting();
    EXPECT_EQ(m_fired, 1);
    EXPECT_TRUE(timer.isActive());
    EXPECT_EQ(timer.deadline(), start + 60s);
    EXPECT_EQ(timer.pendingWait(), 29998ms);

    m_clock.now = start + 59s;
    timer.timeoutForTesting();
    EXPECT_EQ(m_fired, 1);
    EXPECT_EQ(timer.pendingWait(), 1000ms);

    m_clock.now = start + 60s;
    timer.timeoutForTesting();
    EXPECT_EQ(m_fired, 2);
    EXPECT_EQ(timer.deadline(), start + 90s);
}

TEST_F(DeadlineTimerTest, ALongStallFiresOnceAndSkipsTheMissedPeriods) {
    DeadlineTimer timer([this] { ++m_fired; }, m_clock.reader());
    const auto start = m_clock.now;
    timer.start(30s, TimerRepeat::repeating);
    m_clock.now = start + 10 * 30s + 1s;
    timer.timeoutForTesting();
    EXPECT_EQ(m_fired, 1);
    EXPECT_EQ(timer.deadline(), start + 11 * 30s);
    EXPECT_EQ(timer.pendingWait(), 29000ms);
}

TEST_F(DeadlineTimerTest, StoppedTimerDoesNotFire) {
    DeadlineTimer timer([this] { ++m_fired; }, m_clock.reader());
    timer.start(1s, TimerRepeat::once);
    timer.stop();
    m_clock.now += 2s;
    timer.timeoutForTesting();
    EXPECT_EQ(m_fired, 0);
    EXPECT_FALSE(timer.isActive());
}

TEST_F(DeadlineTimerTest, ActionMayDestroyItsTimer) {
    std::unique_ptr<DeadlineTimer> timer;
    timer = std::make_unique<DeadlineTimer>(
        [&] {
            ++m_fired;
            timer.reset();
        },
        m_clock.reader());
    timer->start(1s, TimerRepeat::repeating);
    m_clock.now += 1s;
    // Under the address sanitizer, any touch of the timer after its action would show here.
    timer->timeoutForTesting();
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
            QTimer guard;
            guard.setSingleShot(true);
            QObject::connect(&guard, &QTimer::timeout, &loop, &QEventLoop::quit);
            const auto startedAt = Clock::now();
            timer.start(interval, TimerRepeat::once);
            guard.start(10000);
            loop.exec();
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
    QTimer guard;
    guard.setSingleShot(true);
    QObject::connect(&guard, &QTimer::timeout, &loop, &QEventLoop::quit);
    const auto startedAt = Clock::now();
    timer.start(kInterval, TimerRepeat::repeating);
    guard.start(20000);
    loop.exec();
    ASSERT_EQ(firings.size(), static_cast<std::size_t>(kFirings));
    for (int index = 0; index < kFirings; ++index) {
        EXPECT_GE(firings[index] - startedAt, kInterval * (index + 1)) << "firing " << index;
    }
}

} // namespace
} // namespace ambrel
