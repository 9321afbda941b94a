#include "platform/qt/QtMainScheduler.h"

#include <chrono>
#include <cmath>
#include <vector>

#include <QCoreApplication>
#include <QEventLoop>
#include <QTimer>

#include <gtest/gtest.h>

#include "tests/platform/qt/CoreApplication.h"

namespace ambrel {
namespace {

using Clock = std::chrono::steady_clock;

// Runs the event loop until `done` is set or ten seconds pass.
void runUntil(const bool& done) {
    QEventLoop loop;
    QTimer poll;
    QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
        if (done) {
            loop.quit();
        }
    });
    poll.start(1);
    QTimer guard;
    guard.setSingleShot(true);
    QObject::connect(&guard, &QTimer::timeout, &loop, &QEventLoop::quit);
    guard.start(10000);
    loop.exec();
}

TEST(QtMainSchedulerTest, AOneShotTimerFiresOnceAndNotBeforeItsTime) {
    testing::coreApplication();
    QtMainScheduler scheduler;
    // The phone cycle's retry delay, the shortest delay the program schedules this way.
    const double seconds = 0.5;
    int fired = 0;
    bool done = false;
    Clock::time_point firedAt;
    const auto startedAt = Clock::now();
    auto timer = scheduler.scheduleTimer(TimerDelay(seconds), TimerRepeat::once, [&] {
        ++fired;
        firedAt = Clock::now();
        done = true;
    });
    EXPECT_TRUE(timer->isValid());
    runUntil(done);
    ASSERT_EQ(fired, 1);
    EXPECT_GE(firedAt - startedAt, std::chrono::duration<double>(seconds));
    EXPECT_FALSE(timer->isValid());
}

TEST(QtMainSchedulerTest, ARepeatingTimerKeepsItsPeriodUntilInvalidated) {
    testing::coreApplication();
    QtMainScheduler scheduler;
    const double seconds = 0.03;
    std::vector<Clock::time_point> firings;
    bool done = false;
    std::shared_ptr<Timer> timer;
    const auto startedAt = Clock::now();
    timer = scheduler.scheduleTimer(TimerDelay(seconds), TimerRepeat::repeating, [&] {
        firings.push_back(Clock::now());
        if (firings.size() == 4) {
            timer->invalidate();
            done = true;
        }
    });
    runUntil(done);
    ASSERT_EQ(firings.size(), 4U);
    for (std::size_t index = 0; index < firings.size(); ++index) {
        EXPECT_GE(firings[index] - startedAt,
                  std::chrono::duration<double>(seconds * static_cast<double>(index + 1)));
    }
    EXPECT_FALSE(timer->isValid());
    // Nothing more arrives once it is invalid.
    bool later = false;
    auto marker = scheduler.scheduleTimer(std::chrono::milliseconds(100), TimerRepeat::once,
                                          [&] { later = true; });
    runUntil(later);
    EXPECT_EQ(firings.size(), 4U);
}

TEST(QtMainSchedulerTest, NonsenseDelaysFireAtOnce) {
    testing::coreApplication();
    QtMainScheduler scheduler;
    int fired = 0;
    bool done = false;
    const auto count = [&] {
        ++fired;
        done = fired == 2;
    };
    auto negative = scheduler.scheduleTimer(std::chrono::seconds(-3), TimerRepeat::once, count);
    auto notANumber = scheduler.scheduleTimer(TimerDelay(std::nan("")), TimerRepeat::once, count);
    runUntil(done);
    EXPECT_EQ(fired, 2);
}

} // namespace
} // namespace ambrel
