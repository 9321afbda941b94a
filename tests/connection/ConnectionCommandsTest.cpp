// The program's "--enable-wifi" and "--diagnose" switches, run as a user runs them, against the
// simulated iPhone as the system's usbmuxd. There is no system bus here, so avahi-daemon never
// answers: the network checks are exercised in the Wi-Fi end-to-end test.
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/fakes/ChildProcess.h"
#include "tests/fakes/JsonLine.h"
#include "tests/fakes/TemporaryFolder.h"
#include "tests/simphone/Scenario.h"
#include "tests/simphone/SimulatedIphone.h"

namespace ambrel::testing {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using nlohmann::json;

const std::string kProgram = std::string(TOVRIN_BINARY_DIR) + "/bin/tovrin";

class ConnectionCommandsTest : public ::testing::Test {
protected:
    void startPhone(const json& devices) {
        ASSERT_FALSE(m_folder.path().empty());
        m_phone = std::make_unique<SimulatedIphone>(m_folder.path(), withDevices(devices));
        ASSERT_TRUE(m_phone->isReady()) << m_phone->failure();
    }

    ProcessOutcome tovrin(std::vector<std::string> arguments,
                          const std::string& program = kProgram) const {
        arguments.insert(arguments.begin(), program);
        const std::string socket =
            m_phone ? m_phone->socketAddress() : "UNIX:" + (m_folder.path() / "none.sock").string();
        return runProcess(arguments,
                          environmentWith({{"USBMUXD_SOCKET_ADDRESS", socket},
                                           {"XDG_DATA_HOME", (m_folder.path() / "data").string()},
                                           {"DBUS_SYSTEM_BUS_ADDRESS",
                                            "unix:path=" + (m_folder.path() / "no-bus").string()}}),
                          60s);
    }

    // The one JSON line of a run; the exit code goes to `exitCode`.
    json jsonOf(const std::vector<std::string>& arguments, int& exitCode,
                const std::string& program = kProgram) const {
        return singleJsonLine(tovrin(arguments, program), exitCode);
    }

    // Runs "--enable-wifi" with one phone on USB with `settings`: it exits 1 with `error` and
    // `message`. Its line.
    json enableWifiFailing(const json& settings, const std::string& error,
                           const std::string& message) {
        startPhone(json::array({phone("usb", settings)}));
        int code = -1;
        const auto line = jsonOf({"--enable-wifi"}, code);
        EXPECT_EQ(code, 1);
        EXPECT_EQ(line["error"], error);
        EXPECT_EQ(line["message"], message);
        return line;
    }

    // The --diagnose line with the simulated phone serving `devices`.
    json diagnosisWith(const json& devices) {
        startPhone(devices);
        int code = -1;
        return jsonOf({"--diagnose"}, code);
    }

    // The statuses of a --diagnose line, in order.
    static std::vector<std::string> statuses(const json& line) {
        std::vector<std::string> list;
        for (const auto& check : line["checks"]) {
            list.push_back(check["status"]);
        }
        return list;
    }

    bool phoneWifiOn() const {
        // Read back through the phone's own answer, not the program's.
        const auto outcome = runProcess(
            {std::string(TOVRIN_BINARY_DIR) + "/share/tovrin/Runtime/bin/tovrin-lockdown", "wifi",
             kUdid},
            environmentWith({{"USBMUXD_SOCKET_ADDRESS", m_phone->socketAddress()}}), 20s);
        return json::parse(outcome.out, nullptr, false).value("wifiConnections", false);
    }

