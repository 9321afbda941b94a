// The phone read on a real background thread: where and how it runs, how its outcome comes back,
// and what happens when the monitor, or the whole process, ends while it runs.

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "monitor/BatteryMonitor.h"
#include "platform/linux/ThreadWorker.h"
#include "tests/monitor/PhoneCycleHarness.h"

namespace ambrel::testing::phonecycle {
namespace {

using namespace std::chrono_literals;

// A gate a read waits at, a record of what the read saw, and a signal once every copy of the
// read function is gone (that is, once the worker thread has let go of its job).
struct ReadProbe {
    std::mutex mutex;
    std::condition_variable changed;
    bool isOpen = false;
    int started = 0;
    int finished = 0;
    bool isReleased = false;
    std::vector<std::thread::id> threads;
    std::vector<int> niceValues;
    std::vector<std::chrono::steady_clock::time_point> startTimes;

    template <typename Predicate> bool waitFor(Predicate predicate) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, 10s, predicate);
    }
    void open() {
        std::lock_guard lock(mutex);
        isOpen = true;
        changed.notify_all();
    }
};

// Held only by the read function's copies; tells the probe when the last one goes.
struct ReleaseSignal {
    explicit ReleaseSignal(std::shared_ptr<ReadProbe> readProbe) : probe(std::move(readProbe)) {}
    ReleaseSignal(const ReleaseSignal&) = delete;
    ReleaseSignal& operator=(const ReleaseSignal&) = delete;
    std::shared_ptr<ReadProbe> probe;
    ~ReleaseSignal() {
        std::lock_guard lock(probe->mutex);
        probe->isReleased = true;
        probe->changed.notify_all();
    }
};

int currentThreadNice() {
    errno = 0;
    return getpriority(PRIO_PROCESS, static_cast<id_t>(gettid()));
}

class MonitorLifetimeTest : public ::testing::Test {
protected:
    MonitorLifetimeTest() : probe(std::make_shared<ReadProbe>()) {}

    // A read that records itself, waits at the gate when asked to, and then hands out the next
    // scripted outcome.
    MonitorServices threadedServices(bool waitAtGate) {
        MonitorServices services = h.services();
        services.worker = std::make_shared<ThreadWorker>();
        auto signal = std::make_shared<ReleaseSignal>(probe);
        services.readPhone = [signal, waitAtGate, inner = services.readPhone](
                                 const std::filesystem::path& tools,
                                 const std::optional<std::string>& preferred,
                                 const std::optional<PhoneIdentity>& identity) {
            ReadProbe& read = *signal->probe;
            {
                std::unique_lock lock(read.mutex);
                ++read.started;
                read.threads.push_back(std::this_thread::get_id());
                read.niceValues.push_back(currentThreadNice());
                read.startTimes.push_back(std::chrono::steady_clock::now());
                read.changed.notify_all();
                if (waitAtGate) {
                    read.changed.wait(lock, [&read] { return read.isOpen; });
                }
            }
            auto result = inner(tools, preferred, identity);
            std::lock_guard lock(read.mutex);
            ++read.finished;
            read.changed.notify_all();
            return result;
        };
        return services;
    }

    // Runs what the worker has posted to the main thread, waiting up to 10 s for it to come.
    int runPostedWhenItComes() {
        const auto deadline = std::chrono::steady_clock::now() + 10s;
        while (std::chrono::steady_clock::now() < deadline) {
            if (const int ran = h.scheduler->runPosted(); ran > 0) {
                return ran;
            }
            std::this_thread::sleep_for(1ms);
        }
        return 0;
    }

    CycleHarness h;
    std::shared_ptr<ReadProbe> probe;
};

TEST_F(MonitorLifetimeTest,
       ReadRunsOnABackgroundThreadAtLowPriorityAndReturnsThroughTheMainThread) {
    const int mainNice = currentThreadNice();
    auto monitor =
        std::make_unique<BatteryMonitor>(threadedServices(false), h.toolDirectory(), h.cacheFile());
    h.phone.enqueue(success(h.now(), 58, "USB"));
    monitor->refreshPhone();

    ASSERT_EQ(runPostedWhenItComes(), 1);
    EXPECT_EQ(monitor->phone()->percentage(), 58);
    EXPECT_EQ(monitor->phoneStatus(), "Connected by USB \u00b7 unplug to test Wi-Fi");
    EXPECT_FALSE(monitor->isRefreshingPhone());
    ASSERT_EQ(probe->threads.size(), 1u);
    EXPECT_NE(probe->threads[0], std::this_thread::get_id());
    EXPECT_EQ(probe->niceValues[0], std::max(mainNice, ThreadWorker::kBackgroundNice));
    // The main thread's own priority is untouched.
    EXPECT_EQ(currentThreadNice(), mainNice);
    monitor.reset();
    EXPECT_TRUE(probe->waitFor([this] { return probe->isReleased; }));
}

