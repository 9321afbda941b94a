// `tovrin --readings` end to end: the real program, copied into a private bundle whose tool folder
// holds the fake phone tools, with its own home and data folders.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include "tests/fakes/ChildProcess.h"
#include "tests/fakes/ExpectedTexts.h"
#include "tests/fakes/ProgramBundle.h"
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

namespace {

using namespace ::ambrel::testing::expected;

using ::testing::ElementsAre;
using Json = nlohmann::json;
namespace fs = std::filesystem;

constexpr const char* kUdid = "00008110-001A2B3C4D5E6F70";
constexpr double kReferenceDateOffset = 978307200.0;

double nowSinceReferenceDate() {
    return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch())
               .count() -
           kReferenceDateOffset;
}

std::string readText(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return std::string{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

void writeText(const fs::path& file, const std::string& text) {
    fs::create_directories(file.parent_path());
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    stream << text;
}

int modeOf(const fs::path& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
        return -1;
    }
    return static_cast<int>(status.st_mode & 07777);
}

std::string batteryPlist(int capacity, bool charging, bool external) {
    const auto flag = [](bool value) { return value ? "<true/>" : "<false/>"; };
    return std::string("<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
                       "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
                       "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
                       "<plist version=\"1.0\">\n<dict>\n"
                       "\t<key>BatteryCurrentCapacity</key>\n\t<integer>") +
           std::to_string(capacity) +
           "</integer>\n"
           "\t<key>BatteryIsCharging</key>\n\t" +
           flag(charging) +
           "\n"
           "\t<key>ExternalChargeCapable</key>\n\t<true/>\n"
           "\t<key>ExternalConnected</key>\n\t" +
           flag(external) +
           "\n"
           "\t<key>FullyCharged</key>\n\t<false/>\n"
           "\t<key>GasGaugeCapability</key>\n\t<true/>\n"
           "\t<key>HasBattery</key>\n\t<true/>\n"
           "</dict>\n</plist>\n";
}

// The rules that answer for a phone reachable over one transport, its battery query giving
// `battery` (one rule, or a list of successive answers).
Json phoneRules(bool overWiFi, const Json& battery) {
    Json prefix = Json::array();
    if (overWiFi) {
        prefix.push_back("-n");
    }
    prefix.push_back("-u");
    prefix.push_back(kUdid);
    const auto with = [&prefix](std::vector<std::string> rest) {
        Json args = prefix;
        for (auto& item : rest) {
            args.push_back(item);
        }
        return args;
    };
    Json rules = Json::array();
    rules.push_back({{"tool", "idevice_id"},
                     {"args", {"-n"}},
                     {"stdout", overWiFi ? std::string(kUdid) + "\n" : ""}});
    rules.push_back({{"tool", "idevice_id"},
                     {"args", {"-l"}},
                     {"stdout", overWiFi ? "" : std::string(kUdid) + "\n"}});
    Json batteryRule = {{"tool", "ideviceinfo"},
                        {"args", with({"-q", "com.apple.mobile.battery", "-x"})}};
    if (battery.is_array()) {
        batteryRule["answers"] = battery;
    } else {
        batteryRule.update(battery);
    }
    rules.push_back(batteryRule);
    rules.push_back({{"tool", "ideviceinfo"},
                     {"args", with({"-k", "DeviceName"})},
                     {"stdout", "Sim iPhone\n"}});
    rules.push_back({{"tool", "ideviceinfo"},
                     {"args", with({"-k", "ProductType"})},
                     {"stdout", "iPhone14,2\n"}});
    rules.push_back({{"tool", "*"},
                     {"args", "*"},
                     {"stderr", "fake_tool: not expected here\n"},
                     {"status", 1}});
    return rules;
}

struct RunResult {
    int exitCode = -1;
    std::string standardOutput;
    std::string standardError;
    double seconds = 0;
};

// A private copy of the program's bundle, with its own home, data folder and phone scenario.
class ReadingsBundle {
public:
    ReadingsBundle() {
        std::string pattern = (fs::temp_directory_path() / "ambrel-readings-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            ADD_FAILURE() << "cannot make a temporary folder";
        }
        m_root = pattern;
        const auto bundle = ::ambrel::testing::copyBuiltProgram(m_root);
        EXPECT_EQ(bundle.failure, "");
        fs::create_directories(home());
        ::chmod(m_root.c_str(), 0755);
    }
    ~ReadingsBundle() {
        std::error_code error;
        fs::remove_all(m_root, error);
    }
    ReadingsBundle(const ReadingsBundle&) = delete;
    ReadingsBundle& operator=(const ReadingsBundle&) = delete;

    fs::path executable() const { return m_root / "bin" / "tovrin"; }
    fs::path share() const { return m_root / "share" / "tovrin"; }
    fs::path home() const { return m_root / "home"; }
    fs::path dataHome() const { return m_root / "data"; }
    fs::path cacheFile() const { return dataHome() / "Ambrel" / "battery-cache.json"; }
    fs::path logFile() const { return m_root / "calls.log"; }

    void linkFakeTools() {
        const fs::path fixtures = fs::path(TOVRIN_FIXTURES_DIR) / "fake-tools";
        for (const char* tool : {"idevice_id", "ideviceinfo"}) {
            fs::create_symlink(fixtures / tool, share() / "Runtime" / "bin" / tool);
        }
    }

    void setScenario(const Json& rules) {
        writeText(m_root / "scenario.json", Json{{"rules", rules}}.dump(2));
        std::error_code error;
        fs::remove(logFile(), error);
        fs::remove(fs::path(logFile().string() + ".state"), error);
    }

    // The tools' runs in order, as the fake tools logged them.
    std::vector<Json> calls() const {
        std::vector<Json> entries;
        std::ifstream stream(logFile());
        for (std::string line; std::getline(stream, line);) {
            if (!line.empty()) {
                entries.push_back(Json::parse(line));
            }
        }
        return entries;
    }

    // Runs `tovrin --readings`; gives up (and kills it) after 60 s.
    RunResult run(bool withDataHome = true) const {
        ::ambrel::testing::EnvironmentChanges changes{
            {"HOME", home().string()},
            {"XDG_DATA_HOME", std::nullopt},
            {"TOVRIN_FAKE_SCENARIO", (m_root / "scenario.json").string()},
            {"TOVRIN_FAKE_LOG", logFile().string()}};
        if (withDataHome) {
            changes["XDG_DATA_HOME"] = dataHome().string();
        }
        const auto outcome = ::ambrel::testing::runProcess({executable().string(), "--readings"},
                                                           changes, std::chrono::seconds(60));
        RunResult result;
        if (!outcome.started) {
            ADD_FAILURE() << "cannot start " << executable();
            return result;
        }
        EXPECT_FALSE(outcome.timedOut) << "tovrin --readings did not finish within 60 s";
        result.standardOutput = outcome.out;
        result.standardError = outcome.err;
        result.seconds = outcome.elapsed.count();
        result.exitCode = outcome.signal != 0 ? 128 + outcome.signal : outcome.exitCode;
        return result;
    }

private:
    fs::path m_root;
};

// The one line the program printed, checked for its form: compact JSON, one object, exactly the
// seven keys in sorted order.
Json reportOf(const RunResult& run) {
    EXPECT_EQ(run.exitCode, 0) << run.standardError;
    const std::string& text = run.standardOutput;
    EXPECT_FALSE(text.empty());
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1) << text;
    EXPECT_EQ(text.back(), '\n');
    const std::string line = text.substr(0, text.find('\n'));
    const Json report = Json::parse(line, nullptr, false);
    EXPECT_TRUE(report.is_object()) << line;
    if (!report.is_object()) {
        return Json::object();
    }
    EXPECT_EQ(report.dump(), line) << "not compact, or keys not sorted";
    std::vector<std::string> keys;
    for (auto it = report.begin(); it != report.end(); ++it) {
        keys.push_back(it.key());
    }
    EXPECT_THAT(keys, ElementsAre("mac", "macHealth", "macStatus", "phone", "phoneHealth",
                                  "phoneSetupState", "phoneStatus"));
    EXPECT_TRUE(report["macHealth"].is_null() || report["macHealth"].is_object());
    // This computer's half depends on the machine the test runs on; only its form is checked.
    EXPECT_TRUE(report["mac"].is_null() || report["mac"].is_object());
    EXPECT_TRUE(report["macStatus"].is_string());
    EXPECT_TRUE(report["phoneStatus"].is_string());
    EXPECT_TRUE(report["phoneSetupState"].is_string());
    return report;
}

