// The simulated iPhone answers lockdown over Wi-Fi only while its Wi-Fi connections are on, and
// follows the setting as tovrin-lockdown changes it over the cable, without a restart.
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/fakes/ChildProcess.h"
#include "tests/fakes/TemporaryFolder.h"
#include "tests/simphone/Scenario.h"
#include "tests/simphone/SimulatedIphone.h"

namespace ambrel::testing {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;

// What ideviceinfo prints when nothing answers on the phone's Wi-Fi address.
const std::string kNotListening = "ERROR: Could not connect to lockdownd: Mux error (-8)\n";

class SimulatedIphoneWifiConnections : public ::testing::Test {
protected:
    void startPhone(const json& extra = json::object()) {
        ASSERT_FALSE(m_folder.path().empty());
        m_phone = std::make_unique<SimulatedIphone>(
            m_folder.path(), withDevices(json::array({phone("both", extra)})));
        ASSERT_TRUE(m_phone->isReady()) << m_phone->failure();
    }

    ProcessOutcome run(const std::string& program, std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), program);
        return runProcess(arguments,
                          environmentWith({{"USBMUXD_SOCKET_ADDRESS", m_phone->socketAddress()}}),
                          20s);
    }

    ProcessOutcome batteryOverWifi() const {
        return run(TOVRIN_REAL_IDEVICEINFO, {"-n", "-u", kUdid, "-q", "com.apple.mobile.battery",
                                             "-k", "BatteryCurrentCapacity"});
    }

    // Turns the setting on or off over the cable, as the program does.
    void switchWifi(const std::string& state) const {
        const auto outcome = run(TOVRIN_LOCKDOWN_HELPER, {"wifi", kUdid, state});
        ASSERT_EQ(outcome.exitCode, 0) << outcome.out << outcome.err;
        const auto line = json::parse(outcome.out, nullptr, false);
        ASSERT_EQ(line, (json{{"udid", kUdid}, {"wifiConnections", state == "on"}}));
    }

    static void expectRead(const ProcessOutcome& outcome) {
        ASSERT_TRUE(outcome.started);
        EXPECT_FALSE(outcome.timedOut);
        EXPECT_EQ(outcome.exitCode, 0);
        EXPECT_EQ(outcome.out, "87\n");
        EXPECT_EQ(outcome.err, "");
    }

    // The tool could not connect at all; the callers check that the phone saw no connection,
    // so none was taken and left unanswered.
    static void expectRefused(const ProcessOutcome& outcome) {
        ASSERT_TRUE(outcome.started);
        EXPECT_FALSE(outcome.timedOut);
        EXPECT_EQ(outcome.exitCode, 255);
        EXPECT_EQ(outcome.out, "");
        EXPECT_EQ(outcome.err, kNotListening);
    }

    json deviceStats() const { return m_phone->stats()["devices"][kSerial]; }

    TemporaryFolder m_folder;
    std::unique_ptr<SimulatedIphone> m_phone;
};

TEST_F(SimulatedIphoneWifiConnections, AWiFiReadIsRefusedWhileTheyAreOff) {
    startPhone();
    {
        SCOPED_TRACE("Wi-Fi");
        expectRefused(batteryOverWifi());
    }
    EXPECT_EQ(deviceStats()["networkConnections"], 0);
    EXPECT_EQ(deviceStats()["wifiConnections"], false);
    // The cable still works, and the phone is still listed on the network.
    const auto usb = run(TOVRIN_REAL_IDEVICEINFO, {"-u", kUdid, "-q", "com.apple.mobile.battery",
                                                   "-k", "BatteryCurrentCapacity"});
    SCOPED_TRACE("USB");
    expectRead(usb);
    const auto listed = run(TOVRIN_REAL_IDEVICE_ID, {"-n"});
    EXPECT_EQ(listed.out, kUdid + "\n");
}

TEST_F(SimulatedIphoneWifiConnections, TurnedOnOverTheCableTheSameReadSucceedsAndOffItFailsAgain) {
    startPhone();
    {
        SCOPED_TRACE("before");
        expectRefused(batteryOverWifi());
    }
    switchWifi("on");
    {
        SCOPED_TRACE("turned on");
        expectRead(batteryOverWifi());
    }
    EXPECT_EQ(deviceStats()["networkConnections"], 1);
    switchWifi("off");
    {
        SCOPED_TRACE("turned off");
        expectRefused(batteryOverWifi());
    }
    EXPECT_EQ(deviceStats()["networkConnections"], 1);
    // The same address answers once more when it is turned on again.
    switchWifi("on");
    {
        SCOPED_TRACE("on again");
        expectRead(batteryOverWifi());
    }
    EXPECT_EQ(deviceStats()["networkConnections"], 2);
    EXPECT_EQ(deviceStats()["setValue"]["com.apple.mobile.wireless_lockdown/EnableWifiConnections"],
              3);
}

TEST_F(SimulatedIphoneWifiConnections, APhoneStartingWithThemOnAnswersUntilTheyAreTurnedOff) {
    startPhone({{"wifiConnections", true}});
    {
        SCOPED_TRACE("on from the start");
        expectRead(batteryOverWifi());
    }
    switchWifi("off");
    SCOPED_TRACE("turned off");
    expectRefused(batteryOverWifi());
    EXPECT_EQ(deviceStats()["networkConnections"], 1);
}

TEST_F(SimulatedIphoneWifiConnections, AnUnreachableAddressStaysUnreachableWhenTurnedOn) {
    startPhone({{"fault", "unreachable"}});
    switchWifi("on");
    expectRefused(batteryOverWifi());
    EXPECT_EQ(deviceStats()["networkConnections"], 0);
}

} // namespace
} // namespace ambrel::testing
