#include "monitor/BarState.h"

#include <chrono>
#include <fstream>
#include <utility>

#include <gtest/gtest.h>

#include <sys/stat.h>
#include <unistd.h>

#include "tests/fakes/ChildProcess.h"
#include "tests/fakes/TemporaryFolder.h"

namespace ambrel {
namespace {

using testing::ChildProcess;
using testing::OutputTo;
using testing::ProcessOptions;
using testing::TemporaryFolder;

const Date kWhen = Date::fromSecondsSinceReferenceDate(800000000.25);

BarState sample() {
    BarState state;
    state.mac = BatteryDeviceSnapshot("mac", "Anna\u2019s MacBook Pro", 54, false, true, kWhen,
                                      "Mac", std::string("MacBookPro18,3"));
    state.phone =
        BatteryDeviceSnapshot("iphone", "Work iPhone", 9, true, true, kWhen, "USB", std::nullopt);
    state.phoneSetupState = PhoneSetupState::notFound;
    state.isRefreshingPhone = true;
    state.writer = ::getpid();
    return state;
}

mode_t modeOf(const std::filesystem::path& path) {
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0);
    return status.st_mode & 07777;
}

// The number of a process that has ended and been reaped, so that no process has it.
pid_t finishedProcess() {
    ProcessOptions options;
    options.arguments = {"/bin/true"};
    options.output = OutputTo::discard;
    options.error = OutputTo::discard;
    ChildProcess child(std::move(options));
    // It is reaped here, or stopped and reaped when `child` goes should it still run.
    (void)child.waitForExit(std::chrono::seconds(20));
    return child.pid();
}

TEST(BarStateTest, RoundTripKeepsEverything) {
    const auto text = sample().encodeJson();
    EXPECT_EQ(text.find('\n'), std::string::npos);
    const auto decoded = BarState::decodeJson(text);
    ASSERT_TRUE(decoded);
    ASSERT_TRUE(decoded->mac && decoded->phone);
    EXPECT_EQ(decoded->mac->encodeJson(), sample().mac->encodeJson());
    EXPECT_EQ(decoded->phone->encodeJson(), sample().phone->encodeJson());
    EXPECT_EQ(decoded->phoneSetupState, PhoneSetupState::notFound);
    EXPECT_TRUE(decoded->isRefreshingPhone);
    EXPECT_EQ(decoded->writer, ::getpid());
}

TEST(BarStateTest, MissingReadingsAreNull) {
    BarState state;
    const auto text = state.encodeJson();
    EXPECT_NE(text.find("\"mac\":null"), std::string::npos) << text;
    const auto decoded = BarState::decodeJson(text);
    ASSERT_TRUE(decoded);
    EXPECT_FALSE(decoded->mac);
    EXPECT_FALSE(decoded->phone);
    EXPECT_EQ(decoded->phoneSetupState, PhoneSetupState::checking);
}

TEST(BarStateTest, BrokenTextDoesNotDecode) {
    EXPECT_FALSE(BarState::decodeJson(""));
    EXPECT_FALSE(BarState::decodeJson("[]"));
    EXPECT_FALSE(BarState::decodeJson(
        R"({"isRefreshingPhone":false,"mac":{"id":"mac"},"phone":null,"phoneSetupState":"ready","writer":1})"));
    EXPECT_FALSE(BarState::decodeJson(
        R"({"isRefreshingPhone":false,"mac":null,"phone":null,"phoneSetupState":"Ready","writer":1})"));
    EXPECT_FALSE(BarState::decodeJson(
        R"({"isRefreshingPhone":false,"mac":null,"phone":null,"phoneSetupState":"ready"})"));
    EXPECT_TRUE(BarState::decodeJson(
        R"({"isRefreshingPhone":false,"mac":null,"phone":null,"phoneSetupState":"ready","writer":1})"));
}

TEST(BarStateTest, LocationPrefersTheRuntimeFolder) {
    EXPECT_EQ(BarStateFile::location("/run/user/1000", "/home/a/.cache", "/home/a"),
              "/run/user/1000/tovrin/state.json");
    EXPECT_EQ(BarStateFile::location(nullptr, "/home/a/.c", "/home/a"),
              "/home/a/.c/tovrin/state.json");
    EXPECT_EQ(BarStateFile::location("", "relative", "/home/a"),
              "/home/a/.cache/tovrin/state.json");
    EXPECT_EQ(BarStateFile::location(nullptr, nullptr, nullptr), "/.cache/tovrin/state.json");
}

TEST(BarStateTest, SaveIsPrivateAndLoadsWhileTheWriterRuns) {
    TemporaryFolder folder;
    const auto file = folder.path() / "run" / "tovrin" / "state.json";
    BarStateFile::save(file, sample());
    EXPECT_EQ(modeOf(file.parent_path()), 0700U);
    EXPECT_EQ(modeOf(file), 0600U);
    const auto loaded = BarStateFile::loadFromRunningWidget(file);
    ASSERT_TRUE(loaded);
    EXPECT_EQ(loaded->encodeJson(), sample().encodeJson());
    // Nothing but the file is left in the folder.
    EXPECT_EQ(std::distance(std::filesystem::directory_iterator(file.parent_path()),
                            std::filesystem::directory_iterator()),
              1);
}

TEST(BarStateTest, FileOfAnEndedWidgetIsIgnored) {
    TemporaryFolder folder;
    const auto file = folder.path() / "state.json";
    auto state = sample();
    state.writer = finishedProcess();
    BarStateFile::save(file, state);
    EXPECT_FALSE(BarStateFile::loadFromRunningWidget(file));
    state.writer = 0;
    BarStateFile::save(file, state);
    EXPECT_FALSE(BarStateFile::loadFromRunningWidget(file));
    EXPECT_FALSE(BarStateFile::loadFromRunningWidget(folder.path() / "absent.json"));
}

TEST(BarStateTest, RemoveTakesOnlyItsOwnFile) {
    TemporaryFolder folder;
    const auto file = folder.path() / "state.json";
    auto state = sample();
    state.writer = ::getpid() + 1;
    BarStateFile::save(file, state);
    BarStateFile::remove(file, ::getpid());
    EXPECT_TRUE(std::filesystem::exists(file));
    BarStateFile::remove(file, ::getpid() + 1);
    EXPECT_FALSE(std::filesystem::exists(file));
}

} // namespace
} // namespace ambrel
