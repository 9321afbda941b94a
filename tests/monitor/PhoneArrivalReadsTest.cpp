// A phone that appears is read at once when the card has nothing good to show for it, through
// the monitor's own read, at most once per phone per debounce period.

#include "monitor/PhoneArrivalReads.h"

#include <gtest/gtest.h>

#include "tests/monitor/PhoneCycleHarness.h"

namespace ambrel::testing::phonecycle {
namespace {

const PhoneArrival kPlugged{kUdid, PhoneArrival::Path::usb};
const PhoneArrival kAdvert{kUdid, PhoneArrival::Path::wifi};
constexpr double kDebounce = static_cast<double>(PhoneArrivalReads::kDebounce.count());

class PhoneArrivalReadsTest : public ::testing::Test {
protected:
    void SetUp() override {
        monitor = h.makeMonitor();
        arrivals = std::make_unique<PhoneArrivalReads>(*monitor);
    }

    // One read, started now, ending in `result`.
    void readNow(PhoneReadResult result) {
        h.phone.enqueue(std::move(result));
        monitor->refreshPhone();
        h.finishReads();
    }

    CycleHarness h;
    std::unique_ptr<BatteryMonitor> monitor;
    std::unique_ptr<PhoneArrivalReads> arrivals;
};

TEST_F(PhoneArrivalReadsTest, WithNoReadingAnArrivalReadsLikeAnyRead) {
    h.phone.enqueue(success(h.now(), 57, "USB"));
    EXPECT_TRUE(arrivals->phoneArrived(kPlugged));
    EXPECT_TRUE(monitor->isRefreshingPhone());
    EXPECT_EQ(monitor->phoneSetupState(), PhoneSetupState::checking);
    ASSERT_EQ(h.worker->pendingJobs(), 1u);
    h.finishReads();
    ASSERT_TRUE(monitor->phone());
    EXPECT_EQ(monitor->phone()->percentage(), 57);
    EXPECT_EQ(monitor->phoneStatus(), BatteryMonitor::kUsbStatus);
    // The five-minute check is armed from the end of this read, as after any read.
    EXPECT_EQ(monitor->nextPhoneCheck(), h.now().addingSeconds(300));
}

TEST_F(PhoneArrivalReadsTest, AFreshGoodReadingIsLeftAlone) {
    readNow(success(h.now()));
    EXPECT_FALSE(arrivals->phoneArrived(kAdvert));
    EXPECT_FALSE(arrivals->phoneArrived(kPlugged));
    EXPECT_FALSE(monitor->isRefreshingPhone());
    EXPECT_EQ(h.worker->pendingJobs(), 0u);
    EXPECT_EQ(h.phone.calls().size(), 1u);
}

TEST_F(PhoneArrivalReadsTest, AStaleReadingIsReplaced) {
    // A reading taken 601 s before it arrived is stale (the phone's limit is 600 s).
    readNow(success(h.now().addingSeconds(-601)));
    ASSERT_TRUE(monitor->phone()->isStale(h.now()));
    h.phone.enqueue(success(h.now(), 61));
    EXPECT_TRUE(arrivals->phoneArrived(kAdvert));
    h.finishReads();
    EXPECT_EQ(monitor->phone()->percentage(), 61);
}

TEST_F(PhoneArrivalReadsTest, AReadingExactlyAtTheStaleLimitIsLeftAlone) {
    readNow(success(h.now().addingSeconds(-600)));
    EXPECT_FALSE(arrivals->phoneArrived(kAdvert));
}

TEST_F(PhoneArrivalReadsTest, AFailedCheckIsTriedAgainWhenThePhoneAppears) {
    for (const auto state :
         {PhoneSetupState::notFound, PhoneSetupState::needsPairing, PhoneSetupState::unavailable}) {
        SCOPED_TRACE(std::string(rawValue(state)));
        readNow(success(h.now()));
        readNow(failure(state, "it failed", false));
        ASSERT_EQ(monitor->phoneSetupState(), state);
        h.phone.enqueue(success(h.now(), 66));
        EXPECT_TRUE(arrivals->phoneArrived(
            PhoneArrival{std::string(rawValue(state)), PhoneArrival::Path::usb}));
        h.finishReads();
        EXPECT_EQ(monitor->phoneSetupState(), PhoneSetupState::ready);
    }
}

TEST_F(PhoneArrivalReadsTest, AnArrivalDuringAReadStartsNothing) {
    h.phone.enqueue(failure(PhoneSetupState::notFound, "not yet", false));
    monitor->refreshPhone();
    EXPECT_FALSE(arrivals->phoneArrived(kPlugged));
    EXPECT_EQ(h.worker->pendingJobs(), 1u);
    h.finishReads();
    EXPECT_EQ(h.phone.calls().size(), 1u);
    // That arrival started no read, so it holds back none: the next one reads.
    h.phone.enqueue(success(h.now()));
    EXPECT_TRUE(arrivals->phoneArrived(kPlugged));
    h.finishReads();
    EXPECT_EQ(h.phone.calls().size(), 2u);
}

TEST_F(PhoneArrivalReadsTest, AFlappingAdvertIsReadOncePerDebouncePeriod) {
    readNow(failure(PhoneSetupState::notFound, "asleep", false));
    // Twenty arrivals in ten seconds, every read failing: one read.
    h.phone.enqueue(failure(PhoneSetupState::notFound, "asleep", false));
    int reads = 0;
    for (int arrival = 0; arrival < 20; ++arrival) {
        reads += arrivals->phoneArrived(kAdvert) ? 1 : 0;
        h.finishReads();
        h.scheduler->advance(0.5);
    }
    EXPECT_EQ(reads, 1);
    // Just inside the period from that read's start: still nothing; at its end: a read.
    h.scheduler->advance(kDebounce - 10.0 - 0.1);
    EXPECT_FALSE(arrivals->phoneArrived(kAdvert));
    h.scheduler->advance(0.1);
    h.phone.enqueue(success(h.now()));
    EXPECT_TRUE(arrivals->phoneArrived(kAdvert));
    h.finishReads();
    EXPECT_EQ(h.phone.calls().size(), 3u);
}

TEST_F(PhoneArrivalReadsTest, EachPhoneHasItsOwnDebounce) {
    readNow(failure(PhoneSetupState::notFound, "none", false));
    h.phone.enqueue(failure(PhoneSetupState::notFound, "none", false));
    EXPECT_TRUE(arrivals->phoneArrived(kPlugged));
    h.finishReads();
    h.phone.enqueue(success(h.now()));
    EXPECT_TRUE(arrivals->phoneArrived(PhoneArrival{kOtherUdid, PhoneArrival::Path::wifi}));
    h.finishReads();
    EXPECT_EQ(monitor->phoneSetupState(), PhoneSetupState::ready);
}

TEST_F(PhoneArrivalReadsTest, ArrivalReadsLeaveTheFiveMinuteCycleAsAnyReadDoes) {
    monitor->start();
    h.phone.enqueue(failure(PhoneSetupState::notFound, "none", false));
    h.finishReads();
    const auto due = monitor->nextPhoneCheck();
    ASSERT_TRUE(due);
    h.scheduler->advance(100);
    h.phone.enqueue(success(h.now()));
    EXPECT_TRUE(arrivals->phoneArrived(kPlugged));
    h.finishReads();
    // The check is now due 300 s after this read, not at the old time.
    EXPECT_EQ(monitor->nextPhoneCheck(), h.now().addingSeconds(300));
    h.scheduler->advance(299);
    EXPECT_EQ(h.worker->pendingJobs(), 0u);
    h.scheduler->advance(1);
    EXPECT_EQ(h.worker->pendingJobs(), 1u);
}

} // namespace
} // namespace ambrel::testing::phonecycle
