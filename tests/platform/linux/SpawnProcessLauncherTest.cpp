#include "platform/linux/SpawnProcessLauncher.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <string>
#include <thread>
#include <vector>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/fakes/TemporaryFolder.h"

namespace ambrel {
namespace {

using std::chrono::milliseconds;
using Seconds = std::chrono::duration<double>;

const std::filesystem::path& testChild() {
    static const std::filesystem::path path =
        std::filesystem::path(TOVRIN_BINARY_DIR) / "tests" / "ambrel_phone_test_child";
    return path;
}

// Children that end by themselves get a limit far beyond their run, so that a busy machine
// never turns one into a time-out.
LaunchOptions childOptions(std::vector<std::string> arguments,
                           milliseconds timeLimit = std::chrono::minutes(1)) {
    LaunchOptions options;
    options.program = testChild();
    options.arguments = std::move(arguments);
    options.timeLimit = timeLimit;
    return options;
}

bool hasNoChildren() {
    siginfo_t info{};
    const int result = ::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT);
    return result == -1 && errno == ECHILD;
}

// Waits until every path in `markers` exists; gives up only after half a minute, so that a busy
// machine's slow start of the children is not taken for a failure.
bool waitForMarkers(const std::vector<std::filesystem::path>& markers) {
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    const auto allThere = [&] {
        for (const auto& marker : markers) {
            if (!std::filesystem::exists(marker)) {
                return false;
            }
        }
        return true;
    };
    while (!allThere() && std::chrono::steady_clock::now() < giveUp) {
        std::this_thread::sleep_for(milliseconds(5));
    }
    return allThere();
}

TEST(SpawnProcessLauncherTest, ExitedChildGivesItsCodeAndOutput) {
    SpawnProcessLauncher launcher;
    const auto result = launcher.launch(childOptions({"arguments", "a b", "$HOME"}));
    EXPECT_EQ(result.end, LaunchEnd::exited);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.signal, std::nullopt);
    EXPECT_EQ(result.standardOutput, "[a b]\n[$HOME]\n");
    EXPECT_EQ(result.standardError, "");

    const auto failing = launcher.launch(childOptions({"exit", "42"}));
    EXPECT_EQ(failing.end, LaunchEnd::exited);
    EXPECT_EQ(failing.exitCode, 42);
}

// The threads of this process now.
std::size_t threadCount() {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry :
         std::filesystem::directory_iterator("/proc/self/task")) {
        ++count;
    }
    return count;
}

TEST(SpawnProcessLauncherTest, ALaunchWaitsOnTheCallersThreadAlone) {
    SpawnProcessLauncher launcher;
    testing::TemporaryFolder folder;
    const auto marker = folder.path() / "started";
    const std::size_t before = threadCount();
    std::thread asking([&] {
        const auto result =
            launcher.launch(childOptions({"mark-then-sleep", marker.string(), "1"}));
        EXPECT_EQ(result.exitCode, 0);
    });
    // While the child runs, the launch has no thread besides the one that asked: nothing else
    // wakes for its pipes or its end.
    ASSERT_TRUE(waitForMarkers({marker}));
    EXPECT_EQ(threadCount(), before + 1);
    asking.join();
    EXPECT_EQ(threadCount(), before);
    EXPECT_TRUE(hasNoChildren());
}

TEST(SpawnProcessLauncherTest, ChildrenGetTheLaunchersPriorityNotTheAskingThreads) {
    // The launcher is made here; the launch is asked from a thread that lowered itself, as the
    // background jobs do. `nice` prints the priority it runs at.
    errno = 0;
    const int own = ::getpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()));
    ASSERT_EQ(errno, 0);
    if (own >= 19) {
        GTEST_SKIP() << "the tests run at the lowest priority already: no thread can go lower";
    }
    SpawnProcessLauncher launcher;
    LaunchResult result;
    int asking = 0;
    std::thread([&] {
        ::setpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()), std::min(own + 5, 19));
        asking = ::getpriority(PRIO_PROCESS, static_cast<id_t>(::gettid()));
        LaunchOptions options;
        options.program = "/usr/bin/nice";
        options.timeLimit = std::chrono::minutes(1);
        result = launcher.launch(options);
    }).join();
    ASSERT_EQ(result.end, LaunchEnd::exited);
    ASSERT_GT(asking, own) << "the asking thread could not lower itself";
    EXPECT_EQ(result.standardOutput, std::to_string(own) + "\n");
}

TEST(SpawnProcessLauncherTest, SignalledChildGivesTheSignal) {
    SpawnProcessLauncher launcher;
    const auto result = launcher.launch(childOptions({"raise", std::to_string(SIGSEGV)}));
    EXPECT_EQ(result.end, LaunchEnd::signalled);
    EXPECT_EQ(result.signal, SIGSEGV);
    EXPECT_EQ(result.exitCode, std::nullopt);
}

TEST(SpawnProcessLauncherTest, MissingProgramIsNotStarted) {
    testing::TemporaryFolder folder;
    SpawnProcessLauncher launcher;
    LaunchOptions options;
    options.program = folder.path() / "no-such-tool";
    // A limit no test run reaches: a launch that waited for it would never come back.
    options.timeLimit = std::chrono::hours(1);
    const auto result = launcher.launch(options);
    EXPECT_EQ(result.end, LaunchEnd::notStarted);
    EXPECT_EQ(result.exitCode, std::nullopt);
    EXPECT_EQ(result.signal, std::nullopt);
    EXPECT_EQ(result.standardError, "");
    EXPECT_TRUE(hasNoChildren());
}

