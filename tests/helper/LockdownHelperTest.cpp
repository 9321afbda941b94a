// The real tovrin-lockdown, on the real libimobiledevice, against the simulated iPhone: reading
// and turning the phone's Wi-Fi connections on and off, and every way that can fail.
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "phone/LockdownHelperProtocol.h"
#include "tests/fakes/ChildProcess.h"
#include "tests/fakes/JsonLine.h"
#include "tests/fakes/TemporaryFolder.h"
#include "tests/simphone/Scenario.h"
#include "tests/simphone/SimulatedIphone.h"

namespace ambrel::testing {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
namespace protocol = LockdownHelperProtocol;

class LockdownHelperTest : public ::testing::Test {
protected:
    void startPhone(const json& device) {
        ASSERT_FALSE(m_folder.path().empty());
        m_phone =
            std::make_unique<SimulatedIphone>(m_folder.path(), withDevices(json::array({device})));
        ASSERT_TRUE(m_phone->isReady()) << m_phone->failure();
    }

    std::string socketAddress() const {
        return m_phone ? m_phone->socketAddress()
                       : "UNIX:" + (m_folder.path() / "nobody.sock").string();
    }

    ProcessOutcome run(const std::string& program, std::vector<std::string> arguments) const {
        arguments.insert(arguments.begin(), program);
        return runProcess(arguments, environmentWith({{"USBMUXD_SOCKET_ADDRESS", socketAddress()}}),
                          20s);
    }

    // Runs the helper and reads its one line of JSON; the exit code goes to `exitCode`.
    json helper(const std::vector<std::string>& arguments, int& exitCode) const {
        return singleJsonLine(run(TOVRIN_LOCKDOWN_HELPER, arguments), exitCode);
    }

    // Turning the Wi-Fi connections on fails with `error` and exit code `exitCode`.
    void expectTurningOnFails(const std::string& error, int exitCode) const {
        int code = -1;
        EXPECT_EQ(helper({"wifi", kUdid, "on"}, code)["error"], error);
        EXPECT_EQ(code, exitCode);
    }

    json setValueRequests() const { return m_phone->stats()["devices"][kSerial]["setValue"]; }

