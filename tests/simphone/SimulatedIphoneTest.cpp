// The real idevice_id and ideviceinfo against the simulated iPhone: every fault the simulator
// offers must make the tools print exactly what they print for that fault on a real system
// (exit status, stream and text), so that the end-to-end tests of the program mean something.
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <future>
#include <string>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

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

const std::vector<std::string> kBattery = {"-q", "com.apple.mobile.battery", "-x"};

const std::string kHealthyBatteryXml = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                                       "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                                       "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                                       "<plist version=\"1.0\">\n"
                                       "<dict>\n"
                                       "\t<key>BatteryCurrentCapacity</key>\n"
                                       "\t<integer>87</integer>\n"
                                       "\t<key>BatteryIsCharging</key>\n"
                                       "\t<false/>\n"
                                       "\t<key>ExternalConnected</key>\n"
                                       "\t<false/>\n"
                                       "</dict>\n"
                                       "</plist>\n";

std::string lockdownError(const std::string& text) {
    return "ERROR: Could not connect to lockdownd: " + text + "\n";
}

struct Reference {
    int exitCode;
    std::string out;
    std::string err;
};

class SimulatedIphoneTest : public ::testing::Test {
protected:
    // Starts the simulator; the test fails at once if it cannot.
    void startPhone(const json& scenario, std::chrono::seconds lifetime = 60s) {
        ASSERT_FALSE(m_folder.path().empty());
        m_phone = std::make_unique<SimulatedIphone>(m_folder.path(), scenario, lifetime);
        ASSERT_TRUE(m_phone->isReady()) << m_phone->failure();
    }

    ProcessOutcome run(const std::string& tool, std::vector<std::string> arguments,
                       std::chrono::duration<double> limit = 20s) const {
        arguments.insert(arguments.begin(), tool);
        return runProcess(arguments, environmentWith({{"USBMUXD_SOCKET_ADDRESS", socketAddress()}}),
                          limit);
    }

    ProcessOutcome ideviceinfo(std::vector<std::string> arguments,
                               std::chrono::duration<double> limit = 20s) const {
        return run(TOVRIN_REAL_IDEVICEINFO, std::move(arguments), limit);
    }

    ProcessOutcome ideviceId(std::vector<std::string> arguments,
                             std::chrono::duration<double> limit = 20s) const {
        return run(TOVRIN_REAL_IDEVICE_ID, std::move(arguments), limit);
    }

    std::string socketAddress() const {
        return m_phone ? m_phone->socketAddress()
                       : "UNIX:" + (m_folder.path() / "usbmuxd.sock").string();
    }

    static std::vector<std::string> concat(std::vector<std::string> first,
                                           const std::vector<std::string>& second) {
        first.insert(first.end(), second.begin(), second.end());
        return first;
    }

    static void expectOutcome(const ProcessOutcome& outcome, const Reference& expected,
                              const std::string& what) {
        SCOPED_TRACE(what);
        ASSERT_TRUE(outcome.started);
        EXPECT_FALSE(outcome.timedOut);
        EXPECT_EQ(outcome.signal, 0);
        EXPECT_EQ(outcome.exitCode, expected.exitCode);
        EXPECT_EQ(outcome.out, expected.out);
        EXPECT_EQ(outcome.err, expected.err);
    }

    // The lockdown requests that reached the device, by name.
    json requestsTo(const std::string& serial) const {
        const auto stats = m_phone->stats();
        return stats["devices"][serial]["requests"];
    }

    TemporaryFolder m_folder;
    std::unique_ptr<SimulatedIphone> m_phone;
};

bool longRunsWanted() {
    const char* wanted = std::getenv("TOVRIN_LONG_E2E");
    return wanted != nullptr && std::string(wanted) == "1";
}

TEST_F(SimulatedIphoneTest, HealthyPhoneAnswersTheBatteryDomainOverUsbAndWiFi) {
    startPhone(withDevices(json::array({phone("both", kWifiOn)})));
    expectOutcome(ideviceinfo(concat({"-u", kUdid}, kBattery)), {0, kHealthyBatteryXml, ""}, "USB");
    expectOutcome(ideviceinfo(concat({"-n", "-u", kUdid}, kBattery)), {0, kHealthyBatteryXml, ""},
                  "Wi-Fi");

    const auto stats = m_phone->stats();
    const auto& device = stats["devices"][kSerial];
    EXPECT_EQ(device["usbConnections"], 1);
    EXPECT_EQ(device["networkConnections"], 1);
    EXPECT_EQ(device["getValue"]["com.apple.mobile.battery"], 2);
    EXPECT_EQ(device["requests"]["StopSession"], 2);
    EXPECT_EQ(stats["usbmuxd"]["requests"]["Connect"], 1);
    // ListDevices answered: no tool had to fall back to listening.
    EXPECT_FALSE(stats["usbmuxd"]["requests"].contains("Listen"));
}

