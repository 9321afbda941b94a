// The real idevice_id and ideviceinfo through the program's muxer, with the simulated iPhone as
// the system muxer: every answer must be the one the tools get straight from the simulated
// phone, so that putting the muxer in between changes nothing for a phone on USB.
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "muxer/MuxerServer.h"
#include "tests/fakes/ChildProcess.h"
#include "tests/fakes/TemporaryFolder.h"
#include "tests/simphone/Scenario.h"
#include "tests/simphone/SimulatedIphone.h"

namespace ambrel::testing {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;

using Commands = std::vector<std::vector<std::string>>;

// Every command a phone read uses, and the listing forms.
const Commands kReadCommands = {
    {TOVRIN_REAL_IDEVICE_ID},
    {TOVRIN_REAL_IDEVICE_ID, "-l"},
    {TOVRIN_REAL_IDEVICE_ID, "-n"},
    {TOVRIN_REAL_IDEVICE_ID, kUdid},
    {TOVRIN_REAL_IDEVICEINFO, "-u", kUdid, "-q", "com.apple.mobile.battery", "-x"},
    {TOVRIN_REAL_IDEVICEINFO, "-n", "-u", kUdid, "-q", "com.apple.mobile.battery", "-x"},
    {TOVRIN_REAL_IDEVICEINFO, "-u", kUdid, "-k", "DeviceName"},
    {TOVRIN_REAL_IDEVICEINFO, "-n", "-u", kUdid, "-k", "ProductType"},
};

std::string describe(const std::vector<std::string>& command) {
    std::string text;
    for (const auto& argument : command) {
        text += (text.empty() ? "" : " ") +
                argument.substr(argument.find_last_of('/') == std::string::npos
                                    ? 0
                                    : argument.find_last_of('/') + 1);
    }
    return text;
}

class MuxerPassThroughTest : public ::testing::Test {
protected:
    // Runs `commands` against a fresh simulated phone of `scenario`, straight or through a
    // muxer of ours that takes the simulated phone as its system muxer.
    std::vector<ProcessOutcome> runAll(const json& scenario, const Commands& commands,
                                       bool throughMuxer) {
        TemporaryFolder folder;
        SimulatedIphone simulated(folder.path(), scenario);
        if (!simulated.isReady()) {
            ADD_FAILURE() << simulated.failure();
            return {};
        }
        std::unique_ptr<MuxerServer> muxer;
        std::string address = simulated.socketAddress();
        if (throughMuxer) {
            MuxerServer::Options options;
            options.socketPath = folder.path() / "muxer.sock";
            options.systemMuxerPath = simulated.socketPath().string();
            muxer = std::make_unique<MuxerServer>(options);
            if (!muxer->start()) {
                ADD_FAILURE() << muxer->failure();
                return {};
            }
            address = "UNIX:" + options.socketPath.string();
        }
        std::vector<ProcessOutcome> outcomes;
        for (const auto& command : commands) {
            outcomes.push_back(
                runProcess(command, environmentWith({{"USBMUXD_SOCKET_ADDRESS", address}}), 30s));
        }
        return outcomes;
    }

