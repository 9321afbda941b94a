#include "monitor/BatteryMonitor.h"

#include <memory>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "tests/fakes/FakeMonitorServices.h"

namespace ambrel {
namespace {

using testing::FakeBundle;
using testing::FakeFolders;
using testing::FakeHostInfo;
using testing::FakePowerSourceProvider;
using testing::ManualWorker;
using testing::SimulatedScheduler;

PowerSourceDescription internalBattery(std::int64_t percent, const char* state = "Battery Power") {
    return {{"Current Capacity", percent},
            {"Max Capacity", std::int64_t{100}},
            {"Power Source State", std::string(state)}};
}

// A monitor over fakes; phone reads are counted and never finish unless the test runs the worker.
class MonitorMacTest : public ::testing::Test, protected testing::FakeMonitorServices {
protected:
    MonitorMacTest() {
        folders->support = std::filesystem::path("/nonexistent-support");
        power->sources = PowerSourceList{internalBattery(64)};
    }

    MonitorServices services() {
        return FakeMonitorServices::services(
            [this](const std::filesystem::path&, const std::optional<std::string>&,
                   const std::optional<PhoneIdentity>&) -> PhoneReadResult {
                ++m_phoneReads;
                return unexpected(PhoneIssue{PhoneSetupState::notFound, "no phone", false});
            });
    }

    std::unique_ptr<BatteryMonitor>
    makeMonitor(std::optional<std::filesystem::path> tools = std::nullopt,
                std::optional<std::filesystem::path> cache =
                    std::filesystem::path("/nonexistent/cache.json")) {
        return std::make_unique<BatteryMonitor>(services(), std::move(tools), std::move(cache));
    }
    // This computer's battery was read `reads` times, and one phone read waits on the worker.
    void expectMacReadsWithAPhoneReadWaiting(int reads) const {
        EXPECT_EQ(power->calls, reads);
        EXPECT_EQ(worker->pendingJobs(), 1u);
    }
    std::unique_ptr<BatteryMonitor> startedMonitor() {
        auto monitor = makeMonitor();
        monitor->start();
        return monitor;
    }