    TemporaryFolder m_folder;
    std::unique_ptr<SimulatedIphone> m_phone;
};

TEST_F(ConnectionCommandsTest, EnableWifiTurnsThemOnForThePhoneOnUsb) {
    startPhone(json::array({phone("usb")}));
    int code = -1;
    EXPECT_EQ(jsonOf({"--enable-wifi"}, code), (json{{"udid", kUdid}, {"wifiConnections", true}}));
    EXPECT_EQ(code, 0);
    EXPECT_TRUE(phoneWifiOn());
}

TEST_F(ConnectionCommandsTest, EnableWifiTakesTheUdidItIsGiven) {
    startPhone(json::array({phone("usb", {{"udid", "00008110001A2B3C4D5E6F99"}}), phone("usb")}));
    int code = -1;
    EXPECT_EQ(jsonOf({"--enable-wifi", kUdid}, code),
              (json{{"udid", kUdid}, {"wifiConnections", true}}));
    EXPECT_EQ(code, 0);
    EXPECT_TRUE(phoneWifiOn());
    const auto setValues = m_phone->stats()["devices"]["00008110001A2B3C4D5E6F99"]["setValue"];
    EXPECT_TRUE(setValues.empty());
}

TEST_F(ConnectionCommandsTest, EnableWifiTakesTheUdidWithoutItsDashOrInSmallLetters) {
    startPhone(json::array({phone("usb")}));
    int code = -1;
    EXPECT_EQ(jsonOf({"--enable-wifi", "00008110001a2b3c4d5e6f70"}, code),
              (json{{"udid", kUdid}, {"wifiConnections", true}}));
    EXPECT_EQ(code, 0);
    EXPECT_TRUE(phoneWifiOn());
}

TEST_F(ConnectionCommandsTest, EnableWifiForAPhoneThisComputerNeverPairedWithAsksNothing) {
    startPhone(json::array({phone("usb")}));
    const std::string stranger = "00008110-00AABBCCDDEEFF00";
    int code = -1;
    EXPECT_EQ(jsonOf({"--enable-wifi", stranger}, code),
              (json{{"error", "NotPaired"},
                    {"message", "This computer is not paired with that iPhone. Plug it in, unlock "
                                "it and choose Trust (or run idevicepair pair), then try again."},
                    {"udid", stranger},
                    {"wifiConnections", false}}));
    EXPECT_EQ(code, 1);
    // No phone was reached: the paired one beside it had no connection at all, and only the
    // system's muxer was asked (for the pair record).
    const auto stats = m_phone->stats();
    ASSERT_TRUE(stats["devices"].contains(kSerial)) << stats.dump();
    EXPECT_EQ(stats["devices"][kSerial]["connections"], 0) << stats.dump();
    EXPECT_EQ(stats["devices"].size(), 1u) << stats.dump();
    EXPECT_FALSE(stats["usbmuxd"]["requests"].contains("Connect")) << stats.dump();
    EXPECT_TRUE(stats["usbmuxd"]["requests"].contains("ReadPairRecord")) << stats.dump();
    EXPECT_FALSE(phoneWifiOn());
}

TEST_F(ConnectionCommandsTest, EnableWifiWhenAlreadyOnStaysOnAndSucceeds) {
    startPhone(json::array({phone("usb", {{"wifiConnections", true}})}));
    int code = -1;
    EXPECT_EQ(jsonOf({"--enable-wifi"}, code)["wifiConnections"], true);
    EXPECT_EQ(code, 0);
}

TEST_F(ConnectionCommandsTest, EnableWifiWithoutAPhoneOnUsbFails) {
    startPhone(json::array({phone("network")}));
    int code = -1;
    EXPECT_EQ(jsonOf({"--enable-wifi"}, code),
              (json{{"error", "NoDevice"},
                    {"message", "Connect your iPhone with a USB cable and check again."},
                    {"wifiConnections", false}}));
    EXPECT_EQ(code, 1);
}

TEST_F(ConnectionCommandsTest, EnableWifiOnAnUntrustingPhoneSaysHowToTrust) {
    const auto line = enableWifiFailing({{"fault", "invalid_host_id"}}, "InvalidHostID",
                                        "Run idevicepair pair (or click Trust in the connection "
                                        "window), then unlock your iPhone and choose Trust.");
    EXPECT_EQ(line["udid"], kUdid);
    EXPECT_FALSE(phoneWifiOn());
}

TEST_F(ConnectionCommandsTest, EnableWifiRefusedByThePhoneFails) {
    enableWifiFailing({{"wifiSetReply", "MCProtected"}}, "MCProtected",
                      "Unlock your iPhone and check again (it answered MCProtected).");
}

TEST_F(ConnectionCommandsTest, EnableWifiWithoutAMuxerFails) {
    int code = -1;
    EXPECT_EQ(jsonOf({"--enable-wifi"}, code)["error"], "MuxerUnavailable");
    EXPECT_EQ(code, 1);
}

TEST_F(ConnectionCommandsTest, DiagnoseNamesWifiConnectionsOffAndNoAvahi) {
    startPhone(json::array({phone("usb")}));
    int code = -1;
    const auto line = jsonOf({"--diagnose"}, code);
    // Read over USB: a working setup, whatever Wi-Fi lacks.
    EXPECT_EQ(code, 0);
    EXPECT_EQ(line["ok"], false);
    EXPECT_EQ(line["readableOver"], json::array({"usb"}));
    EXPECT_EQ(line["summary"].get<std::string>().rfind(
                  "Your iPhone can be read over USB. To read it over Wi-Fi as well: Run tovrin "
                  "--enable-wifi",
                  0),
              0u)
        << line["summary"];
    EXPECT_EQ(statuses(line),
              (std::vector<std::string>{"passed", "passed", "passed", "passed", "failed", "failed",
                                        "skipped", "skipped", "skipped", "skipped"}));
    EXPECT_EQ(line["checks"][4]["name"], "wifiConnections");
    EXPECT_EQ(line["checks"][5]["name"], "avahiDaemon");
}

TEST_F(ConnectionCommandsTest, DiagnoseAfterEnableWifiPassesTheUsbChecks) {
    startPhone(json::array({phone("usb")}));
    int code = -1;
    EXPECT_EQ(jsonOf({"--enable-wifi"}, code)["wifiConnections"], true);
    const auto line = jsonOf({"--diagnose"}, code);
    EXPECT_EQ(statuses(line),
              (std::vector<std::string>{"passed", "passed", "passed", "passed", "passed", "failed",
                                        "skipped", "skipped", "skipped", "skipped"}));
}

TEST_F(ConnectionCommandsTest, DiagnoseNamesASilentSystemMuxer) {
    int code = -1;
    const auto line = jsonOf({"--diagnose"}, code);
    EXPECT_EQ(code, 1);
    EXPECT_EQ(line["checks"][1]["status"], "failed");
    EXPECT_EQ(line["readableOver"], json::array());
    EXPECT_EQ(line["checks"][2]["status"], "skipped");
    EXPECT_EQ(line["checks"][3]["status"], "skipped");
}

TEST_F(ConnectionCommandsTest, DiagnoseNamesNoPhoneOnUsb) {
    const auto line = diagnosisWith(json::array());
    EXPECT_EQ(statuses(line),
              (std::vector<std::string>{"passed", "passed", "failed", "skipped", "skipped",
                                        "failed", "skipped", "skipped", "skipped", "skipped"}));
}

TEST_F(ConnectionCommandsTest, DiagnoseNamesAnUntrustedComputer) {
    const auto line =
        diagnosisWith(json::array({phone("usb", {{"fault", "missing_pair_record"}})}));
    EXPECT_EQ(line["checks"][3]["status"], "failed");
    EXPECT_EQ(line["checks"][4]["status"], "skipped");
    // Checking trust never starts a pairing behind the user's back.
    EXPECT_FALSE(m_phone->stats()["devices"][kSerial]["requests"].contains("Pair"));
}

TEST_F(ConnectionCommandsTest, DiagnoseNamesALockedPhone) {
    const auto line = diagnosisWith(json::array({phone("usb", {{"fault", "locked"}})}));
    EXPECT_EQ(line["checks"][3]["status"], "failed");
    EXPECT_EQ(line["checks"][3]["message"], "Unlock your iPhone and check again.");
}

TEST_F(ConnectionCommandsTest, DiagnoseNamesAMissingTool) {
    startPhone(json::array({phone("usb")}));
    // A bundle of its own: the program and every tool but idevicepair.
    const fs::path bundle = m_folder.path() / "bundle";
    fs::create_directories(bundle / "bin");
    fs::create_directories(bundle / "share/tovrin/Runtime/bin");
    fs::copy_file(kProgram, bundle / "bin/tovrin");
    const fs::path tools = fs::path(TOVRIN_BINARY_DIR) / "share/tovrin/Runtime/bin";
    for (const char* tool : {"idevice_id", "ideviceinfo", "tovrin-lockdown"}) {
        fs::create_symlink(fs::canonical(tools / tool), bundle / "share/tovrin/Runtime/bin" / tool);
    }
    int code = -1;
    const auto line = jsonOf({"--diagnose"}, code, (bundle / "bin/tovrin").string());
    EXPECT_EQ(code, 1);
    EXPECT_EQ(line["checks"][0],
              (json{{"name", "tools"},
                    {"status", "failed"},
                    {"message", "Install libimobiledevice-utils (sudo apt-get install "
                                "libimobiledevice-utils), since idevicepair is missing."}}));
    EXPECT_EQ(line["checks"][3]["status"], "skipped");
}

TEST_F(ConnectionCommandsTest, DiagnoseTextIsALinePerCheck) {
    startPhone(json::array({phone("usb")}));
    const auto outcome = tovrin({"--diagnose", "--text"});
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_EQ(std::count(outcome.out.begin(), outcome.out.end(), '\n'), 11);
    EXPECT_EQ(outcome.out.rfind("passed  The phone tools are there: ", 0), 0u) << outcome.out;
    EXPECT_NE(outcome.out.find("\nfailed  Wi-Fi connections are on: Run tovrin --enable-wifi "),
              std::string::npos)
        << outcome.out;
    EXPECT_NE(outcome.out.find("\nYour iPhone can be read over USB. To read it over Wi-Fi as "
                               "well: "),
              std::string::npos)
        << outcome.out;
}

} // namespace
} // namespace ambrel::testing