std::vector<std::string> commandLines(const std::vector<Json>& calls) {
    std::vector<std::string> lines;
    for (const auto& call : calls) {
        std::string line = call["tool"].get<std::string>();
        for (const auto& argument : call["args"]) {
            line += " " + argument.get<std::string>();
        }
        lines.push_back(line);
    }
    return lines;
}

const std::string kBatteryQuery = std::string(kUdid) + " -q com.apple.mobile.battery -x";
const std::string kNameQuery = std::string(kUdid) + " -k DeviceName";
const std::string kModelQuery = std::string(kUdid) + " -k ProductType";

class ReadingsCommandTest : public ::testing::Test {
protected:
    ReadingsBundle bundle;
};

TEST_F(ReadingsCommandTest, WithoutToolsThePhoneHelperIsMissing) {
    bundle.setScenario(Json::array());
    const auto report = reportOf(bundle.run());
    EXPECT_TRUE(report["phone"].is_null());
    EXPECT_EQ(report["phoneSetupState"], "unavailable");
    EXPECT_EQ(report["phoneStatus"], kMissingTools);
    EXPECT_TRUE(bundle.calls().empty());
    EXPECT_FALSE(fs::exists(bundle.cacheFile()));
}

TEST_F(ReadingsCommandTest, PhoneHealthAsTheWidgetLastReadIt) {
    bundle.linkFakeTools();
    bundle.setScenario(phoneRules(false, {{"stdout", batteryPlist(87, true, true)}}));
    fs::create_directories(bundle.dataHome() / "Ambrel");
    writeText(
        bundle.dataHome() / "Ambrel" / "battery-health.json",
        R"({"version":1,"phones":{"00008110-001A2B3C4D5E6F70":)"
        R"({"measured":800000000.0,"maximumCapacity":87,"cycleCount":412,"temperature":30.5}}})");
    const auto report = reportOf(bundle.run());
    const Json& health = report["phoneHealth"];
    ASSERT_TRUE(health.is_object()) << report.dump();
    EXPECT_EQ(health["maximumCapacity"], 87);
    EXPECT_EQ(health["cycleCount"], 412);
    EXPECT_EQ(health["temperature"], 30.5);
    EXPECT_EQ(health["measured"], 800000000.0);
    // Printing it asks the phone nothing more than the reading does.
    for (const auto& call : bundle.calls()) {
        EXPECT_EQ(call.dump().find("idevicediagnostics"), std::string::npos) << call.dump();
    }
}