TEST_F(SimulatedIphoneTest, WiFiPhoneListensOnItsOwnLoopbackAddress) {
    startPhone(withDevices(json::array({phone("network", kWifiOn)})));
    const auto address = m_phone->addressOf(kSerial);
    ASSERT_EQ(address.rfind("127.", 0), 0u) << address;
    EXPECT_NE(address, "127.0.0.1");
    expectOutcome(ideviceinfo({"-n", "-u", kUdid, "-k", "ProductType"}), {0, "iPhone14,2\n", ""},
                  "ProductType over Wi-Fi");
    EXPECT_EQ(m_phone->stats()["devices"][kSerial]["networkConnections"], 1);
}

TEST_F(SimulatedIphoneTest, ListsEachTransportOfAPhoneSeparately) {
    startPhone(withDevices(json::array({phone("both")})));
    expectOutcome(ideviceId({}), {0, kUdid + " (USB)\n" + kUdid + " (Network)\n", ""}, "all");
    expectOutcome(ideviceId({"-l"}), {0, kUdid + "\n", ""}, "USB");
    expectOutcome(ideviceId({"-n"}), {0, kUdid + "\n", ""}, "Wi-Fi");
    expectOutcome(ideviceId({kUdid}), {0, "Sim iPhone\n", ""}, "name");
}

TEST_F(SimulatedIphoneTest, TheTrustDialogWaitsForThePersonsAnswer) {
    const auto answer = m_folder.path() / "trust-dialog";
    auto device = phone("usb");
    device.update(
        {{"hostPairRecord", "none"}, {"pairReply", "dialog"}, {"trustDialog", answer.string()}});
    startPhone(withDevices(json::array({device})));
    // ideviceinfo pairs on its own when there is no pair record; the dialog is not answered yet.
    const auto pending = ideviceinfo({"-u", kUdid, "-k", "DeviceName"});
    EXPECT_NE(pending.exitCode, 0);
    EXPECT_EQ(pending.out, "");
    EXPECT_EQ(m_phone->stats()["devices"][kSerial]["trustDialogShown"], 1);
    EXPECT_TRUE(m_phone->stats()["pairRecordsSaved"].empty());

    std::ofstream(answer) << "trust\n";
    expectOutcome(ideviceinfo({"-u", kUdid, "-k", "DeviceName"}), {0, "Sim iPhone\n", ""},
                  "after Trust");
    EXPECT_EQ(m_phone->stats()["devices"][kSerial]["trustDialogShown"], 1);
    EXPECT_EQ(m_phone->stats()["pairRecordsSaved"].size(), 1u);
}

TEST_F(SimulatedIphoneTest, UnpluggingTakesUsbmuxdAwayAndKeepsWiFi) {
    startPhone(withDevices(json::array({phone("both", kWifiOn)})));
    const auto address = m_phone->addressOf(kSerial);
    ASSERT_TRUE(m_phone->unplug());
    EXPECT_FALSE(std::filesystem::exists(m_phone->socketPath()));
    const auto listed = ideviceId({});
    EXPECT_NE(listed.exitCode, 0);
    EXPECT_EQ(listed.out, "");
    // Lockdown over Wi-Fi still takes connections on the phone's own address.
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    ASSERT_GE(fd, 0);
    sockaddr_in target{};
    target.sin_family = AF_INET;
    target.sin_port = htons(62078);
    ASSERT_EQ(::inet_pton(AF_INET, address.c_str(), &target.sin_addr), 1) << address;
    EXPECT_EQ(::connect(fd, reinterpret_cast<const sockaddr*>(&target), sizeof target), 0)
        << std::strerror(errno);
    ::close(fd);
    const auto stats = m_phone->stats();
    EXPECT_EQ(stats.value("unplugged", false), true);
}

