// The phone's battery health read the program's way (PhoneHealthReader, the real
// idevicediagnostics) from the simulated iPhone's diagnostics relay, over USB and Wi-Fi, and
// what the program makes of the relay's faults.
#include <filesystem>
#include <memory>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "phone/PhoneHealthReader.h"
#include "platform/linux/SpawnProcessLauncher.h"
#include "tests/fakes/ChildProcess.h"
#include "tests/fakes/TemporaryFolder.h"
#include "tests/simphone/Scenario.h"
#include "tests/simphone/SimulatedIphone.h"

namespace ambrel::testing {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;

// The folder of the real tools the build found.
const std::filesystem::path kTools = std::filesystem::path(TOVRIN_REAL_IDEVICEINFO).parent_path();

class PhoneHealthTest : public ::testing::Test {
protected:
    void startPhone(const json& device) {
        m_phone =
            std::make_unique<SimulatedIphone>(m_folder.path(), withDevices(json::array({device})));
        ASSERT_TRUE(m_phone->isReady()) << m_phone->failure();
        m_launcher = std::make_shared<SpawnProcessLauncher>(
            environmentWith({{"USBMUXD_SOCKET_ADDRESS", m_phone->socketAddress()}}));
    }

    std::optional<BatteryHealth>
    read(PhoneLink link, std::chrono::milliseconds limit = PhoneHealthReader::kTimeLimit) {
        return PhoneHealthReader::read(kTools, kUdid, link, *m_launcher, limit);
    }

    json deviceStats() const { return m_phone->stats()["devices"][kSerial]; }

    TemporaryFolder m_folder;
    std::unique_ptr<SimulatedIphone> m_phone;
    std::shared_ptr<SpawnProcessLauncher> m_launcher;
};

TEST_F(PhoneHealthTest, TheRealToolReadsTheBatteryEntryOverUsbAndWifi) {
    ASSERT_TRUE(std::filesystem::exists(kTools / PhoneHealthReader::kTool)) << kTools;
    startPhone(phone("both", kWifiOn));
    const BatteryHealth expected{87, 412, 30.5};
    EXPECT_EQ(read(PhoneLink::usb), expected);
    EXPECT_EQ(read(PhoneLink::wifi), expected);
    const auto stats = deviceStats();
    EXPECT_EQ(stats["diagnosticsConnections"], 2);
    EXPECT_EQ(stats["diagnosticsRequests"]["IORegistry"], 2);
    EXPECT_EQ(stats["requests"]["StartService"], 2);
}

TEST_F(PhoneHealthTest, AnOlderGaugeGivesItsRawMaximumAndWhatItLacksIsLeftOut) {
    startPhone(phone("usb", {{"batteryEntry",
                              {{"AppleRawMaxCapacity", 1450},
                               {"BatteryData", {{"DesignCapacity", 1810}}},
                               {"CycleCount", 0}}}}));
    EXPECT_EQ(read(PhoneLink::usb), (BatteryHealth{80, std::nullopt, std::nullopt}));
}

TEST_F(PhoneHealthTest, ALockedPhoneARefusedOrSilentRelayGiveNothing) {
    startPhone(phone("usb", {{"fault", "locked"}}));
    EXPECT_FALSE(read(PhoneLink::usb));
    EXPECT_EQ(deviceStats()["diagnosticsConnections"], 0);
    m_phone->stop();

    startPhone(phone("usb", {{"diagnostics", "unavailable"}}));
    EXPECT_FALSE(read(PhoneLink::usb));
    // The tool asks for the relay, then for the older iOS's name of it.
    EXPECT_EQ(deviceStats()["requests"]["StartService"], 2);
    EXPECT_EQ(deviceStats()["diagnosticsConnections"], 0);
    m_phone->stop();

    // The relay takes the request and never answers: the tool is stopped at the time limit.
    startPhone(phone("usb", {{"diagnostics", "silent"}}));
    EXPECT_FALSE(read(PhoneLink::usb, 2000ms));
    EXPECT_EQ(deviceStats()["diagnosticsRequests"]["IORegistry"], 1);
}

} // namespace
} // namespace ambrel::testing