TEST(SpawnProcessLauncherTest, ChildEndedByTerminateIsKilledAtTheLimit) {
    SpawnProcessLauncher launcher;
    const auto start = std::chrono::steady_clock::now();
    const auto result =
        launcher.launch(childOptions({"print-then-sleep", "3600"}, milliseconds(300)));
    const double seconds = Seconds(std::chrono::steady_clock::now() - start).count();
    // The child would sleep for an hour: only the SIGTERM sent at the limit ended it.
    EXPECT_EQ(result.end, LaunchEnd::killedAtTimeLimit);
    EXPECT_EQ(result.signal, SIGTERM);
    EXPECT_EQ(result.standardOutput, "before the wait\n");
    EXPECT_GE(seconds, 0.3);
}

TEST(SpawnProcessLauncherTest, ChildIgnoringTerminateGetsKillAfterTheGivenGrace) {
    SpawnProcessLauncher launcher;
    auto options = childOptions({"ignore-term", "3600"}, milliseconds(200));
    options.terminateGrace = milliseconds(300);
    const auto start = std::chrono::steady_clock::now();
    const auto result = launcher.launch(options);
    const double seconds = Seconds(std::chrono::steady_clock::now() - start).count();
    // Deaf to SIGTERM and asleep for an hour: only the SIGKILL after the grace ended it.
    EXPECT_EQ(result.end, LaunchEnd::killedAtTimeLimit);
    EXPECT_EQ(result.signal, SIGKILL);
    EXPECT_GE(seconds, 0.2 + 0.3);
    EXPECT_TRUE(hasNoChildren());
}

TEST(SpawnProcessLauncherTest, OutputIsCappedAtTheGivenSizeAndDrained) {
    SpawnProcessLauncher launcher;
    auto options = childOptions({"both-bytes", "200000"});
    options.outputCap = 10;
    const auto result = launcher.launch(options);
    EXPECT_EQ(result.end, LaunchEnd::exited);
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.standardOutput, "abcdefghij");
    EXPECT_EQ(result.standardError, "abcdefghij");
}

TEST(SpawnProcessLauncherTest, BytesArePassedOnAsTheyCame) {
    SpawnProcessLauncher launcher;
    const auto result = launcher.launch(childOptions({"invalid-utf8"}));
    // Decoding is the caller's business: the bytes are not touched.
    EXPECT_EQ(result.standardOutput, "ok \xFF\xFE end \xE2\x82 caf\xC3\xA9");
    EXPECT_EQ(result.standardError, "\xC0\xAF");
}

TEST(SpawnProcessLauncherTest, ShutDownKillsRunningChildrenAndRefusesNewOnes) {
    testing::TemporaryFolder folder;
    SpawnProcessLauncher launcher;
    constexpr int kRuns = 3;
    std::vector<LaunchResult> results(kRuns);
    std::vector<std::filesystem::path> markers;
    std::vector<std::thread> threads;
    // Every path is in place before a thread reads one: the vector must not grow under them.
    for (int index = 0; index < kRuns; ++index) {
        markers.push_back(folder.path() / ("started-" + std::to_string(index)));
    }
    for (int index = 0; index < kRuns; ++index) {
        // Children that sleep for an hour under an hour's limit: nothing but the shutdown can
        // end them while the test runs.
        threads.emplace_back([&, index] {
            results[index] = launcher.launch(childOptions(
                {"mark-then-sleep", markers[index].string(), "3600"}, std::chrono::hours(1)));
        });
    }
    ASSERT_TRUE(waitForMarkers(markers));

    launcher.shutDown();
    for (auto& thread : threads) {
        thread.join();
    }
    for (int index = 0; index < kRuns; ++index) {
        SCOPED_TRACE(index);
        EXPECT_EQ(results[index].end, LaunchEnd::signalled);
        EXPECT_EQ(results[index].signal, SIGKILL);
    }
    EXPECT_TRUE(hasNoChildren());

    const auto later = launcher.launch(childOptions({"exit", "3"}));
    EXPECT_EQ(later.end, LaunchEnd::notStarted);
    EXPECT_TRUE(hasNoChildren());
}

TEST(SpawnProcessLauncherTest, ShutDownOfOneLauncherLeavesAnotherAlone) {
    SpawnProcessLauncher quitting;
    SpawnProcessLauncher other;
    quitting.shutDown();
    EXPECT_EQ(quitting.launch(childOptions({"exit", "3"})).end, LaunchEnd::notStarted);
    const auto result = other.launch(childOptions({"exit", "3"}));
    EXPECT_EQ(result.end, LaunchEnd::exited);
    EXPECT_EQ(result.exitCode, 3);
}

TEST(SpawnProcessLauncherTest, ShutDownWithNothingRunningOnlyRefuses) {
    SpawnProcessLauncher launcher;
    EXPECT_EQ(launcher.launch(childOptions({"exit", "5"})).exitCode, 5);
    launcher.shutDown();
    launcher.shutDown();
    EXPECT_EQ(launcher.launch(childOptions({"exit", "5"})).end, LaunchEnd::notStarted);
}

} // namespace
} // namespace ambrel