TEST_F(SimulatedIphoneTest, BatteryValuesKeepTheirPropertyListTypes) {
    const json battery = {{"BatteryCurrentCapacity", -1},
                          {"BatteryIsCharging", "yes"},
                          {"ExternalConnected", {{"$real", 0.5}}},
                          {"Raw", {{"$data", "AAEC"}}},
                          {"When", {{"$date", "2024-05-01T10:00:00Z"}}}};
    startPhone(withDevices(json::array({phone("usb", {{"battery", battery}})})));
    const auto outcome = ideviceinfo(concat({"-u", kUdid}, kBattery));
    EXPECT_EQ(outcome.exitCode, 0);
    EXPECT_NE(outcome.out.find("<key>BatteryCurrentCapacity</key>\n\t<integer>-1</integer>"),
              std::string::npos)
        << outcome.out;
    EXPECT_NE(outcome.out.find("<key>BatteryIsCharging</key>\n\t<string>yes</string>"),
              std::string::npos);
    EXPECT_NE(outcome.out.find("<key>ExternalConnected</key>\n\t<real>0.5</real>"),
              std::string::npos);
    EXPECT_NE(outcome.out.find("<key>Raw</key>\n\t<data>\n\tAAEC\n\t</data>"), std::string::npos);
    EXPECT_NE(outcome.out.find("<key>When</key>\n\t<date>2024-05-01T10:00:00Z</date>"),
              std::string::npos);
}

TEST_F(SimulatedIphoneTest, NoDevices) {
    startPhone(withDevices(json::array()));
    for (const std::vector<std::string>& list : {std::vector<std::string>{"-l"}, {"-n"}, {}}) {
        expectOutcome(ideviceId(list), {0, "", ""}, "idevice_id list");
    }
    expectOutcome(ideviceinfo(kBattery), {255, "ERROR: No device found!\n", ""}, "no -u");
    expectOutcome(ideviceinfo(concat({"-u", kUdid}, kBattery)),
                  {255, "ERROR: Device " + kUdid + " not found!\n", ""}, "USB");
    expectOutcome(ideviceinfo(concat({"-n", "-u", kUdid}, kBattery)),
                  {255, "ERROR: Device " + kUdid + " not found!\n", ""}, "Wi-Fi");
    expectOutcome(ideviceId({kUdid}),
                  {254, "", "ERROR: No device with UDID " + kUdid + " attached.\n"}, "name");
}

TEST_F(SimulatedIphoneTest, ServiceAbsent) {
    startPhone(json{{"usbmuxd", "absent"}, {"devices", json::array({phone("usb")})}});
    EXPECT_FALSE(std::filesystem::exists(m_phone->socketPath()));
    for (const std::string list : {"-l", "-n"}) {
        expectOutcome(ideviceId({list}), {255, "", "ERROR: Unable to retrieve device list!\n"},
                      "idevice_id " + list);
    }
    expectOutcome(ideviceinfo(kBattery), {255, "ERROR: No device found!\n", ""}, "no -u");
    expectOutcome(ideviceinfo(concat({"-u", kUdid}, kBattery)),
                  {255, "ERROR: Device " + kUdid + " not found!\n", ""}, "USB");
    expectOutcome(ideviceId({kUdid}),
                  {254, "", "ERROR: No device with UDID " + kUdid + " attached.\n"}, "name");
}

TEST_F(SimulatedIphoneTest, ServiceThatClosesEveryConnection) {
    startPhone(json{{"usbmuxd", "close"}, {"devices", json::array({phone("usb")})}});
    expectOutcome(ideviceId({"-l"}), {255, "", "ERROR: Unable to retrieve device list!\n"}, "list");
    expectOutcome(ideviceinfo(concat({"-u", kUdid}, kBattery)),
                  {255, "ERROR: Device " + kUdid + " not found!\n", ""}, "USB");
    EXPECT_GE(m_phone->stats()["usbmuxd"]["connections"].get<int>(), 2);
}

TEST_F(SimulatedIphoneTest, ServiceThatNeverAnswersCostsTenSeconds) {
    startPhone(json{{"usbmuxd", "hang"}, {"devices", json::array({phone("usb")})}});
    // Both tools wait 5 s for ListDevices and 5 s more for the Listen fallback; run them
    // together to pay the wait once. The service holds both requests for as long as it is
    // asked, so the tools end only by giving up on their own, as their errors say.
    auto list = std::async(std::launch::async, [this] { return ideviceId({"-l"}, 60s); });
    auto query = std::async(std::launch::async, [this] {
        return ideviceinfo(concat({"-u", kUdid}, kBattery), 60s);
    });
    const auto listed = list.get();
    const auto queried = query.get();
    expectOutcome(listed, {255, "", "ERROR: Unable to retrieve device list!\n"}, "list");
    expectOutcome(queried, {255, "ERROR: Device " + kUdid + " not found!\n", ""}, "USB");
    for (const auto* outcome : {&listed, &queried}) {
        EXPECT_GT(outcome->elapsed, 9.5s);
    }
    EXPECT_EQ(m_phone->stats()["usbmuxd"]["requests"]["Listen"], 2);
}

