// "tovrin --bar": the real program prints one line for a status bar at once, from the running
// widget's state file or else from the saved phone reading, never running the phone tools, and
// with --follow prints a new line on every change.

#include <chrono>

#include <gtest/gtest.h>

#include <unistd.h>

#include <nlohmann/json.hpp>

#include "monitor/BarState.h"
#include "monitor/ReadingCache.h"
#include "platform/linux/SystemClock.h"
#include "tests/app/ProcessHarness.h"

namespace ambrel {
namespace {

using testing::ChildProcess;
using testing::EnvironmentChanges;
using testing::ProcessOutcome;
using testing::TemporaryFolder;

Date now() {
    return SystemClock().now();
}

BatteryDeviceSnapshot phone(std::int64_t percentage, double ageSeconds, bool charging = false) {
    return BatteryDeviceSnapshot("iphone", "Work iPhone", percentage, charging, charging,
                                 now().addingSeconds(-ageSeconds), "Wi-Fi",
                                 std::string("iPhone15,2"));
}

BatteryDeviceSnapshot mac(std::int64_t percentage) {
    return BatteryDeviceSnapshot("mac", "Anna\u2019s MacBook Pro", percentage, false, false, now(),
                                 "Mac", std::nullopt);
}

BarState widgetState(std::optional<BatteryDeviceSnapshot> computer,
                     std::optional<BatteryDeviceSnapshot> iphone) {
    BarState state;
    state.mac = std::move(computer);
    state.phone = std::move(iphone);
    state.phoneSetupState = PhoneSetupState::ready;
    // The test process stands in for the running widget.
    state.writer = ::getpid();
    return state;
}

class BarCommandTest : public ::testing::Test {
protected:
    BarCommandTest() : executable(testing::makeBundle(folder.path() / "install")) {
        // Phone tools that would hang for an hour and log every run before anything else: the
        // bar must never start them.
        const auto tools = folder.path() / "install" / "share" / "tovrin" / "Runtime" / "bin";
        for (const char* tool : {"idevice_id", "ideviceinfo"}) {
            std::filesystem::create_symlink(std::filesystem::path(TOVRIN_FIXTURES_DIR) /
                                                "fake-tools" / "fake_tool.py",
                                            tools / tool);
        }
        testing::writeText(folder.path() / "scenario.json",
                           R"({"rules": [{"tool": "*", "args": "*", "delay": 3600}]})");
    }

    EnvironmentChanges environment() const {
        return testing::privateSession(
            folder.path(), {{"LC_ALL", "en_US.UTF-8"},
                            {"TZ", "UTC"},
                            {"DISPLAY", std::nullopt},
                            {"TOVRIN_FAKE_SCENARIO", (folder.path() / "scenario.json").string()},
                            {"TOVRIN_FAKE_LOG", toolLog().string()},
                            {"DBUS_SESSION_BUS_ADDRESS", testing::kNoBus}});
    }

    std::filesystem::path toolLog() const { return folder.path() / "tools.log"; }
    std::filesystem::path stateFile() const {
        return folder.path() / "run" / "tovrin" / "state.json";
    }
    std::filesystem::path cacheFile() const {
        return folder.path() / "data" / "Ambrel" / "battery-cache.json";
    }

    ProcessOutcome bar(const std::string& format) const {
        return testing::runProcess({executable.string(), "--bar", format}, environment());
    }

