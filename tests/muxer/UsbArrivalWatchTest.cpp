#include "muxer/UsbArrivalWatch.h"

#include <chrono>

#include <gtest/gtest.h>

#include "tests/fakes/TemporaryFolder.h"
#include "tests/fakes/ThreadActivity.h"
#include "tests/muxer/FakeSystemMuxer.h"
#include "tests/muxer/RecordingArrivals.h"

namespace ambrel::testing {
namespace {

using namespace std::chrono_literals;

TEST(UsbArrivalWatchTest, PhonesPluggedInAtTheUsersMuxerAreToldAndTheWatchEndsWithIt) {
    TemporaryFolder folder;
    FakeSystemMuxer users(folder.path() / "usbmuxd");
    RecordingArrivals arrivals;
    auto watch = UsbArrivalWatch::start("UNIX:" + users.socketPath().string(), arrivals);
    ASSERT_NE(watch, nullptr);
    users.addUsbDevice(7, "00008110001A2B3C4D5E6F70");
    ASSERT_TRUE(arrivals.waitFor(1, 60s));
    EXPECT_EQ(arrivals.arrivals(), std::vector<std::string>{"usb 00008110-001A2B3C4D5E6F70"});
    EXPECT_EQ(users.requestsOf("Listen"), 1);

    watch.reset();
    EXPECT_TRUE(ThreadActivity::threadsNamed("usb-watch").empty());
}

TEST(UsbArrivalWatchTest, OnlyAUnixSocketIsWatched) {
    RecordingArrivals arrivals;
    EXPECT_EQ(UsbArrivalWatch::start("127.0.0.1:27015", arrivals), nullptr);
    EXPECT_EQ(UsbArrivalWatch::start("UNIX:", arrivals), nullptr);
    EXPECT_EQ(UsbArrivalWatch::start("", arrivals), nullptr);
}

} // namespace
} // namespace ambrel::testing