TEST_F(ReadingsCommandTest, PhoneOnUsb) {
    bundle.linkFakeTools();
    bundle.setScenario(phoneRules(false, {{"stdout", batteryPlist(87, true, true)}}));
    const double before = nowSinceReferenceDate();
    const auto report = reportOf(bundle.run());
    const double after = nowSinceReferenceDate();

    EXPECT_EQ(report["phoneSetupState"], "ready");
    EXPECT_EQ(report["phoneStatus"], kConnectedByUsb);
    const Json& phone = report["phone"];
    ASSERT_TRUE(phone.is_object());
    EXPECT_EQ(phone["id"], "iphone");
    EXPECT_EQ(phone["name"], "Sim iPhone");
    EXPECT_EQ(phone["percentage"], 87);
    EXPECT_EQ(phone["isCharging"], true);
    EXPECT_EQ(phone["isPluggedIn"], true);
    EXPECT_EQ(phone["source"], "USB");
    EXPECT_EQ(phone["model"], "iPhone14,2");
    ASSERT_TRUE(phone["lastUpdated"].is_number());
    EXPECT_GE(phone["lastUpdated"].get<double>(), before - 1);
    EXPECT_LE(phone["lastUpdated"].get<double>(), after + 1);

    EXPECT_TRUE(report["phoneHealth"].is_null()) << "never read";

    EXPECT_THAT(commandLines(bundle.calls()),
                ElementsAre("idevice_id -n", "idevice_id -l", "ideviceinfo -u " + kBatteryQuery,
                            "ideviceinfo -u " + kNameQuery, "ideviceinfo -u " + kModelQuery));
}

TEST_F(ReadingsCommandTest, PhoneOverWiFi) {
    bundle.linkFakeTools();
    bundle.setScenario(phoneRules(true, {{"stdout", batteryPlist(42, false, false)}}));
    const auto report = reportOf(bundle.run());

    EXPECT_EQ(report["phoneSetupState"], "ready");
    EXPECT_EQ(report["phoneStatus"], kConnectedOverWiFi);
    const Json& phone = report["phone"];
    ASSERT_TRUE(phone.is_object());
    EXPECT_EQ(phone["percentage"], 42);
    EXPECT_EQ(phone["isCharging"], false);
    EXPECT_EQ(phone["isPluggedIn"], false);
    EXPECT_EQ(phone["source"], "Wi-Fi");
    EXPECT_EQ(phone["name"], "Sim iPhone");
    // The USB list is never asked for once the Wi-Fi pass has read the phone.
    EXPECT_THAT(commandLines(bundle.calls()),
                ElementsAre("idevice_id -n", "ideviceinfo -n -u " + kBatteryQuery,
                            "ideviceinfo -n -u " + kNameQuery, "ideviceinfo -n -u " + kModelQuery));
}

