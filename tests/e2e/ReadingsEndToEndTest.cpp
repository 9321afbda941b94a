// `tovrin --readings` from a bundle of its own, with the real idevice_id and ideviceinfo talking
// to the simulated iPhone: the whole phone path, from listing devices to the reading cache.
#include <chrono>
#include <fstream>
#include <ostream>
#include <sstream>
#include <string>
#include <sys/stat.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/e2e/TestBundle.h"
#include "tests/fakes/ExpectedTexts.h"
#include "tests/fakes/TemporaryFolder.h"
#include "tests/simphone/SimulatedIphone.h"

namespace ambrel::testing {
namespace {

using namespace ::ambrel::testing::expected;

using namespace std::chrono_literals;
using nlohmann::json;

const std::string kSerial = "00008110001A2B3C4D5E6F70";
const std::string kUdid = "00008110-001A2B3C4D5E6F70";

// Seconds between the Unix epoch and 2001-01-01 00:00:00 UTC, the cache's time origin.
constexpr double kReferenceDateOffset = 978307200.0;

// The battery query's time limit: a silent phone costs at least that much.
constexpr double kBatteryTimeout = 8.0;

double secondsSinceReferenceDate() {
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    return std::chrono::duration<double>(now).count() - kReferenceDateOffset;
}

json phone(const std::string& serial, const std::string& connection,
           const json& extra = json::object()) {
    json device = {{"udid", serial}, {"connection", connection}};
    device.update(extra);
    return device;
}

std::string readFile(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

struct Readings {
    ProcessOutcome outcome;
    json report;
    // The wall clock, in the cache's seconds, just before the run and just after it.
    double startedAt = 0.0;
    double endedAt = 0.0;
};

class ReadingsEndToEnd : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(m_folder.path().empty());
        m_bundle = std::make_unique<TestBundle>(m_folder.path() / "bundle", tools());
        ASSERT_EQ(m_bundle->failure(), "");
    }

    virtual TestBundle::Tools tools() const { return TestBundle::Tools::linked; }

    // Starts a simulated iPhone service with `devices` (replacing any earlier one).
    void startPhone(const json& scenario, std::chrono::seconds lifetime = 90s) {
        m_phone.reset();
        const auto folder = m_folder.path() / ("phone" + std::to_string(++m_phoneCount));
        std::filesystem::create_directories(folder);
        m_phone = std::make_unique<SimulatedIphone>(folder, scenario, lifetime);
        ASSERT_TRUE(m_phone->isReady()) << m_phone->failure();
    }

    void startPhoneWith(const json& devices) { startPhone(json{{"devices", devices}}); }

    // One `tovrin --readings` run; the report is its single line of JSON.
    Readings readings(std::chrono::duration<double> limit = 60s) const {
        const std::string socket = m_phone
                                       ? m_phone->socketAddress()
                                       : "UNIX:" + (m_folder.path() / "nothing-here.sock").string();
        Readings result;
        result.startedAt = secondsSinceReferenceDate();
        result.outcome = m_bundle->run({"--readings"}, socket, limit);
        result.endedAt = secondsSinceReferenceDate();
        const auto& out = result.outcome.out;
        if (!out.empty() && out.back() == '\n' && out.find('\n') == out.size() - 1) {
            result.report = json::parse(out, nullptr, false);
        }
        return result;
    }

    // Runs --readings and checks that it ended well with one JSON line of the documented shape.
    json readingsReport(std::chrono::duration<double> limit = 60s) {
        m_last = readings(limit);
        const auto& outcome = m_last.outcome;
        EXPECT_TRUE(outcome.started);
        EXPECT_FALSE(outcome.timedOut);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        EXPECT_TRUE(m_last.report.is_object())
            << "stdout: " << outcome.out << "\nstderr: " << outcome.err;
        if (!m_last.report.is_object()) {
            return json::object();
        }
        for (const char* key : {"mac", "macStatus", "phone", "phoneSetupState", "phoneStatus"}) {
            EXPECT_TRUE(m_last.report.contains(key)) << key;
        }
        return m_last.report;
    }