    int m_phoneReads = 0;
};

TEST_F(MonitorMacTest, InitialPublishedState) {
    const auto monitor = makeMonitor();
    EXPECT_FALSE(monitor->mac());
    EXPECT_FALSE(monitor->phone());
    EXPECT_FALSE(monitor->isRefreshingPhone());
    EXPECT_EQ(monitor->phoneStatus(), "Checking for your iPhone\u2026");
    EXPECT_EQ(monitor->macStatus(), "Checking Mac battery\u2026");
    EXPECT_FALSE(monitor->lastPhoneAttempt());
    EXPECT_FALSE(monitor->nextPhoneCheck());
    EXPECT_EQ(monitor->phoneSetupState(), PhoneSetupState::checking);
    // Construction reads nothing and starts nothing.
    EXPECT_EQ(power->calls, 0);
    EXPECT_EQ(scheduler->validTimerCount(), 0);
    EXPECT_EQ(worker->pendingJobs(), 0u);
}

TEST_F(MonitorMacTest, DefaultToolFolderIsInTheResources) {
    EXPECT_EQ(makeMonitor()->toolDirectory(),
              std::filesystem::path("/opt/tovrin/share/tovrin/Runtime/bin/"));
    bundle->resources.reset();
    EXPECT_EQ(makeMonitor()->toolDirectory(),
              std::filesystem::path("/opt/tovrin/bin/Runtime/bin/"));
    EXPECT_EQ(makeMonitor(std::filesystem::path("/tools"))->toolDirectory(),
              std::filesystem::path("/tools"));
}

TEST_F(MonitorMacTest, DefaultCacheFileIsInApplicationSupport) {
    folders->support = std::filesystem::path("/home/anna/.local/share");
    EXPECT_EQ(makeMonitor(std::nullopt, std::nullopt)->cacheURL(),
              std::filesystem::path("/home/anna/.local/share/Ambrel/battery-cache.json"));
}

TEST_F(MonitorMacTest, WithoutApplicationSupportTheCacheLivesInTheTemporaryFolder) {
    folders->support.reset();
    folders->temp = "/var/tmp/anna";
    EXPECT_EQ(makeMonitor(std::nullopt, std::nullopt)->cacheURL(),
              std::filesystem::path("/var/tmp/anna/Ambrel/battery-cache.json"));
}

TEST_F(MonitorMacTest, StartTwiceReadsOnceAndMakesOneTimer) {
    const auto monitor = startedMonitor();
    monitor->start();
    expectMacReadsWithAPhoneReadWaiting(1);
    EXPECT_EQ(scheduler->validTimerCount(), 1);
    EXPECT_EQ(scheduler->scheduledIntervals(), std::vector<double>{60.0});
    ASSERT_TRUE(monitor->mac());
    EXPECT_EQ(monitor->mac()->percentage(), 64);
    EXPECT_EQ(monitor->macStatus(), "On battery");
}

TEST_F(MonitorMacTest, MacTimerFiresEverySixtySeconds) {
    const auto monitor = startedMonitor();
    scheduler->advance(59.9);
    EXPECT_EQ(power->calls, 1);
    scheduler->advance(0.1);
    EXPECT_EQ(power->calls, 2);
    power->sources = PowerSourceList{internalBattery(63, "AC Power")};
    scheduler->advance(60.0);
    EXPECT_EQ(power->calls, 3);
    EXPECT_EQ(monitor->mac()->percentage(), 63);
    EXPECT_EQ(monitor->macStatus(), "Connected to power");
    EXPECT_EQ(monitor->mac()->lastUpdated(), scheduler->now());
    scheduler->advance(600.0);
    EXPECT_EQ(power->calls, 13);
}

TEST_F(MonitorMacTest, RefreshAllBeforeStartReadsWithoutTimers) {
    const auto monitor = makeMonitor();
    monitor->refreshAll();
    expectMacReadsWithAPhoneReadWaiting(1);
    EXPECT_EQ(scheduler->validTimerCount(), 0);
    monitor->refresh();
    EXPECT_EQ(power->calls, 2);
}

TEST_F(MonitorMacTest, RefreshAllDuringAPhoneReadReadsOnlyTheMacAgain) {
    const auto monitor = startedMonitor();
    monitor->refreshAll();
    expectMacReadsWithAPhoneReadWaiting(2);
    EXPECT_TRUE(monitor->isRefreshingPhone());
}

TEST_F(MonitorMacTest, FailedReadKeepsThePreviousSnapshot) {
    const auto monitor = makeMonitor();
    monitor->refreshMac();
    ASSERT_TRUE(monitor->mac());
    const Date firstReading = monitor->mac()->lastUpdated();
    scheduler->advance(200);

    power->sources = PowerSourceList{};
    monitor->refreshMac();
    EXPECT_EQ(monitor->macStatus(), "No built-in battery found");
    ASSERT_TRUE(monitor->mac());
    EXPECT_EQ(monitor->mac()->lastUpdated(), firstReading);
    EXPECT_TRUE(monitor->mac()->isStale(scheduler->now()));

    power->sources.reset();
    monitor->refreshMac();
    EXPECT_EQ(monitor->macStatus(), "Mac battery is unavailable");
    EXPECT_EQ(monitor->mac()->percentage(), 64);
}

TEST_F(MonitorMacTest, DesktopWithoutBatteryNeverGetsASnapshot) {
    power->sources = PowerSourceList{};
    const auto monitor = startedMonitor();
    scheduler->advance(120);
    EXPECT_FALSE(monitor->mac());
    EXPECT_EQ(monitor->macStatus(), "No built-in battery found");
}

TEST_F(MonitorMacTest, SnapshotIsPublishedBeforeTheStatus) {
    const auto monitor = makeMonitor();
    std::vector<std::pair<MonitorProperty, ChangePhase>> changes;
    bool snapshotSeenWithStatus = false;
    monitor->addObserver([&](MonitorProperty property, ChangePhase phase) {
        changes.emplace_back(property, phase);
        if (property == MonitorProperty::macStatus && phase == ChangePhase::didChange) {
            snapshotSeenWithStatus = monitor->mac().has_value();
        }
    });
    monitor->refreshMac();
    const std::vector<std::pair<MonitorProperty, ChangePhase>> expected = {
        {MonitorProperty::mac, ChangePhase::willChange},
        {MonitorProperty::mac, ChangePhase::didChange},
        {MonitorProperty::macStatus, ChangePhase::willChange},
        {MonitorProperty::macStatus, ChangePhase::didChange},
    };
    EXPECT_EQ(changes, expected);
    EXPECT_TRUE(snapshotSeenWithStatus);
}

TEST_F(MonitorMacTest, FailureChangesOnlyTheStatus) {
    const auto monitor = makeMonitor();
    monitor->refreshMac();
    std::vector<MonitorProperty> changed;
    monitor->addObserver([&](MonitorProperty property, ChangePhase phase) {
        if (phase == ChangePhase::didChange) {
            changed.push_back(property);
        }
    });
    power->sources.reset();
    monitor->refreshMac();
    EXPECT_EQ(changed, std::vector<MonitorProperty>{MonitorProperty::macStatus});
}

TEST_F(MonitorMacTest, ObserversCanBeRemovedEvenWhileBeingTold) {
    const auto monitor = makeMonitor();
    int first = 0;
    int second = 0;
    BatteryMonitor::ObserverId firstId = 0;
    firstId = monitor->addObserver([&](MonitorProperty, ChangePhase) {
        ++first;
        monitor->removeObserver(firstId);
    });
    const auto secondId = monitor->addObserver([&](MonitorProperty, ChangePhase) { ++second; });
    monitor->refreshMac();
    EXPECT_EQ(first, 1);
    EXPECT_EQ(second, 4);
    monitor->removeObserver(secondId);
    monitor->refreshMac();
    EXPECT_EQ(second, 4);
}

TEST_F(MonitorMacTest, TimerDoesNothingOnceTheMonitorIsGone) {
    auto monitor = makeMonitor();
    monitor->start();
    monitor.reset();
    scheduler->advance(180);
    EXPECT_EQ(power->calls, 1);
}

} // namespace
} // namespace ambrel