TEST_F(SimulatedIphoneTest, FallsBackToListenWhenListDevicesIsRefused) {
    startPhone(json{{"usbmuxd", "no_listdevices"}, {"devices", json::array({phone("usb")})}});
    expectOutcome(ideviceId({"-l"}), {0, kUdid + "\n", ""}, "list");
    expectOutcome(ideviceinfo(concat({"-u", kUdid}, kBattery)), {0, kHealthyBatteryXml, ""}, "USB");
    EXPECT_EQ(m_phone->stats()["usbmuxd"]["requests"]["Listen"], 2);
}

TEST_F(SimulatedIphoneTest, LockedPairedPhone) {
    startPhone(withDevices(
        json::array({phone("both", {{"fault", "locked"}, {"wifiConnections", true}})})));
    expectOutcome(ideviceinfo(concat({"-u", kUdid}, kBattery)),
                  {255, "", lockdownError("Password protected (-17)")}, "USB");
    expectOutcome(ideviceinfo(concat({"-n", "-u", kUdid}, kBattery)),
                  {255, "", lockdownError("Password protected (-17)")}, "Wi-Fi");
    // Without a session the name is still given out.
    expectOutcome(ideviceId({kUdid}), {0, "Sim iPhone\n", ""}, "idevice_id name");
    expectOutcome(ideviceinfo({"-s", "-u", kUdid, "-k", "DeviceName"}), {0, "Sim iPhone\n", ""},
                  "ideviceinfo -s name");
    EXPECT_EQ(requestsTo(kSerial)["StartSession"], 2);
    EXPECT_FALSE(requestsTo(kSerial).contains("Pair"));
}

TEST_F(SimulatedIphoneTest, LockedPhoneNeverPaired) {
    startPhone(withDevices(
        json::array({phone("both", {{"fault", "locked_unpaired"}, {"wifiConnections", true}})})));
    expectOutcome(ideviceinfo(concat({"-u", kUdid}, kBattery)),
                  {255, "", lockdownError("Password protected (-17)")}, "USB");
    expectOutcome(ideviceinfo(concat({"-n", "-u", kUdid}, kBattery)),
                  {255, "", lockdownError("Password protected (-17)")}, "Wi-Fi");
    EXPECT_EQ(requestsTo(kSerial)["Pair"], 2);
    EXPECT_FALSE(requestsTo(kSerial).contains("StartSession"));
}

TEST_F(SimulatedIphoneTest, PhoneThatForgotThisHost) {
    startPhone(withDevices(
        json::array({phone("both", {{"fault", "invalid_host_id"}, {"wifiConnections", true}})})));
    expectOutcome(ideviceinfo(concat({"-u", kUdid}, kBattery)),
                  {255, "", lockdownError("Invalid HostID (-21)")}, "USB");
    expectOutcome(ideviceinfo(concat({"-n", "-u", kUdid}, kBattery)),
                  {255, "", lockdownError("Invalid HostID (-21)")}, "Wi-Fi");
}

TEST_F(SimulatedIphoneTest, TrustDialogPending) {
    startPhone(withDevices(
        json::array({phone("both", {{"fault", "dialog_pending"}, {"wifiConnections", true}})})));
    expectOutcome(ideviceinfo(concat({"-u", kUdid}, kBattery)),
                  {255, "", lockdownError("Pairing dialog response pending (-19)")}, "USB");
    expectOutcome(ideviceinfo(concat({"-n", "-u", kUdid}, kBattery)),
                  {255, "", lockdownError("Pairing dialog response pending (-19)")}, "Wi-Fi");
}

TEST_F(SimulatedIphoneTest, UserDeniedPairing) {
    startPhone(withDevices(
        json::array({phone("both", {{"fault", "user_denied"}, {"wifiConnections", true}})})));
    expectOutcome(ideviceinfo(concat({"-u", kUdid}, kBattery)),
                  {255, "", lockdownError("User denied pairing (-18)")}, "USB");
    expectOutcome(ideviceinfo(concat({"-n", "-u", kUdid}, kBattery)),
                  {255, "", lockdownError("User denied pairing (-18)")}, "Wi-Fi");
    EXPECT_TRUE(m_phone->stats()["pairRecordsSaved"].empty());
}