    static void expectFailure(const json& report, const std::string& state,
                              const std::string& status) {
        EXPECT_EQ(report["phoneSetupState"], state);
        EXPECT_EQ(report["phoneStatus"], status);
        EXPECT_TRUE(report["phone"].is_null()) << report["phone"];
    }

    // A fresh phone reading with these fields, dated within the run that reported it.
    void expectPhone(const json& report, const json& expected) const {
        const auto& phoneJson = report["phone"];
        ASSERT_TRUE(phoneJson.is_object()) << report;
        json withoutDate = phoneJson;
        withoutDate.erase("lastUpdated");
        EXPECT_EQ(withoutDate, expected);
        ASSERT_TRUE(phoneJson["lastUpdated"].is_number());
        EXPECT_GE(phoneJson["lastUpdated"].get<double>(), m_last.startedAt);
        EXPECT_LE(phoneJson["lastUpdated"].get<double>(), m_last.endedAt);
    }

    static json usbPhone(const std::string& name = "Sim iPhone",
                         const std::string& source = "USB") {
        return json{{"id", "iphone"},       {"name", name},         {"percentage", 87},
                    {"isCharging", false},  {"isPluggedIn", false}, {"source", source},
                    {"model", "iPhone14,2"}};
    }

    json deviceStats(const std::string& serial) const {
        return m_phone->stats()["devices"][serial];
    }

