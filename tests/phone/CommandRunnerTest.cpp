#include "phone/CommandRunner.h"

#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/fakes/TemporaryFolder.h"

namespace ambrel {
namespace {

using testing::TemporaryFolder;

using Seconds = std::chrono::duration<double>;

const std::filesystem::path& testChild() {
    static const std::filesystem::path path =
        std::filesystem::path(TOVRIN_BINARY_DIR) / "tests" / "ambrel_phone_test_child";
    return path;
}

// The bytes the test child writes for a pattern of `count` bytes.
std::string pattern(std::size_t count) {
    std::string bytes(count, '\0');
    for (std::size_t index = 0; index < count; ++index) {
        bytes[index] = static_cast<char>('a' + index % 26);
    }
    return bytes;
}

struct TimedOutput {
    CommandOutput output;
    double seconds = 0.0;
};

TimedOutput timedRun(const std::filesystem::path& executable,
                     const std::vector<std::string>& arguments, double timeout) {
    const auto start = std::chrono::steady_clock::now();
    auto output = CommandRunner::run(executable, arguments, timeout);
    return {std::move(output), Seconds(std::chrono::steady_clock::now() - start).count()};
}

// True when this process has no child at all, neither running nor waiting to be reaped.
bool hasNoChildren() {
    siginfo_t info{};
    const int result = ::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT);
    return result == -1 && errno == ECHILD;
}

void expectLaunchFailure(const TimedOutput& result) {
    EXPECT_EQ(result.output.status, -1);
    EXPECT_EQ(result.output.stdoutText, "");
    EXPECT_EQ(result.output.stderrText, "Unable to launch iPhone helper");
    EXPECT_FALSE(result.output.timedOut);
    EXPECT_FALSE(result.output.succeeded());
    EXPECT_LT(result.seconds, 0.5);
}

TEST(CommandRunnerTest, MissingPathFailsToLaunchAtOnce) {
    TemporaryFolder folder;
    expectLaunchFailure(timedRun(folder.path() / "no-such-tool", {"-l"}, 5.0));
    EXPECT_TRUE(hasNoChildren());
}

TEST(CommandRunnerTest, NonExecutablePathFailsToLaunchAtOnce) {
    TemporaryFolder folder;
    const auto script = folder.path() / "tool";
    std::ofstream(script) << "#!/bin/sh\necho hello\n";
    ::chmod(script.c_str(), 0644);
    expectLaunchFailure(timedRun(script, {}, 5.0));
}

TEST(CommandRunnerTest, DirectoryAndNonProgramFailToLaunch) {
    TemporaryFolder folder;
    expectLaunchFailure(timedRun(folder.path(), {}, 5.0));
    // Executable bit but no interpreter line and no binary format: the kernel refuses it and no
    // shell is tried in its place.
    const auto text = folder.path() / "text";
    std::ofstream(text) << "echo hello\n";
    ::chmod(text.c_str(), 0755);
    expectLaunchFailure(timedRun(text, {}, 5.0));
}

TEST(CommandRunnerTest, SilentSuccessGivesEmptyTextsAndStatusZero) {
    const auto result = timedRun(testChild(), {"silent"}, 5.0);
    EXPECT_EQ(result.output.stdoutText, "");
    EXPECT_EQ(result.output.stderrText, "");
    EXPECT_EQ(result.output.status, 0);
    EXPECT_FALSE(result.output.timedOut);
    EXPECT_TRUE(result.output.succeeded());
}

TEST(CommandRunnerTest, ExitStatusIsReported) {
    const auto result = timedRun(testChild(), {"exit", "255"}, 5.0);
    EXPECT_EQ(result.output.status, 255);
    EXPECT_FALSE(result.output.timedOut);
    EXPECT_FALSE(result.output.succeeded());
}

TEST(CommandRunnerTest, SignalledChildReportsOneHundredTwentyEightPlusSignal) {
    EXPECT_EQ(timedRun(testChild(), {"raise", std::to_string(SIGTERM)}, 5.0).output.status,
              128 + SIGTERM);
    EXPECT_EQ(timedRun(testChild(), {"raise", std::to_string(SIGSEGV)}, 5.0).output.status,
              128 + SIGSEGV);
}

TEST(CommandRunnerTest, ArgumentsArePassedAsTheyAreWithoutShell) {
    const auto result =
        timedRun(testChild(), {"arguments", "a b", "$HOME", "*", "", "'quoted'", ";ls"}, 5.0);
    EXPECT_EQ(result.output.stdoutText, "[a b]\n[$HOME]\n[*]\n[]\n['quoted']\n[;ls]\n");
}

TEST(CommandRunnerTest, LargeStandardOutputIsCappedAtItsFirst65536Bytes) {
    const auto result = timedRun(testChild(), {"stdout-bytes", "100000"}, 10.0);
    EXPECT_EQ(result.output.status, 0);
    EXPECT_FALSE(result.output.timedOut);
    ASSERT_EQ(result.output.stdoutText.size(), 65536u);
    EXPECT_EQ(result.output.stdoutText, pattern(65536));
    EXPECT_EQ(result.output.stderrText, "");
}

TEST(CommandRunnerTest, LargeStandardErrorIsCappedToo) {
    const auto result = timedRun(testChild(), {"stderr-bytes", "100000"}, 10.0);
    EXPECT_EQ(result.output.status, 0);
    EXPECT_EQ(result.output.stderrText, pattern(65536));
    EXPECT_EQ(result.output.stdoutText, "");
}

TEST(CommandRunnerTest, BothStreamsAreDrainedAtOnceWithoutDeadlock) {
    const auto result = timedRun(testChild(), {"both-bytes", "1000000"}, 10.0);
    EXPECT_EQ(result.output.status, 0);
    EXPECT_FALSE(result.output.timedOut);
    EXPECT_EQ(result.output.stdoutText, pattern(65536));
    EXPECT_EQ(result.output.stderrText, pattern(65536));
    EXPECT_LT(result.seconds, 5.0);
}

TEST(CommandRunnerTest, OutputBelowTheCapIsKeptWhole) {
    const auto result = timedRun(testChild(), {"stdout-bytes", "65535"}, 10.0);
    EXPECT_EQ(result.output.stdoutText, pattern(65535));
    const auto exact = timedRun(testChild(), {"stdout-bytes", "65536"}, 10.0);
    EXPECT_EQ(exact.output.stdoutText, pattern(65536));
}

TEST(CommandRunnerTest, ChildIgnoringTerminateIsKilledAfterTheGrace) {
    const auto result = timedRun(testChild(), {"ignore-term", "30"}, 1.0);
    EXPECT_TRUE(result.output.timedOut);
    EXPECT_EQ(result.output.status, 128 + SIGKILL);
    // What it printed before the limit is still returned.
    EXPECT_EQ(result.output.stdoutText, "ignoring SIGTERM\n");
    EXPECT_GE(result.seconds, 1.0 + 0.5);
    EXPECT_LT(result.seconds, 1.0 + 2.5);
    EXPECT_TRUE(hasNoChildren());
}

TEST(CommandRunnerTest, ChildEndedByTerminateAtTheLimit) {
    const auto result = timedRun(testChild(), {"print-then-sleep", "30"}, 0.3);
    EXPECT_TRUE(result.output.timedOut);
    EXPECT_EQ(result.output.status, 128 + SIGTERM);
    EXPECT_EQ(result.output.stdoutText, "before the wait\n");
    EXPECT_FALSE(result.output.succeeded());
    EXPECT_GE(result.seconds, 0.3);
    EXPECT_LT(result.seconds, 2.0);
}

TEST(CommandRunnerTest, ShortChildReturnsWhenItEndsNotAtTheLimit) {
    const auto result = timedRun(testChild(), {"sleep", "0.2"}, 5.0);
    EXPECT_EQ(result.output.status, 0);
    EXPECT_FALSE(result.output.timedOut);
    EXPECT_GE(result.seconds, 0.2);
    EXPECT_LT(result.seconds, 2.0);
}

TEST(CommandRunnerTest, InvalidUtf8BecomesReplacementCharacters) {
    const auto result = timedRun(testChild(), {"invalid-utf8"}, 5.0);
    EXPECT_EQ(result.output.stdoutText, "ok \xEF\xBF\xBD\xEF\xBF\xBD end \xEF\xBF\xBD caf\xC3\xA9");
    EXPECT_EQ(result.output.stderrText, "\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(CommandRunnerTest, StandardInputIsAtEndOfFileAtOnce) {
    const auto result = timedRun(testChild(), {"read-stdin"}, 5.0);
    EXPECT_EQ(result.output.stdoutText, "eof after 0 bytes");
    EXPECT_EQ(result.output.status, 0);
    EXPECT_FALSE(result.output.timedOut);
    EXPECT_LT(result.seconds, 3.0);
}

TEST(CommandRunnerTest, ChildSeesOnlyDescriptorsZeroOneAndTwo) {
    // A descriptor opened elsewhere in the program without close-on-exec must not leak either.
    const int inheritable = ::open("/dev/null", O_RDONLY);
    ASSERT_GE(inheritable, 0);
    const auto result = timedRun(testChild(), {"descriptors"}, 5.0);
    ::close(inheritable);
    EXPECT_EQ(result.output.stdoutText, "0 1 2");
}

TEST(CommandRunnerTest, ChildStartsWithDefaultSignalsAndEmptyMask) {
    // Whatever this program ignores or blocks is not passed on to the tools.
    struct sigaction ignore {};
    ignore.sa_handler = SIG_IGN;
    struct sigaction previousUser {};
    struct sigaction previousPipe {};
    ::sigaction(SIGUSR1, &ignore, &previousUser);
    ::sigaction(SIGPIPE, &ignore, &previousPipe);
    sigset_t blocked;
    sigemptyset(&blocked);
    sigaddset(&blocked, SIGUSR2);
    sigset_t previousMask;
    ::pthread_sigmask(SIG_BLOCK, &blocked, &previousMask);

    const auto result = timedRun(testChild(), {"signals"}, 5.0);

    ::pthread_sigmask(SIG_SETMASK, &previousMask, nullptr);
    ::sigaction(SIGPIPE, &previousPipe, nullptr);
    ::sigaction(SIGUSR1, &previousUser, nullptr);
    EXPECT_EQ(result.output.stdoutText, "SIGUSR1 default, SIGPIPE default, SIGUSR2 unblocked");
}

TEST(CommandRunnerTest, NoZombieIsLeftAfterRuns) {
    ASSERT_TRUE(hasNoChildren());
    (void)CommandRunner::run(testChild(), {"silent"}, 5.0);
    EXPECT_TRUE(hasNoChildren());
    (void)CommandRunner::run(testChild(), {"raise", std::to_string(SIGKILL)}, 5.0);
    EXPECT_TRUE(hasNoChildren());
    (void)CommandRunner::run(testChild(), {"sleep", "30"}, 0.1);
    EXPECT_TRUE(hasNoChildren());
}

TEST(CommandRunnerTest, GrandchildHoldingThePipesDelaysTheRunByTheReaderJoinOnly) {
    const auto result = timedRun(testChild(), {"leave-grandchild", "30"}, 5.0);
    const pid_t grandchild = std::atoi(result.output.stdoutText.c_str());
    if (grandchild > 0) {
        ::kill(grandchild, SIGKILL);
    }
    EXPECT_GT(grandchild, 0);
    EXPECT_EQ(result.output.status, 0);
    EXPECT_FALSE(result.output.timedOut);
    EXPECT_GE(result.seconds, 1.0);
    EXPECT_LT(result.seconds, 3.0);
}

TEST(CommandRunnerTest, EightRunsOnEightThreadsAtOnce) {
    constexpr int kThreads = 8;
    std::vector<CommandOutput> outputs(kThreads);
    std::vector<std::thread> threads;
    const auto start = std::chrono::steady_clock::now();
    for (int index = 0; index < kThreads; ++index) {
        threads.emplace_back([&outputs, index] {
            if (index % 2 == 0) {
                outputs[index] = CommandRunner::run(testChild(), {"both-bytes", "100000"}, 10.0);
            } else {
                outputs[index] =
                    CommandRunner::run(testChild(), {"exit", std::to_string(index)}, 10.0);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
    const double seconds = Seconds(std::chrono::steady_clock::now() - start).count();
    for (int index = 0; index < kThreads; ++index) {
        SCOPED_TRACE(index);
        EXPECT_FALSE(outputs[index].timedOut);
        if (index % 2 == 0) {
            EXPECT_EQ(outputs[index].status, 0);
            EXPECT_EQ(outputs[index].stdoutText, pattern(65536));
            EXPECT_EQ(outputs[index].stderrText, pattern(65536));
        } else {
            EXPECT_EQ(outputs[index].status, index);
            EXPECT_EQ(outputs[index].stdoutText, "");
        }
    }
    EXPECT_LT(seconds, 5.0);
    EXPECT_TRUE(hasNoChildren());
}

TEST(CommandRunnerTest, TerminateRunningChildrenEndsEveryRunInProgress) {
    TemporaryFolder folder;
    constexpr int kRuns = 3;
    std::vector<CommandOutput> outputs(kRuns);
    std::vector<double> durations(kRuns);
    std::vector<std::thread> threads;
    for (int index = 0; index < kRuns; ++index) {
        threads.emplace_back([&, index] {
            const auto marker = folder.path() / ("started-" + std::to_string(index));
            const auto result = timedRun(testChild(), {"mark-then-sleep", marker, "30"}, 20.0);
            outputs[index] = result.output;
            durations[index] = result.seconds;
        });
    }
    // Wait (at most 5 s) until every child is running.
    const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    const auto allStarted = [&] {
        for (int index = 0; index < kRuns; ++index) {
            if (!std::filesystem::exists(folder.path() / ("started-" + std::to_string(index)))) {
                return false;
            }
        }
        return true;
    };
    while (!allStarted() && std::chrono::steady_clock::now() < giveUp) {
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    ASSERT_TRUE(allStarted());

    CommandRunner::terminateRunningChildren();
    for (auto& thread : threads) {
        thread.join();
    }
    for (int index = 0; index < kRuns; ++index) {
        SCOPED_TRACE(index);
        EXPECT_EQ(outputs[index].status, 128 + SIGKILL);
        EXPECT_FALSE(outputs[index].timedOut);
        EXPECT_LT(durations[index], 7.0);
    }
    EXPECT_TRUE(hasNoChildren());

    // Later runs are not affected.
    EXPECT_EQ(CommandRunner::run(testChild(), {"exit", "7"}, 5.0).status, 7);
}

TEST(CommandRunnerTest, TerminateWithNothingRunningDoesNothing) {
    CommandRunner::terminateRunningChildren();
    EXPECT_EQ(CommandRunner::run(testChild(), {"exit", "3"}, 5.0).status, 3);
}

// Refusing launches cannot be undone, so it is tried in a child process of its own.
TEST(CommandRunnerDeathTest, RefusingLaunchesKillsRunsInProgressAndStopsNewOnes) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto quitWhileRunning = [] {
        TemporaryFolder folder;
        const auto marker = folder.path() / "started";
        CommandOutput running;
        std::thread thread([&] {
            running = CommandRunner::run(testChild(), {"mark-then-sleep", marker, "30"}, 20.0);
        });
        const auto giveUp = std::chrono::steady_clock::now() + std::chrono::seconds(5);
        while (!std::filesystem::exists(marker) && std::chrono::steady_clock::now() < giveUp) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
        CommandRunner::refuseLaunchesAndTerminate();
        thread.join();
        const auto later = CommandRunner::run(testChild(), {"exit", "3"}, 5.0);
        const bool killed = running.status == 128 + SIGKILL;
        const bool refused =
            later.status == -1 && later.stderrText == CommandRunner::kLaunchFailure;
        std::exit(killed && refused ? 0 : 1);
    };
    EXPECT_EXIT(quitWhileRunning(), ::testing::ExitedWithCode(0), "");
}

TEST(CommandRunnerTest, ZeroAndNegativeTimeoutsEndTheChildAtOnce) {
    for (const double timeout : {0.0, -1.0}) {
        const auto result = timedRun(testChild(), {"sleep", "30"}, timeout);
        EXPECT_TRUE(result.output.timedOut);
        EXPECT_EQ(result.output.status, 128 + SIGTERM);
        EXPECT_LT(result.seconds, 1.5);
    }
}

} // namespace
} // namespace ambrel