TEST_F(ReadingsCommandTest, TransientFailureIsTriedAgainHalfASecondLater) {
    bundle.linkFakeTools();
    // The phone is listed over Wi-Fi but its first battery query fails at the connection.
    bundle.setScenario(phoneRules(
        true, Json::array({{{"stderr", "ERROR: Could not connect to lockdownd: Mux error (-8)\n"},
                            {"status", 255}},
                           {{"stdout", batteryPlist(66, true, true)}}})));
    const auto report = reportOf(bundle.run());

    EXPECT_EQ(report["phoneSetupState"], "ready");
    EXPECT_EQ(report["phoneStatus"], kConnectedOverWiFi);
    EXPECT_EQ(report["phone"]["percentage"], 66);
    const auto calls = bundle.calls();
    EXPECT_THAT(commandLines(calls),
                ElementsAre("idevice_id -n", "ideviceinfo -n -u " + kBatteryQuery, "idevice_id -l",
                            "idevice_id -n", "ideviceinfo -n -u " + kBatteryQuery,
                            "ideviceinfo -n -u " + kNameQuery, "ideviceinfo -n -u " + kModelQuery));
    ASSERT_EQ(calls.size(), 7u);
    // The first attempt ended with the USB list; the second, within the same run and before its
    // one report, began no sooner than half a second after it.
    const double gap = calls[3]["time"].get<double>() - calls[2]["time"].get<double>();
    EXPECT_GE(gap, 0.5);
    std::printf("second attempt began %.3f s after the first attempt's last tool run began\n", gap);
}

TEST_F(ReadingsCommandTest, LockedPhoneShowsTheSavedReading) {
    const Json saved = {{"id", "iphone"},       {"name", "Anna\u2019s iPhone"},
                        {"percentage", 35},     {"isCharging", false},
                        {"isPluggedIn", false}, {"lastUpdated", nowSinceReferenceDate() - 3600.5},
                        {"source", "Wi-Fi"},    {"model", "iPhone15,3"}};
    writeText(bundle.cacheFile(), saved.dump());
    const std::string savedText = readText(bundle.cacheFile());
    bundle.linkFakeTools();
    bundle.setScenario(phoneRules(
        false, {{"stderr", "ERROR: Could not connect to lockdownd: Password protected (-17)\n"},
                {"status", 255}}));
    const auto report = reportOf(bundle.run());

    EXPECT_EQ(report["phone"], saved);
    EXPECT_EQ(report["phoneStatus"], kLocked);
    EXPECT_EQ(report["phoneSetupState"], "notFound");
    // A locked phone is not a passing trouble: one attempt only.
    EXPECT_THAT(commandLines(bundle.calls()),
                ElementsAre("idevice_id -n", "idevice_id -l", "ideviceinfo -u " + kBatteryQuery));
    // A failed read leaves the file as it was.
    EXPECT_EQ(readText(bundle.cacheFile()), savedText);
}

TEST_F(ReadingsCommandTest, GoodReadingIsSavedPrivatelyAndShownAfterARestart) {
    bundle.linkFakeTools();
    bundle.setScenario(phoneRules(false, {{"stdout", batteryPlist(91, false, true)}}));
    const auto first = reportOf(bundle.run());
    ASSERT_EQ(first["phoneSetupState"], "ready");

    ASSERT_TRUE(fs::is_regular_file(bundle.cacheFile()));
    EXPECT_EQ(modeOf(bundle.cacheFile()), 0600);
    EXPECT_EQ(modeOf(bundle.cacheFile().parent_path()), 0700);
    const std::string text = readText(bundle.cacheFile());
    EXPECT_EQ(text.find('\n'), std::string::npos);
    const Json saved = Json::parse(text);
    EXPECT_EQ(saved, first["phone"]);
    EXPECT_EQ(saved.dump(), text);

    // Next time no phone answers: the saved reading is what the program shows.
    bundle.setScenario(Json::array({{{"tool", "idevice_id"}, {"args", "*"}, {"stdout", ""}},
                                    {{"tool", "*"}, {"args", "*"}, {"status", 1}}}));
    const auto second = reportOf(bundle.run());
    EXPECT_EQ(second["phone"], first["phone"]);
    EXPECT_EQ(second["phoneStatus"], kNotFound);
    EXPECT_EQ(second["phoneSetupState"], "notFound");
    EXPECT_THAT(commandLines(bundle.calls()), ElementsAre("idevice_id -n", "idevice_id -l"));
}

TEST_F(ReadingsCommandTest, WithoutXdgDataHomeTheCacheGoesUnderHome) {
    bundle.linkFakeTools();
    bundle.setScenario(phoneRules(true, {{"stdout", batteryPlist(12, false, false)}}));
    const auto report = reportOf(bundle.run(false));
    EXPECT_EQ(report["phoneSetupState"], "ready");
    const fs::path cache = bundle.home() / ".local" / "share" / "Ambrel" / "battery-cache.json";
    ASSERT_TRUE(fs::is_regular_file(cache));
    EXPECT_EQ(modeOf(cache), 0600);
    EXPECT_EQ(Json::parse(readText(cache)), report["phone"]);
    EXPECT_FALSE(fs::exists(bundle.cacheFile()));
}

} // namespace