    TemporaryFolder m_folder;
    std::unique_ptr<TestBundle> m_bundle;
    std::unique_ptr<SimulatedIphone> m_phone;
    Readings m_last;
    int m_phoneCount = 0;
};

TEST_F(ReadingsEndToEnd, UsbPhoneIsReadOverUsb) {
    startPhoneWith(json::array({phone(kSerial, "usb")}));
    const auto report = readingsReport();
    expectPhone(report, usbPhone());
    EXPECT_EQ(report["phoneSetupState"], "ready");
    EXPECT_EQ(report["phoneStatus"], kConnectedByUsb);

    // The battery query, then the name and the model over the same transport.
    const auto stats = deviceStats(kSerial);
    EXPECT_EQ(stats["usbConnections"], 3);
    EXPECT_EQ(stats["networkConnections"], 0);
    EXPECT_EQ(stats["getValue"]["com.apple.mobile.battery"], 1);
    EXPECT_EQ(stats["getValue"]["DeviceName"], 1);
    EXPECT_EQ(stats["getValue"]["ProductType"], 1);
}

TEST_F(ReadingsEndToEnd, WiFiPhoneIsReadOverWiFi) {
    startPhoneWith(json::array({phone(
        kSerial, "network", {{"DeviceName", "Kitchen iPhone"}, {"wifiConnections", true}})}));
    const auto report = readingsReport();
    expectPhone(report, usbPhone("Kitchen iPhone", "Wi-Fi"));
    EXPECT_EQ(report["phoneSetupState"], "ready");
    EXPECT_EQ(report["phoneStatus"], kConnectedOverWiFi);
    const auto stats = deviceStats(kSerial);
    EXPECT_EQ(stats["networkConnections"], 3);
    EXPECT_EQ(stats["usbConnections"], 0);
}

TEST_F(ReadingsEndToEnd, PhoneReachableBothWaysIsReadOverWiFi) {
    startPhoneWith(json::array({phone(kSerial, "both", {{"wifiConnections", true}})}));
    const auto report = readingsReport();
    expectPhone(report, usbPhone("Sim iPhone", "Wi-Fi"));
    EXPECT_EQ(report["phoneStatus"], kConnectedOverWiFi);
    EXPECT_EQ(deviceStats(kSerial)["usbConnections"], 0);
    EXPECT_EQ(deviceStats(kSerial)["networkConnections"], 3);
}

TEST_F(ReadingsEndToEnd, LockedPhoneAsksToBeUnlocked) {
    startPhoneWith(
        json::array({phone(kSerial, "both", {{"fault", "locked"}, {"wifiConnections", true}})}));
    const auto report = readingsReport();
    expectFailure(report, "notFound", kLocked);
    // Not transient: one attempt, Wi-Fi then USB.
    EXPECT_EQ(deviceStats(kSerial)["networkConnections"], 1);
    EXPECT_EQ(deviceStats(kSerial)["usbConnections"], 1);
}

struct FaultCase {
    const char* name;
    const char* fault;
    const char* state;
    std::string status;
};

// Names the case in test listings instead of dumping its bytes.
void PrintTo(const FaultCase& faultCase, std::ostream* stream) {
    *stream << faultCase.name;
}

class DeviceFaults : public ReadingsEndToEnd, public ::testing::WithParamInterface<FaultCase> {};

TEST_P(DeviceFaults, EndInTheirIssue) {
    startPhoneWith(json::array({phone(kSerial, "usb", {{"fault", GetParam().fault}})}));
    const auto report = readingsReport();
    expectFailure(report, GetParam().state, GetParam().status);
    // Not transient over USB: no second attempt.
    EXPECT_EQ(deviceStats(kSerial)["usbConnections"], 1);
}

INSTANTIATE_TEST_SUITE_P(
    ReadingsEndToEnd, DeviceFaults,
    ::testing::Values(
        // "User denied pairing (-18)": a pairing code.
        FaultCase{"UserDenied", "user_denied", "needsPairing", kTrust},
        // "Pairing dialog response pending (-19)".
        FaultCase{"DialogPending", "dialog_pending", "needsPairing", kTrust},
        // "Invalid HostID (-21)": the code decides although the words read InvalidHostID.
        FaultCase{"InvalidHostId", "invalid_host_id", "needsPairing", kTrust},
        // Never paired and locked: "Password protected (-17)" wins.
        FaultCase{"LockedNeverPaired", "locked_unpaired", "notFound", kLocked},
        // "Invalid configuration (-2)" matches no rule; the phone was listed and tried.
        FaultCase{"RecordWithoutHostId", "pair_record_without_host_id", "notFound",
                  kTemporarilyUnavailable},
        // "Mux error (-8)" from a dropped connection: no rule either.
        FaultCase{"ConnectionDropped", "drop", "notFound", kTemporarilyUnavailable}),
    [](const ::testing::TestParamInfo<FaultCase>& faultCase) {
        return std::string(faultCase.param.name);
    });

TEST_F(ReadingsEndToEnd, MissingPairRecordIsMadeWhenThePhoneAccepts) {
    startPhoneWith(json::array({phone(kSerial, "usb", {{"fault", "missing_pair_record"}})}));
    const auto report = readingsReport();
    expectPhone(report, usbPhone());
    EXPECT_EQ(report["phoneSetupState"], "ready");
    EXPECT_EQ(m_phone->stats()["pairRecordsSaved"], json::array({kUdid}));
    EXPECT_EQ(deviceStats(kSerial)["requests"]["Pair"], 1);
}

TEST_F(ReadingsEndToEnd, SilentUsbPhoneIsCutOffByTheToolTimeout) {
    startPhoneWith(json::array({phone(kSerial, "usb", {{"fault", "never_answers"}})}));
    const auto report = readingsReport(90s);
    expectFailure(report, "notFound", kTimedOut);
    // The phone never answers, so only the battery query's 8 s limit can have ended the read,
    // as the timed-out status says; over USB the issue is not transient, so once.
    EXPECT_GE(m_last.outcome.elapsed.count(), kBatteryTimeout);
    EXPECT_EQ(deviceStats(kSerial)["usbConnections"], 1);
    EXPECT_FALSE(deviceStats(kSerial)["requests"].contains("StartSession"));
}

TEST_F(ReadingsEndToEnd, SilentWiFiPhoneIsTriedTwiceThenGivenUp) {
    startPhoneWith(json::array(
        {phone(kSerial, "network", {{"fault", "never_answers"}, {"wifiConnections", true}})}));
    const auto report = readingsReport(120s);
    expectFailure(report, "notFound", kTimedOut);
    // Over Wi-Fi a timeout is transient: a second attempt after 0.5 s, then no third.
    EXPECT_GE(m_last.outcome.elapsed.count(), 2 * kBatteryTimeout + 0.5);
    EXPECT_EQ(deviceStats(kSerial)["networkConnections"], 2);
}

TEST_F(ReadingsEndToEnd, NoDevicesMeansNotFound) {
    startPhoneWith(json::array());
    expectFailure(readingsReport(), "notFound", kNotFound);
    const json stats = m_phone->stats();
    const json requests = stats.at("usbmuxd").value("requests", json::object());
    if (!TestBundle::isThroughProgramsMuxer()) {
        EXPECT_EQ(requests.value("ListDevices", 0), 2);
        return;
    }
    // The program's muxer answers a listing from its standing Listen once that is up, and asks
    // the system muxer only until then: how many listings reach it depends on that moment, but
    // the system muxer was asked, by a listing or by the Listen.
    const int listings = requests.value("ListDevices", 0);
    EXPECT_LE(listings, 2);
    EXPECT_GE(listings + requests.value("Listen", 0), 1);
}

TEST_F(ReadingsEndToEnd, ServiceAbsentMeansUnreachable) {
    startPhone(json{{"usbmuxd", "absent"}, {"devices", json::array({phone(kSerial, "usb")})}});
    if (TestBundle::isThroughProgramsMuxer()) {
        // The program's muxer answers for an absent system muxer: no USB devices.
        expectFailure(readingsReport(), "notFound", kNotFound);
        return;
    }
    expectFailure(readingsReport(), "unavailable", kServiceUnreachable);
}

TEST_F(ReadingsEndToEnd, IpadAloneIsSkipped) {
    startPhoneWith(json::array({phone(kSerial, "usb",
                                      {{"DeviceName", "Sim iPad"},
                                       {"ProductType", "iPad13,4"},
                                       {"values", {{"DeviceClass", "iPad"}}}})}));
    expectFailure(readingsReport(), "notFound", kTemporarilyUnavailable);
    EXPECT_EQ(deviceStats(kSerial)["getValue"]["ProductType"], 1);
}

TEST_F(ReadingsEndToEnd, OnlyThreeOfFourDevicesAreQueried) {
    const json locked = {{"fault", "locked"}};
    const std::vector<std::string> serials = {
        "00008110000000000000000A", "00008110000000000000000B", "00008110000000000000000C",
        "00008110000000000000000D"};
    json devices = json::array();
    for (const auto& serial : serials) {
        devices.push_back(phone(serial, "usb", locked));
    }
    startPhoneWith(devices);
    expectFailure(readingsReport(), "notFound", kLocked);
    EXPECT_EQ(m_phone->connectionsTo(serials[0]), 1);
    EXPECT_EQ(m_phone->connectionsTo(serials[1]), 1);
    EXPECT_EQ(m_phone->connectionsTo(serials[2]), 1);
    EXPECT_EQ(m_phone->connectionsTo(serials[3]), 0);
}

TEST_F(ReadingsEndToEnd, BatteryOf101IsNoReading) {
    startPhoneWith(json::array({phone(kSerial, "usb",
                                      {{"battery",
                                        {{"BatteryCurrentCapacity", 101},
                                         {"BatteryIsCharging", false},
                                         {"ExternalConnected", true}}}})}));
    expectFailure(readingsReport(), "notFound", kTemporarilyUnavailable);
    // Rejected before the name and model are asked for.
    EXPECT_FALSE(deviceStats(kSerial)["getValue"].contains("DeviceName"));
}

TEST_F(ReadingsEndToEnd, ChargingPhoneWithoutExternalConnectedCountsAsPluggedIn) {
    startPhoneWith(json::array(
        {phone(kSerial, "usb",
               {{"battery", {{"BatteryCurrentCapacity", 54}, {"BatteryIsCharging", true}}}})}));
    const auto report = readingsReport();
    auto expected = usbPhone();
    expected["percentage"] = 54;
    expected["isCharging"] = true;
    expected["isPluggedIn"] = true;
    expectPhone(report, expected);
}

TEST_F(ReadingsEndToEnd, GoodReadingIsSavedAndShownAfterARestartWithThePhoneGone) {
    startPhoneWith(json::array({phone(kSerial, "usb")}));
    const auto first = readingsReport();
    ASSERT_EQ(first["phoneSetupState"], "ready");

    const auto cacheFile = m_bundle->cacheFile();
    struct stat fileStat {};
    struct stat folderStat {};
    ASSERT_EQ(::stat(cacheFile.c_str(), &fileStat), 0) << cacheFile;
    ASSERT_EQ(::stat(cacheFile.parent_path().c_str(), &folderStat), 0);
    EXPECT_EQ(fileStat.st_mode & 07777, 0600u);
    EXPECT_EQ(folderStat.st_mode & 07777, 0700u);
    const std::string text = readFile(cacheFile);
    EXPECT_EQ(text.find('\n'), std::string::npos) << "written compactly";
    const auto saved = json::parse(text, nullptr, false);
    ASSERT_TRUE(saved.is_object()) << text;
    EXPECT_EQ(saved, first["phone"]);

    // Restart with no phone: the read fails and the saved reading stays on show.
    startPhoneWith(json::array());
    const auto second = readingsReport();
    EXPECT_EQ(second["phone"], saved);
    EXPECT_EQ(second["phoneSetupState"], "notFound");
    EXPECT_EQ(second["phoneStatus"], kNotFound);
    // A failed read leaves the file as it was.
    EXPECT_EQ(readFile(cacheFile), text);
}

TEST_F(ReadingsEndToEnd, HourOldSavedReadingIsShownWithItsOwnDate) {
    // A reading saved an hour ago is past the phone's 600 s limit: it shows as stale.
    const double anHourAgo = secondsSinceReferenceDate() - 3600.0;
    const json saved = {{"id", "iphone"},      {"name", "Old iPhone"}, {"percentage", 42},
                        {"isCharging", false}, {"isPluggedIn", false}, {"lastUpdated", anHourAgo},
                        {"source", "Wi-Fi"},   {"model", "iPhone12,1"}};
    std::filesystem::create_directories(m_bundle->cacheFile().parent_path());
    std::ofstream(m_bundle->cacheFile()) << saved.dump();
    startPhoneWith(json::array());
    const auto report = readingsReport();
    ASSERT_TRUE(report["phone"].is_object());
    EXPECT_EQ(report["phone"]["name"], "Old iPhone");
    EXPECT_EQ(report["phone"]["percentage"], 42);
    EXPECT_NEAR(report["phone"]["lastUpdated"].get<double>(), anHourAgo, 0.001);
    EXPECT_GT(secondsSinceReferenceDate() - report["phone"]["lastUpdated"].get<double>(), 600.0);
    EXPECT_EQ(report["phoneSetupState"], "notFound");
    EXPECT_EQ(report["phoneStatus"], kNotFound);
}

class ReadingsWithoutTools : public ReadingsEndToEnd {
protected:
    TestBundle::Tools tools() const override { return TestBundle::Tools::missing; }
};

TEST_F(ReadingsWithoutTools, MissingToolsAreReportedWithoutAnyRequest) {
    startPhoneWith(json::array({phone(kSerial, "usb")}));
    expectFailure(readingsReport(), "unavailable", kMissingTools);
    // Nothing asked for the phone; the program's own muxer, when it runs, may only have started
    // listening for phones coming and going.
    const auto stats = m_phone->stats();
    for (const auto& [request, count] : stats["usbmuxd"]["requests"].items()) {
        EXPECT_EQ(request, "Listen") << count << " request(s)";
    }
    ASSERT_TRUE(stats["devices"].contains(kSerial));
    EXPECT_EQ(stats["devices"][kSerial]["connections"], 0);
}

} // namespace
} // namespace ambrel::testing