TEST_F(SimulatedIphoneTest, MissingPairRecordIsMadeWhenThePhoneAcceptsPairing) {
    startPhone(withDevices(json::array({phone("usb", {{"fault", "missing_pair_record"}})})));
    expectOutcome(ideviceinfo({"-u", kUdid, "-k", "DeviceName"}), {0, "Sim iPhone\n", ""},
                  "pairing run");
    EXPECT_EQ(m_phone->stats()["pairRecordsSaved"], json::array({kUdid}));
    // The saved record is used from now on: no second pairing.
    expectOutcome(ideviceinfo({"-u", kUdid, "-k", "DeviceName"}), {0, "Sim iPhone\n", ""},
                  "second run");
    EXPECT_EQ(requestsTo(kSerial)["Pair"], 1);
    EXPECT_EQ(requestsTo(kSerial)["StartSession"], 2);
}

TEST_F(SimulatedIphoneTest, PairRecordWithoutHostId) {
    startPhone(
        withDevices(json::array({phone("usb", {{"fault", "pair_record_without_host_id"}})})));
    expectOutcome(ideviceinfo({"-u", kUdid, "-k", "DeviceName"}),
                  {255, "", lockdownError("Invalid configuration (-2)")}, "USB");
    EXPECT_FALSE(requestsTo(kSerial).contains("StartSession"));
}

TEST_F(SimulatedIphoneTest, ConnectRefusedByTheService) {
    startPhone(withDevices(json::array({phone("usb", {{"fault", "connect_refused"}})})));
    expectOutcome(ideviceinfo(concat({"-u", kUdid}, kBattery)),
                  {255, "", lockdownError("Mux error (-8)")}, "ideviceinfo");
    expectOutcome(ideviceId({kUdid}), {254, "", "ERROR: Connecting to device failed!\n"},
                  "idevice_id");
    EXPECT_EQ(m_phone->connectionsTo(kSerial), 0);
}

TEST_F(SimulatedIphoneTest, ConnectNeverAnsweredCostsFiveSeconds) {
    startPhone(withDevices(json::array({phone("usb", {{"fault", "connect_hang"}})})));
    // The Connect is held unanswered for as long as the tool waits: the tool's error comes
    // from giving up on it by itself.
    const auto outcome = ideviceinfo(concat({"-u", kUdid}, kBattery), 60s);
    expectOutcome(outcome, {255, "", lockdownError("Mux error (-8)")}, "ideviceinfo");
    EXPECT_GT(outcome.elapsed, 4.5s);
}

TEST_F(SimulatedIphoneTest, ConnectionDroppedAtTheFirstRequest) {
    startPhone(
        withDevices(json::array({phone("both", {{"fault", "drop"}, {"wifiConnections", true}})})));
    expectOutcome(ideviceinfo(concat({"-u", kUdid}, kBattery)),
                  {255, "", lockdownError("Mux error (-8)")}, "USB");
    expectOutcome(ideviceinfo(concat({"-n", "-u", kUdid}, kBattery)),
                  {255, "", lockdownError("Mux error (-8)")}, "Wi-Fi");
    EXPECT_EQ(requestsTo(kSerial)["QueryType"], 2);
}

TEST_F(SimulatedIphoneTest, WiFiAddressWhereNothingListens) {
    startPhone(withDevices(json::array({phone("network", {{"fault", "unreachable"}})})));
    EXPECT_EQ(m_phone->addressOf(kSerial).rfind("127.", 0), 0u);
    expectOutcome(ideviceinfo(concat({"-n", "-u", kUdid}, kBattery)),
                  {255, "", lockdownError("Mux error (-8)")}, "Wi-Fi");
    EXPECT_EQ(m_phone->connectionsTo(kSerial), 0);
}

TEST_F(SimulatedIphoneTest, UnknownUdidAndWiFiPhoneAskedWithoutNetworkOption) {
    startPhone(withDevices(json::array({phone("network")})));
    expectOutcome(ideviceinfo({"-u", "X", "-k", "DeviceName"}),
                  {255, "ERROR: Device X not found!\n", ""}, "unknown ideviceinfo");
    expectOutcome(ideviceId({"X"}), {254, "", "ERROR: No device with UDID X attached.\n"},
                  "unknown idevice_id");
    expectOutcome(ideviceinfo({"-u", kUdid, "-k", "DeviceName"}),
                  {255, "ERROR: Device " + kUdid + " not found!\n", ""}, "Wi-Fi without -n");
    EXPECT_EQ(m_phone->connectionsTo(kSerial), 0);
}