    TemporaryFolder folder;
    std::filesystem::path executable;
};

TEST_F(BarCommandTest, SavedReadingWithoutWidgetAndNoPhoneToolRuns) {
    ReadingCache::save(cacheFile(), phone(54, 120));
    const auto result = bar("waybar");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    const auto json = nlohmann::json::parse(result.out);
    const auto text = json.at("text").get<std::string>();
    EXPECT_NE(text.find("iPhone 54%"), std::string::npos) << text;
    EXPECT_EQ(json.at("alt"), "normal");
    EXPECT_FALSE(std::filesystem::exists(toolLog())) << testing::readText(toolLog());
}

TEST_F(BarCommandTest, StaleSavedReadingIsMarked) {
    ReadingCache::save(cacheFile(), phone(54, 601));
    const auto result = bar("polybar");
    ASSERT_EQ(result.exitCode, 0) << result.err;
    // Marked, and in the card's orange.
    EXPECT_TRUE(result.out.starts_with("%{F#FF9500}")) << result.out;
    EXPECT_NE(result.out.find("iPhone ~54%%{F-}\n"), std::string::npos) << result.out;
}

TEST_F(BarCommandTest, AnswersAtOnceWhilePhoneToolsWouldHang) {
    ReadingCache::save(cacheFile(), phone(54, 30));
    const auto result = bar("i3blocks");
    // The bar ended by itself with the saved reading...
    EXPECT_FALSE(result.timedOut);
    ASSERT_EQ(result.exitCode, 0) << result.err;
    EXPECT_NE(result.out.find("iPhone 54%"), std::string::npos) << result.out;
    // ...and never started a phone tool, which would have logged its run before hanging.
    EXPECT_FALSE(std::filesystem::exists(toolLog())) << testing::readText(toolLog());
}

TEST_F(BarCommandTest, RunningWidgetStateWinsAndCriticalIsUrgentForI3blocks) {
    ReadingCache::save(cacheFile(), phone(80, 30));
    BarStateFile::save(stateFile(), widgetState(mac(18), phone(7, 10)));
    const auto blocks = bar("i3blocks");
    EXPECT_EQ(blocks.exitCode, 33) << blocks.err;
    EXPECT_EQ(blocks.out, "Computer 18% \u00b7 iPhone 7%\n18% \u00b7 7%\n#FF3B30\n");
    const auto json = nlohmann::json::parse(bar("waybar").out);
    EXPECT_EQ(json.at("alt"), "critical");
    EXPECT_EQ(json.at("percentage"), 7);
}

TEST_F(BarCommandTest, StateOfAnEndedWidgetIsNotUsed) {
    auto state = widgetState(mac(18), phone(7, 10));
    // The program itself, run once and gone, stands for a widget that crashed.
    state.writer = 0;
    BarStateFile::save(stateFile(), state);
    EXPECT_EQ(bar("polybar").out.find("iPhone 7%"), std::string::npos);
}

TEST_F(BarCommandTest, UnknownFormatIsAUsageError) {
    const auto result = bar("lemonbar");
    EXPECT_EQ(result.exitCode, 2);
    EXPECT_TRUE(result.out.empty());
    EXPECT_NE(result.err.find("waybar, polybar, i3blocks"), std::string::npos);
    const auto missing = testing::runProcess({executable.string(), "--bar"}, environment());
    EXPECT_EQ(missing.exitCode, 2);
}

TEST_F(BarCommandTest, FollowPrintsOnEveryChangeAndOnlyThen) {
    BarStateFile::save(stateFile(), widgetState(mac(50), phone(60, 10)));
    ChildProcess follower({executable.string(), "--bar", "polybar", "--follow"}, environment());
    // A battery at 9 % is critical: polybar draws the line in the card's red.
    const std::string kNineRed = "%{F#FF3B30}Computer 50% \u00b7 iPhone 9%%{F-}\n";
    const auto lines = [&follower] { return follower.standardOutput(); };
    ASSERT_TRUE(testing::eventually([&] { return !lines().empty(); }, std::chrono::seconds(10)))
        << follower.errorOutput();
    EXPECT_EQ(lines(), "Computer 50% \u00b7 iPhone 60%\n");

    BarStateFile::save(stateFile(), widgetState(mac(50), phone(9, 0)));
    ASSERT_TRUE(testing::eventually(
        [&] { return lines() == "Computer 50% \u00b7 iPhone 60%\n" + kNineRed; },
        std::chrono::seconds(10)))
        << lines();

    // The same readings again change nothing on the bar.
    BarStateFile::save(stateFile(), widgetState(mac(50), phone(9, 0)));
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_EQ(lines(), "Computer 50% \u00b7 iPhone 60%\n" + kNineRed);

    // The widget goes away: the bar falls back to the saved reading (none here).
    std::filesystem::remove(stateFile());
    ASSERT_TRUE(testing::eventually(
        [&] { return lines().ends_with(kNineRed + "Computer \u2014 \u00b7 iPhone \u2014\n"); },
        std::chrono::seconds(10)))
        << lines();
    EXPECT_TRUE(follower.isRunning());
    EXPECT_FALSE(std::filesystem::exists(toolLog()));
}

TEST_F(BarCommandTest, FollowMarksAReadingStaleByAgeAlone) {
    // The phone reading turns stale 600 s after it was taken: here about 3 s from now.
    const auto reading = phone(60, 597);
    BarStateFile::save(stateFile(), widgetState(mac(50), reading));
    ChildProcess follower({executable.string(), "--bar", "waybar", "--follow"}, environment());
    ASSERT_TRUE(testing::eventually([&] { return !follower.standardOutput().empty(); },
                                    std::chrono::seconds(10)));
    EXPECT_NE(follower.standardOutput().find("iPhone 60%"), std::string::npos);
    ASSERT_TRUE(testing::eventually(
        [&] { return follower.standardOutput().find("iPhone ~60%") != std::string::npos; },
        std::chrono::seconds(10)))
        << follower.standardOutput();
    // Two lines: the fresh one and the stale one, nothing in between.
    const auto output = follower.standardOutput();
    EXPECT_EQ(std::count(output.begin(), output.end(), '\n'), 2) << output;
    EXPECT_NE(output.find("\"phone-stale\""), std::string::npos);
}

} // namespace
} // namespace ambrel