    TemporaryFolder m_folder;
    std::unique_ptr<SimulatedIphone> m_phone;
};

TEST_F(LockdownHelperTest, ReadsWifiConnectionsOff) {
    startPhone(phone("usb"));
    int code = -1;
    const auto line = helper({"wifi", kUdid}, code);
    EXPECT_EQ(code, protocol::kExitOk);
    EXPECT_EQ(line, (json{{"udid", kUdid}, {"wifiConnections", false}}));
    EXPECT_TRUE(setValueRequests().empty());
}

TEST_F(LockdownHelperTest, ReadsWifiConnectionsOnWhenThePhoneStartsWithThemOn) {
    startPhone(phone("usb", {{"wifiConnections", true}}));
    int code = -1;
    EXPECT_EQ(helper({"wifi", kUdid}, code)["wifiConnections"], true);
    EXPECT_EQ(code, protocol::kExitOk);
}

TEST_F(LockdownHelperTest, TurnsWifiConnectionsOnAndOffAndThePhoneKeepsIt) {
    startPhone(phone("usb"));
    int code = -1;
    EXPECT_EQ(helper({"wifi", kUdid, "on"}, code)["wifiConnections"], true);
    EXPECT_EQ(code, protocol::kExitOk);
    EXPECT_EQ(helper({"wifi", kUdid}, code)["wifiConnections"], true);
    EXPECT_EQ(helper({"wifi", kUdid, "off"}, code)["wifiConnections"], false);
    EXPECT_EQ(code, protocol::kExitOk);
    EXPECT_EQ(helper({"wifi", kUdid}, code)["wifiConnections"], false);
    EXPECT_EQ(setValueRequests()["com.apple.mobile.wireless_lockdown/EnableWifiConnections"], 2);
}

TEST_F(LockdownHelperTest, APhoneThatDoesNotTrustThisComputerIsNotTrusted) {
    startPhone(phone("usb", {{"fault", "invalid_host_id"}}));
    int code = -1;
    const auto line = helper({"wifi", kUdid, "on"}, code);
    EXPECT_EQ(code, protocol::kExitNotTrusted);
    EXPECT_EQ(line, (json{{"udid", kUdid}, {"error", "InvalidHostID"}}));
    EXPECT_TRUE(setValueRequests().empty());
}

TEST_F(LockdownHelperTest, NoPairRecordIsNotTrustedAndStartsNoPairing) {
    startPhone(phone("usb", {{"fault", "missing_pair_record"}}));
    expectTurningOnFails("MissingPairRecord", protocol::kExitNotTrusted);
    const auto requests = m_phone->stats()["devices"][kSerial]["requests"];
    EXPECT_FALSE(requests.contains("Pair"));
    EXPECT_TRUE(m_phone->stats()["pairRecordsSaved"].empty());
}

TEST_F(LockdownHelperTest, ALockedPhoneIsPassedThroughByName) {
    startPhone(phone("usb", {{"fault", "locked"}}));
    expectTurningOnFails("PasswordProtected", protocol::kExitLockdownError);
}

TEST_F(LockdownHelperTest, ARefusedChangeIsPassedThroughByName) {
    startPhone(phone("usb", {{"wifiSetReply", "MCProtected"}}));
    int code = -1;
    EXPECT_EQ(helper({"wifi", kUdid, "on"}, code),
              (json{{"udid", kUdid}, {"error", "MCProtected"}}));
    EXPECT_EQ(code, protocol::kExitLockdownError);
    EXPECT_EQ(helper({"wifi", kUdid}, code)["wifiConnections"], false);
}

TEST_F(LockdownHelperTest, APhoneOnlyOnWifiCannotBeChangedOverUsb) {
    startPhone(phone("network"));
    expectTurningOnFails("NoDevice", protocol::kExitNoDevice);
}

TEST_F(LockdownHelperTest, NoMuxerIsMuxerUnavailable) {
    expectTurningOnFails("MuxerUnavailable", protocol::kExitMuxerUnavailable);
    int code = -1;
    EXPECT_EQ(helper({"list"}, code), (json{{"error", "MuxerUnavailable"}}));
    EXPECT_EQ(code, protocol::kExitMuxerUnavailable);
}

TEST_F(LockdownHelperTest, ListsThePhonesWithTheirConnections) {
    startPhone(phone("usb", {{"connection", "both"}}));
    int code = -1;
    const auto line = helper({"list"}, code);
    EXPECT_EQ(code, protocol::kExitOk);
    EXPECT_EQ(line, (json{{"devices",
                           {{{"udid", kUdid}, {"connection", "usb"}},
                            {{"udid", kUdid}, {"connection", "network"}}}}}));
}

TEST_F(LockdownHelperTest, InfoTellsNameModelVersionTrustAndTheWifiSetting) {
    startPhone(phone("usb", {{"DeviceName", "Ada’s iPhone"},
                             {"ProductType", "iPhone15,3"},
                             {"ProductVersion", "18.1"}}));
    int code = -1;
    const auto line = helper({"info", kUdid}, code);
    EXPECT_EQ(code, protocol::kExitOk);
    EXPECT_EQ(line, (json{{"udid", kUdid},
                          {"connection", "usb"},
                          {"name", "Ada’s iPhone"},
                          {"model", "iPhone15,3"},
                          {"osVersion", "18.1"},
                          {"wifiAddress", "f0:99:bf:10:20:30"},
                          {"trusted", true},
                          {"wifiConnections", false}}));
}

TEST_F(LockdownHelperTest, InfoOfAnUntrustedPhoneSaysWhy) {
    startPhone(phone("usb", {{"fault", "missing_pair_record"}}));
    int code = -1;
    const auto line = helper({"info", kUdid}, code);
    EXPECT_EQ(code, protocol::kExitOk);
    EXPECT_EQ(line["trusted"], false);
    EXPECT_EQ(line["trustError"], "MissingPairRecord");
    EXPECT_TRUE(line["wifiConnections"].is_null());
    // The version is read before any session, as the model is.
    EXPECT_EQ(line["model"], "iPhone14,2");
    EXPECT_EQ(line["osVersion"], "17.5.1");
}

TEST_F(LockdownHelperTest, InfoOfAPhoneThatGivesNoVersionHasAnEmptyOne) {
    startPhone(phone("usb", {{"values", {{"ProductVersion", nullptr}}}}));
    int code = -1;
    const auto line = helper({"info", kUdid}, code);
    EXPECT_EQ(code, protocol::kExitOk);
    EXPECT_EQ(line["osVersion"], "");
    EXPECT_EQ(line["model"], "iPhone14,2");
    EXPECT_EQ(line["trusted"], true);
    EXPECT_EQ(line["wifiConnections"], false);
}

TEST_F(LockdownHelperTest, InfoOverTheNetworkReachesTheWifiPhoneDirectly) {
    startPhone(phone("usb", {{"connection", "network"}, {"wifiConnections", true}}));
    int code = -1;
    const auto line = helper({"info", kUdid, "--network"}, code);
    EXPECT_EQ(code, protocol::kExitOk);
    EXPECT_EQ(line["connection"], "network");
    EXPECT_EQ(line["osVersion"], "17.5.1");
    EXPECT_EQ(m_phone->stats()["devices"][kSerial]["networkConnections"], 1);
}

TEST_F(LockdownHelperTest, PairingWithIdevicepairMakesThePhoneTrustThisComputer) {
    startPhone(phone("usb", {{"fault", "missing_pair_record"}}));
    const auto paired = run(TOVRIN_REAL_IDEVICEPAIR, {"-u", kUdid, "pair"});
    EXPECT_EQ(paired.exitCode, 0) << paired.out << paired.err;
    EXPECT_EQ(paired.out, "SUCCESS: Paired with device " + kUdid + "\n");
    int code = -1;
    EXPECT_EQ(helper({"wifi", kUdid, "on"}, code)["wifiConnections"], true);
    EXPECT_EQ(code, protocol::kExitOk);
}

TEST_F(LockdownHelperTest, ADeniedPairingLeavesThePhoneUntrusted) {
    startPhone(phone("usb", {{"fault", "user_denied"}}));
    const auto paired = run(TOVRIN_REAL_IDEVICEPAIR, {"-u", kUdid, "pair"});
    EXPECT_NE(paired.exitCode, 0);
    int code = -1;
    EXPECT_EQ(helper({"wifi", kUdid}, code)["error"], "MissingPairRecord");
    EXPECT_EQ(code, protocol::kExitNotTrusted);
}

// A lockdown connection to the first device of the simulated iPhone, spoken by hand: a usbmuxd
// Connect to port 62078, then length-prefixed property lists. No session is started.
class RawLockdown {
public:
    explicit RawLockdown(const std::string& socketPath) {
        m_fd = ::socket(AF_UNIX, SOCK_STREAM, 0);
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        std::strncpy(address.sun_path, socketPath.c_str(), sizeof(address.sun_path) - 1);
        if (::connect(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof(address)) != 0) {
            return;
        }
        // The port goes byte-swapped, as libusbmuxd sends it: 62078 is 0xF27E.
        const std::string connect = plist("<key>MessageType</key><string>Connect</string>"
                                          "<key>DeviceID</key><integer>1</integer>"
                                          "<key>PortNumber</key><integer>32498</integer>");
        std::string message(16, '\0');
        const std::uint32_t header[4] = {static_cast<std::uint32_t>(16 + connect.size()), 1, 8, 1};
        std::memcpy(message.data(), header, sizeof(header));
        message += connect;
        if (!sendAll(message)) {
            return;
        }
        std::string reply = readExactly(16);
        if (reply.size() != 16) {
            return;
        }
        std::uint32_t length = 0;
        std::memcpy(&length, reply.data(), sizeof(length));
        m_connected = readExactly(length - 16).find("<integer>0</integer>") != std::string::npos;
    }
    ~RawLockdown() {
        if (m_fd >= 0) {
            ::close(m_fd);
        }
    }