TEST_F(SimulatedIphoneTest, MissingOrProhibitedValuesPrintNothingAndSucceed) {
    startPhone(withDevices(json::array({phone("usb")})));
    expectOutcome(ideviceinfo({"-u", kUdid, "-k", "NoSuchKey"}), {0, "", ""}, "missing key");
    expectOutcome(ideviceinfo({"-s", "-u", kUdid, "-q", "com.apple.mobile.battery"}), {0, "", ""},
                  "battery without a session");
    expectOutcome(
        ideviceinfo({"-u", kUdid, "-q", "com.apple.mobile.unknown"}),
        {0, "", "WARNING: Sending query with unknown domain \"com.apple.mobile.unknown\".\n"},
        "unknown domain");
}

TEST_F(SimulatedIphoneTest, TheVersionIsGivenWithoutASession) {
    startPhone(withDevices(json::array({phone("usb")})));
    expectOutcome(ideviceinfo({"-s", "-u", kUdid, "-k", "ProductVersion"}), {0, "17.5.1\n", ""},
                  "version");
    const auto device = m_phone->stats()["devices"][kSerial];
    EXPECT_EQ(device["getValue"]["ProductVersion"], 1);
    EXPECT_FALSE(device["requests"].contains("StartSession"));
}

TEST_F(SimulatedIphoneTest, ANullValueIsAKeyThePhoneDoesNotGive) {
    startPhone(
        withDevices(json::array({phone("usb", {{"values", {{"ProductVersion", nullptr}}}})})));
    expectOutcome(ideviceinfo({"-s", "-u", kUdid, "-k", "ProductVersion"}), {0, "", ""},
                  "no version");
    expectOutcome(ideviceinfo({"-s", "-u", kUdid, "-k", "ProductType"}), {0, "iPhone14,2\n", ""},
                  "the model still");
}

// The lockdown hangs cost the tools 30 to 90 s each; they run only when asked for with
// TOVRIN_LONG_E2E=1 (all four together, about 90 s).
TEST_F(SimulatedIphoneTest, SilentPhoneAndSilentQueryHitTheToolsOwnTimeouts) {
    if (!longRunsWanted()) {
        GTEST_SKIP() << "set TOVRIN_LONG_E2E=1 to run the 90-second lockdown timeouts";
    }
    const std::string silentQuery = "00008110001A2B3C4D5E6F71";
    const std::string silentQueryUdid = "00008110-001A2B3C4D5E6F71";
    startPhone(
        withDevices(json::array(
            {phone("both", {{"fault", "never_answers"}, {"wifiConnections", true}}),
             {{"udid", silentQuery}, {"connection", "usb"}, {"fault", "query_never_answered"}}})),
        150s);
    auto usb = std::async(std::launch::async, [&] {
        return ideviceinfo(concat({"-u", kUdid}, kBattery), 120s);
    });
    auto wifi = std::async(std::launch::async, [&] {
        return ideviceinfo(concat({"-n", "-u", kUdid}, kBattery), 120s);
    });
    auto name = std::async(std::launch::async, [&] { return ideviceId({kUdid}, 120s); });
    auto query = std::async(std::launch::async, [&] {
        return ideviceinfo(concat({"-u", silentQueryUdid}, kBattery), 120s);
    });
    const auto usbOutcome = usb.get();
    const auto wifiOutcome = wifi.get();
    const auto nameOutcome = name.get();
    const auto queryOutcome = query.get();
    expectOutcome(usbOutcome, {255, "", lockdownError("Receive timeout (-7)")}, "USB");
    expectOutcome(wifiOutcome, {255, "", lockdownError("Unknown Error (-256)")}, "Wi-Fi");
    expectOutcome(nameOutcome, {254, "", "ERROR: Could not get device name!\n"}, "idevice_id");
    expectOutcome(queryOutcome, {0, "", ""}, "silent query");
    EXPECT_GT(usbOutcome.elapsed, 85s);
    EXPECT_GT(wifiOutcome.elapsed, 85s);
    EXPECT_GT(nameOutcome.elapsed, 28s);
    EXPECT_GT(queryOutcome.elapsed, 55s);
}

} // namespace
} // namespace ambrel::testing
