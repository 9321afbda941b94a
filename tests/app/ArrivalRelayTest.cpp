// The muxer's news of phones that appear reaches the main thread once the widget listens, and
// not before or after.

#include "app/ArrivalRelay.h"

#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tests/fakes/SimulatedScheduler.h"

namespace ambrel {
namespace {

class ArrivalRelayTest : public ::testing::Test {
protected:
    void listen() {
        relay.connect(scheduler, [this](const PhoneArrival& arrival) {
            EXPECT_EQ(std::this_thread::get_id(), mainThread);
            told.push_back(arrival);
        });
    }

    std::shared_ptr<testing::SimulatedScheduler> scheduler =
        std::make_shared<testing::SimulatedScheduler>();
    ArrivalRelay relay;
    std::vector<PhoneArrival> told;
    std::thread::id mainThread = std::this_thread::get_id();
};

TEST_F(ArrivalRelayTest, NewsFromTheMuxersThreadsIsToldOnTheMainThread) {
    listen();
    std::thread([this] {
        relay.phoneAppeared("00008110-001A2B3C4D5E6F70", false);
        relay.phoneAppeared("aa:bb:cc:dd:ee:01@fe80::1", true);
    }).join();
    EXPECT_TRUE(told.empty()) << "told before the main thread ran its posted tasks";
    scheduler->runPosted();
    ASSERT_EQ(told.size(), 2u);
    EXPECT_EQ(told[0].phone, "00008110-001A2B3C4D5E6F70");
    EXPECT_EQ(told[0].path, PhoneArrival::Path::usb);
    EXPECT_EQ(told[1].phone, "aa:bb:cc:dd:ee:01@fe80::1");
    EXPECT_EQ(told[1].path, PhoneArrival::Path::wifi);
}

TEST_F(ArrivalRelayTest, NewsBeforeTheWidgetListensIsDropped) {
    relay.phoneAppeared("00008110-001A2B3C4D5E6F70", false);
    listen();
    scheduler->runPosted();
    EXPECT_TRUE(told.empty());
}

TEST_F(ArrivalRelayTest, NewsPostedBeforeTheWidgetStoppedListeningIsNotTold) {
    listen();
    relay.phoneAppeared("00008110-001A2B3C4D5E6F70", false);
    relay.disconnect();
    relay.phoneAppeared("00008110-001A2B3C4D5E6F70", false);
    scheduler->runPosted();
    EXPECT_TRUE(told.empty());
}

} // namespace
} // namespace ambrel
