// The state file a running widget shares with "tovrin --bar".

#include "monitor/BarStatePublisher.h"

#include <gtest/gtest.h>

#include "monitor/BarState.h"
#include "tests/monitor/PhoneCycleHarness.h"

namespace ambrel::testing::phonecycle {
namespace {

class BarStatePublisherTest : public ::testing::Test {
protected:
    void SetUp() override {
        monitor = h.makeMonitor();
        publisher = std::make_unique<BarStatePublisher>(*monitor, *h.scheduler, file());
    }

    std::filesystem::path file() const { return h.folder.path() / "run" / "state.json"; }

    BarState shared() {
        h.scheduler->runPosted();
        const auto state = BarStateFile::loadFromRunningWidget(file());
        EXPECT_TRUE(state);
        return state.value_or(BarState());
    }

    CycleHarness h;
    std::unique_ptr<BatteryMonitor> monitor;
    std::unique_ptr<BarStatePublisher> publisher;
};

TEST_F(BarStatePublisherTest, ACheckInProgressKeepsTheLastChecksOutcome) {
    h.phone.enqueue(success(h.now(), 54));
    monitor->refreshPhone();
    h.finishReads();
    h.phone.enqueue(failure(PhoneSetupState::notFound, "not found", false));
    monitor->refreshPhone();
    h.finishReads();
    ASSERT_EQ(shared().phoneSetupState, PhoneSetupState::notFound);

    // The monitor says "checking" while the next check runs; the bar still knows the phone
    // was not reached, so its reading stays marked.
    h.phone.enqueue(success(h.now(), 55));
    monitor->refreshPhone();
    ASSERT_EQ(monitor->phoneSetupState(), PhoneSetupState::checking);
    const auto during = shared();
    EXPECT_TRUE(during.isRefreshingPhone);
    EXPECT_EQ(during.phoneSetupState, PhoneSetupState::notFound);

    h.finishReads();
    const auto after = shared();
    EXPECT_FALSE(after.isRefreshingPhone);
    EXPECT_EQ(after.phoneSetupState, PhoneSetupState::ready);
    ASSERT_TRUE(after.phone);
    EXPECT_EQ(after.phone->percentage(), 55);
}

TEST_F(BarStatePublisherTest, BeforeAnyCheckHasEndedTheStateIsChecking) {
    monitor->refreshPhone();
    const auto state = shared();
    EXPECT_TRUE(state.isRefreshingPhone);
    EXPECT_EQ(state.phoneSetupState, PhoneSetupState::checking);
}

TEST_F(BarStatePublisherTest, TheFileGoesWithThePublisher) {
    shared();
    ASSERT_TRUE(std::filesystem::exists(file()));
    publisher.reset();
    EXPECT_FALSE(std::filesystem::exists(file()));
}

} // namespace
} // namespace ambrel::testing::phonecycle