    // The outcomes through the muxer, after checking them against the straight ones.
    std::vector<ProcessOutcome> expectSameThroughMuxer(const json& scenario,
                                                       const Commands& commands = kReadCommands) {
        const auto straight = runAll(scenario, commands, false);
        const auto through = runAll(scenario, commands, true);
        if (straight.size() != commands.size() || through.size() != commands.size()) {
            ADD_FAILURE() << "not every command ran";
            return {};
        }
        for (std::size_t i = 0; i < commands.size(); ++i) {
            SCOPED_TRACE(describe(commands[i]));
            EXPECT_TRUE(through[i].started);
            EXPECT_FALSE(through[i].timedOut);
            EXPECT_EQ(through[i].exitCode, straight[i].exitCode);
            EXPECT_EQ(through[i].signal, straight[i].signal);
            EXPECT_EQ(through[i].out, straight[i].out);
            EXPECT_EQ(through[i].err, straight[i].err);
        }
        return through;
    }
};

TEST_F(MuxerPassThroughTest, PhoneOnUsbAndWiFi) {
    const auto through = expectSameThroughMuxer(withDevices(json::array({phone("both", kWifiOn)})));
    ASSERT_EQ(through.size(), kReadCommands.size());
    EXPECT_EQ(through[0].out, kUdid + " (USB)\n" + kUdid + " (Network)\n");
    for (const std::size_t battery : {4, 5}) {
        EXPECT_EQ(through[battery].exitCode, 0);
        EXPECT_NE(through[battery].out.find("<key>BatteryCurrentCapacity</key>"),
                  std::string::npos);
    }
    EXPECT_EQ(through[6].out, "Sim iPhone\n");
}

TEST_F(MuxerPassThroughTest, PhoneOnUsbOnly) {
    expectSameThroughMuxer(withDevices(json::array({phone("usb")})));
}

TEST_F(MuxerPassThroughTest, PhoneOnWiFiOnly) {
    expectSameThroughMuxer(withDevices(json::array({phone("network", kWifiOn)})));
}

TEST_F(MuxerPassThroughTest, PhoneWithWifiConnectionsOff) {
    const auto through = expectSameThroughMuxer(withDevices(json::array({phone("both")})));
    ASSERT_EQ(through.size(), kReadCommands.size());
    EXPECT_EQ(through[4].exitCode, 0);
    EXPECT_EQ(through[5].err, "ERROR: Could not connect to lockdownd: Mux error (-8)\n");
}

TEST_F(MuxerPassThroughTest, NoDevices) {
    expectSameThroughMuxer(withDevices(json::array()));
}

TEST_F(MuxerPassThroughTest, LockedPhone) {
    expectSameThroughMuxer(withDevices(
        json::array({phone("both", {{"fault", "locked"}, {"wifiConnections", true}})})));
}

TEST_F(MuxerPassThroughTest, PhoneThatForgotThisHost) {
    expectSameThroughMuxer(
        withDevices(json::array({phone("usb", {{"fault", "invalid_host_id"}})})));
}

TEST_F(MuxerPassThroughTest, PairingThroughTheMuxerSavesTheRecord) {
    const Commands pairing = {{TOVRIN_REAL_IDEVICEINFO, "-u", kUdid, "-k", "DeviceName"},
                              {TOVRIN_REAL_IDEVICEINFO, "-u", kUdid, "-k", "DeviceName"}};
    expectSameThroughMuxer(
        withDevices(json::array({phone("usb", {{"fault", "missing_pair_record"}})})), pairing);
}

TEST_F(MuxerPassThroughTest, TrustDialogPending) {
    const Commands battery = {
        {TOVRIN_REAL_IDEVICEINFO, "-u", kUdid, "-q", "com.apple.mobile.battery", "-x"}};
    expectSameThroughMuxer(withDevices(json::array({phone("usb", {{"fault", "dialog_pending"}})})),
                           battery);
}

TEST_F(MuxerPassThroughTest, PairRecordWithoutHostId) {
    expectSameThroughMuxer(
        withDevices(json::array({phone("usb", {{"fault", "pair_record_without_host_id"}})})));
}

TEST_F(MuxerPassThroughTest, ConnectRefused) {
    expectSameThroughMuxer(
        withDevices(json::array({phone("usb", {{"fault", "connect_refused"}})})));
}

TEST_F(MuxerPassThroughTest, ConnectionDroppedAtTheFirstRequest) {
    expectSameThroughMuxer(
        withDevices(json::array({phone("both", {{"fault", "drop"}, {"wifiConnections", true}})})));
}

TEST_F(MuxerPassThroughTest, WiFiAddressWhereNothingListens) {
    expectSameThroughMuxer(
        withDevices(json::array({phone("network", {{"fault", "unreachable"}})})));
}

TEST_F(MuxerPassThroughTest, ASystemMuxerThatRefusesListDevicesIsListenedTo) {
    expectSameThroughMuxer(
        json{{"usbmuxd", "no_listdevices"}, {"devices", json::array({phone("usb")})}});
}

// Where the system muxer itself fails, the muxer answers for it: no system muxer (Debian's
// runs only while a phone is plugged in), one that never answers or one that hangs up all mean
// no USB devices rather than a failed listing. The one that never answers holds the request
// for as long as it is asked, so a listing there comes back only because the muxer gave up at
// its own limit, within the wait of the tool.
TEST_F(MuxerPassThroughTest, AFailingSystemMuxerMeansNoUsbDevices) {
    for (const std::string mode : {"absent", "hang", "close"}) {
        SCOPED_TRACE(mode);
        const auto outcomes =
            runAll(json{{"usbmuxd", mode}, {"devices", json::array({phone("usb")})}},
                   {{TOVRIN_REAL_IDEVICE_ID, "-l"},
                    {TOVRIN_REAL_IDEVICEINFO, "-u", kUdid, "-k", "DeviceName"}},
                   true);
        ASSERT_EQ(outcomes.size(), 2u);
        EXPECT_FALSE(outcomes[0].timedOut);
        EXPECT_EQ(outcomes[0].exitCode, 0);
        EXPECT_EQ(outcomes[0].out, "");
        EXPECT_EQ(outcomes[0].err, "");
        EXPECT_EQ(outcomes[1].exitCode, 255);
        EXPECT_EQ(outcomes[1].out, "ERROR: Device " + kUdid + " not found!\n");
    }
}

} // namespace
} // namespace ambrel::testing