TEST_F(MonitorLifetimeTest, TransientFailureIsRetriedOnTheSameThreadHalfASecondLater) {
    auto monitor =
        std::make_unique<BatteryMonitor>(threadedServices(false), h.toolDirectory(), h.cacheFile());
    h.phone.enqueue(failure(PhoneSetupState::notFound, "busy", true));
    h.phone.enqueue(success(h.now(), 61));
    monitor->refreshPhone();

    // The one outcome posted is the retry's: both reads ran within the one job, before it
    // posted anything, and no timer of the monitor (simulated time never moves here) was needed.
    ASSERT_EQ(runPostedWhenItComes(), 1);
    EXPECT_EQ(monitor->phoneSetupState(), PhoneSetupState::ready);
    EXPECT_EQ(monitor->phone()->percentage(), 61);
    ASSERT_EQ(probe->startTimes.size(), 2u);
    EXPECT_GE(probe->startTimes[1] - probe->startTimes[0], 500ms);
    EXPECT_EQ(probe->threads[0], probe->threads[1]);
    monitor.reset();
    EXPECT_TRUE(probe->waitFor([this] { return probe->isReleased; }));
}

TEST_F(MonitorLifetimeTest, MonitorDestroyedWhileAReadRunsDropsTheOutcome) {
    auto monitor =
        std::make_unique<BatteryMonitor>(threadedServices(true), h.toolDirectory(), h.cacheFile());
    int notifications = 0;
    monitor->addObserver([&notifications](MonitorProperty, ChangePhase) { ++notifications; });
    // A transient failure would call for a retry; with the monitor gone there is none.
    h.phone.enqueue(failure(PhoneSetupState::notFound, "busy", true));
    monitor->refreshPhone();
    ASSERT_TRUE(probe->waitFor([this] { return probe->started == 1; }));
    const int notificationsBefore = notifications;

    monitor.reset();
    probe->open();
    // The worker lets go of its job once the read returns.
    ASSERT_TRUE(probe->waitFor([this] { return probe->isReleased; }));

    EXPECT_EQ(probe->started, 1);
    EXPECT_EQ(probe->finished, 1);
    EXPECT_EQ(h.scheduler->runPosted(), 0);
    EXPECT_EQ(notifications, notificationsBefore);
    EXPECT_FALSE(std::filesystem::exists(h.cacheFile()));
    h.scheduler->advance(3600);
    EXPECT_EQ(probe->started, 1);
}

TEST_F(MonitorLifetimeTest, MonitorDestroyedAfterTheOutcomeWasPostedDropsIt) {
    auto monitor =
        std::make_unique<BatteryMonitor>(threadedServices(false), h.toolDirectory(), h.cacheFile());
    h.phone.enqueue(success(h.now(), 70));
    monitor->refreshPhone();
    ASSERT_TRUE(probe->waitFor([this] { return probe->finished == 1; }));
    monitor.reset();
    ASSERT_TRUE(probe->waitFor([this] { return probe->isReleased; }));
    // The outcome may or may not have been posted before the monitor went; either way it
    // changes nothing.
    h.scheduler->runPosted();
    EXPECT_FALSE(std::filesystem::exists(h.cacheFile()));
    EXPECT_EQ(h.scheduler->validTimerCount(), 0);
}

// The process must be able to end while a read is still blocked in the tools: nothing joins the
// worker thread.
void exitWhileAReadIsInFlight(MonitorServices services, const std::filesystem::path& tools,
                              const std::filesystem::path& cache,
                              const std::shared_ptr<ReadProbe>& probe, bool keepMonitor) {
    auto monitor = std::make_unique<BatteryMonitor>(std::move(services), tools, cache);
    monitor->refreshPhone();
    if (!probe->waitFor([&probe] { return probe->started == 1; })) {
        std::_Exit(3);
    }
    if (!keepMonitor) {
        monitor.reset();
    }
    std::exit(0);
}

// In the child the gate is never opened, so the read never ends: an exit that waited for it
// would never come.
TEST_F(MonitorLifetimeTest, ProcessEndsPromptlyWhileAReadIsInFlight) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    for (const bool keepMonitor : {true, false}) {
        EXPECT_EXIT(exitWhileAReadIsInFlight(threadedServices(true), h.toolDirectory(),
                                             h.cacheFile(), probe, keepMonitor),
                    ::testing::ExitedWithCode(0), "")
            << (keepMonitor ? "monitor kept" : "monitor destroyed");
    }
}

} // namespace
} // namespace ambrel::testing::phonecycle