    bool isConnected() const { return m_connected; }

    // Sends one request (the dictionary's inside) and returns the reply's XML.
    std::string ask(const std::string& entries) {
        const std::string body = plist(entries);
        const std::uint32_t size = static_cast<std::uint32_t>(body.size());
        const char prefix[4] = {static_cast<char>(size >> 24), static_cast<char>(size >> 16),
                                static_cast<char>(size >> 8), static_cast<char>(size)};
        if (!sendAll(std::string(prefix, 4) + body)) {
            return {};
        }
        const std::string length = readExactly(4);
        if (length.size() != 4) {
            return {};
        }
        const auto byte = [&length](int i) { return static_cast<unsigned char>(length[i]); };
        return readExactly((std::size_t{byte(0)} << 24) | (std::size_t{byte(1)} << 16) |
                           (std::size_t{byte(2)} << 8) | byte(3));
    }

private:
    static std::string plist(const std::string& entries) {
        return "<?xml version=\"1.0\" encoding=\"UTF-8\"?><plist version=\"1.0\"><dict>" + entries +
               "</dict></plist>";
    }
    bool sendAll(const std::string& bytes) const {
        std::size_t sent = 0;
        while (sent < bytes.size()) {
            const ssize_t count =
                ::send(m_fd, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
            if (count <= 0) {
                return false;
            }
            sent += static_cast<std::size_t>(count);
        }
        return true;
    }
    std::string readExactly(std::size_t count) const {
        std::string bytes;
        char buffer[4096];
        while (bytes.size() < count) {
            const ssize_t got =
                ::recv(m_fd, buffer, std::min(sizeof(buffer), count - bytes.size()), 0);
            if (got <= 0) {
                break;
            }
            bytes.append(buffer, static_cast<std::size_t>(got));
        }
        return bytes;
    }

    int m_fd = -1;
    bool m_connected = false;
};

TEST_F(LockdownHelperTest, ThePhoneRefusesTheWifiSettingOutsideASession) {
    startPhone(phone("usb"));
    RawLockdown lockdown(m_phone->socketPath().string());
    ASSERT_TRUE(lockdown.isConnected());
    const std::string wifi = "<key>Domain</key><string>com.apple.mobile.wireless_lockdown</string>"
                             "<key>Key</key><string>EnableWifiConnections</string>";
    const auto set = lockdown.ask("<key>Request</key><string>SetValue</string>" + wifi +
                                  "<key>Value</key><true/>");
    EXPECT_NE(set.find("<key>Error</key>"), std::string::npos) << set;
    EXPECT_NE(set.find("<string>SetProhibited</string>"), std::string::npos) << set;
    const auto get = lockdown.ask("<key>Request</key><string>GetValue</string>" + wifi);
    EXPECT_NE(get.find("<string>GetProhibited</string>"), std::string::npos) << get;
    int code = -1;
    EXPECT_EQ(helper({"wifi", kUdid}, code)["wifiConnections"], false);
    EXPECT_EQ(setValueRequests()["com.apple.mobile.wireless_lockdown/EnableWifiConnections"], 1);
}

TEST_F(LockdownHelperTest, WrongArgumentsPrintUsageAndExitOne) {
    for (const auto& arguments : std::vector<std::vector<std::string>>{
             {}, {"wifi"}, {"wifi", kUdid, "maybe"}, {"info", kUdid, "--usb"}, {"pair", kUdid}}) {
        const auto outcome = run(TOVRIN_LOCKDOWN_HELPER, arguments);
        EXPECT_EQ(outcome.exitCode, protocol::kExitUsage);
        EXPECT_TRUE(outcome.out.empty());
        EXPECT_NE(outcome.err.find("Usage: tovrin-lockdown"), std::string::npos);
    }
}

} // namespace
} // namespace ambrel::testing
