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

#include "platform/linux/SpawnProcessLauncher.h"
#include "tests/fakes/FakeProcessLauncher.h"
#include "tests/fakes/TemporaryFolder.h"

namespace ambrel {
namespace {

using testing::TemporaryFolder;

using Seconds = std::chrono::duration<double>;
using std::chrono::milliseconds;

// For a child that ends by itself: a limit it never comes near, however busy the machine.
constexpr double kAmpleLimit = 60.0;
// For a run that must not wait for its limit: one no test run reaches, so that a run that did
// wait would never come back.
constexpr double kUnreachedLimit = 3600.0;

// The limit in seconds, as the runner's callers think of it.
milliseconds limit(double seconds) {
    return std::chrono::duration_cast<milliseconds>(Seconds(seconds));
}

// Runs `program` on a fake launcher that ends it as `result`.
CommandOutput runEndingAs(const LaunchResult& result, const std::string& program,
                          milliseconds timeout) {
    testing::FakeProcessLauncher fake;
    fake.enqueue(result);
    return CommandRunner::run(fake, program, {}, timeout);
}

// One launcher for the tests that run real children, as the program has one.
SpawnProcessLauncher& launcher() {
    static SpawnProcessLauncher instance;
    return instance;
}

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
    auto output = CommandRunner::run(launcher(), executable, arguments, limit(timeout));
    return {std::move(output), Seconds(std::chrono::steady_clock::now() - start).count()};
}

// True when this process has no child at all, neither running nor waiting to be reaped.
bool hasNoChildren() {
    siginfo_t info{};
    const int result = ::waitid(P_ALL, 0, &info, WEXITED | WNOHANG | WNOWAIT);
    return result == -1 && errno == ECHILD;
}

// The callers give an unreached limit: that the run came back at all shows it did not wait.
void expectLaunchFailure(const TimedOutput& result) {
    EXPECT_EQ(result.output.status, -1);
    EXPECT_EQ(result.output.stdoutText, "");
    EXPECT_EQ(result.output.stderrText, "Unable to launch iPhone helper");
    EXPECT_FALSE(result.output.timedOut);
    EXPECT_FALSE(result.output.succeeded());
}

TEST(CommandRunnerTest, MissingPathFailsToLaunchAtOnce) {
    TemporaryFolder folder;
    expectLaunchFailure(timedRun(folder.path() / "no-such-tool", {"-l"}, kUnreachedLimit));
    EXPECT_TRUE(hasNoChildren());
}

TEST(CommandRunnerTest, NonExecutablePathFailsToLaunchAtOnce) {
    TemporaryFolder folder;
    const auto script = folder.path() / "tool";
    std::ofstream(script) << "#!/bin/sh\necho hello\n";
    ::chmod(script.c_str(), 0644);
    expectLaunchFailure(timedRun(script, {}, kUnreachedLimit));
}

TEST(CommandRunnerTest, DirectoryAndNonProgramFailToLaunch) {
    TemporaryFolder folder;
    expectLaunchFailure(timedRun(folder.path(), {}, kUnreachedLimit));
    // Executable bit but no interpreter line and no binary format: the kernel refuses it and no
    // shell is tried in its place.
    const auto text = folder.path() / "text";
    std::ofstream(text) << "echo hello\n";
    ::chmod(text.c_str(), 0755);
    expectLaunchFailure(timedRun(text, {}, kUnreachedLimit));
}

TEST(CommandRunnerTest, SilentSuccessGivesEmptyTextsAndStatusZero) {
    const auto result = timedRun(testChild(), {"silent"}, kAmpleLimit);
    EXPECT_EQ(result.output.stdoutText, "");
    EXPECT_EQ(result.output.stderrText, "");
    EXPECT_EQ(result.output.status, 0);
    EXPECT_FALSE(result.output.timedOut);
    EXPECT_TRUE(result.output.succeeded());
}

TEST(CommandRunnerTest, ExitStatusIsReported) {
    const auto result = timedRun(testChild(), {"exit", "255"}, kAmpleLimit);
    EXPECT_EQ(result.output.status, 255);
    EXPECT_FALSE(result.output.timedOut);
    EXPECT_FALSE(result.output.succeeded());
}

TEST(CommandRunnerTest, SignalledChildReportsOneHundredTwentyEightPlusSignal) {
    EXPECT_EQ(timedRun(testChild(), {"raise", std::to_string(SIGTERM)}, kAmpleLimit).output.status,
              128 + SIGTERM);
    EXPECT_EQ(timedRun(testChild(), {"raise", std::to_string(SIGSEGV)}, kAmpleLimit).output.status,
              128 + SIGSEGV);
}

TEST(CommandRunnerTest, ArgumentsArePassedAsTheyAreWithoutShell) {
    const auto result = timedRun(
        testChild(), {"arguments", "a b", "$HOME", "*", "", "'quoted'", ";ls"}, kAmpleLimit);
    EXPECT_EQ(result.output.stdoutText, "[a b]\n[$HOME]\n[*]\n[]\n['quoted']\n[;ls]\n");
}

TEST(CommandRunnerTest, LargeStandardOutputIsCappedAtItsFirst65536Bytes) {
    const auto result = timedRun(testChild(), {"stdout-bytes", "100000"}, kAmpleLimit);
    EXPECT_EQ(result.output.status, 0);
    EXPECT_FALSE(result.output.timedOut);
    ASSERT_EQ(result.output.stdoutText.size(), 65536u);
    EXPECT_EQ(result.output.stdoutText, pattern(65536));
    EXPECT_EQ(result.output.stderrText, "");
}

TEST(CommandRunnerTest, LargeStandardErrorIsCappedToo) {
    const auto result = timedRun(testChild(), {"stderr-bytes", "100000"}, kAmpleLimit);
    EXPECT_EQ(result.output.status, 0);
    EXPECT_EQ(result.output.stderrText, pattern(65536));
    EXPECT_EQ(result.output.stdoutText, "");
}

TEST(CommandRunnerTest, BothStreamsAreDrainedAtOnceWithoutDeadlock) {
    // A runner that drained one stream only would leave the child blocked on the other until
    // the limit ended it as a time-out.
    const auto result = timedRun(testChild(), {"both-bytes", "1000000"}, kAmpleLimit);
    EXPECT_EQ(result.output.status, 0);
    EXPECT_FALSE(result.output.timedOut);
    EXPECT_EQ(result.output.stdoutText, pattern(65536));
    EXPECT_EQ(result.output.stderrText, pattern(65536));
}

TEST(CommandRunnerTest, OutputBelowTheCapIsKeptWhole) {
    const auto result = timedRun(testChild(), {"stdout-bytes", "65535"}, kAmpleLimit);
    EXPECT_EQ(result.output.stdoutText, pattern(65535));
    const auto exact = timedRun(testChild(), {"stdout-bytes", "65536"}, kAmpleLimit);
    EXPECT_EQ(exact.output.stdoutText, pattern(65536));
}

TEST(CommandRunnerTest, ChildIgnoringTerminateIsKilledAfterTheGrace) {
    // Deaf to SIGTERM and asleep for an hour: only the SIGKILL after the grace can end it.
    const auto result = timedRun(testChild(), {"ignore-term", "3600"}, 1.0);
    EXPECT_TRUE(result.output.timedOut);
    EXPECT_EQ(result.output.status, 128 + SIGKILL);
    // What it printed before the limit is still returned.
    EXPECT_EQ(result.output.stdoutText, "ignoring SIGTERM\n");
    EXPECT_GE(result.seconds, 1.0 + 0.5);
    EXPECT_TRUE(hasNoChildren());
}

TEST(CommandRunnerTest, ChildEndedByTerminateAtTheLimit) {
    // Asleep for an hour: only the SIGTERM at the limit can end it.
    const auto result = timedRun(testChild(), {"print-then-sleep", "3600"}, 0.3);
    EXPECT_TRUE(result.output.timedOut);
    EXPECT_EQ(result.output.status, 128 + SIGTERM);
    EXPECT_EQ(result.output.stdoutText, "before the wait\n");
    EXPECT_FALSE(result.output.succeeded());
    EXPECT_GE(result.seconds, 0.3);
}

TEST(CommandRunnerTest, ShortChildReturnsWhenItEndsNotAtTheLimit) {
    // Under an hour's limit, a run that waited for the limit would never come back.
    const auto result = timedRun(testChild(), {"sleep", "0.2"}, kUnreachedLimit);
    EXPECT_EQ(result.output.status, 0);
    EXPECT_FALSE(result.output.timedOut);
    EXPECT_GE(result.seconds, 0.2);
}

TEST(CommandRunnerTest, InvalidUtf8BecomesReplacementCharacters) {
    const auto result = timedRun(testChild(), {"invalid-utf8"}, kAmpleLimit);
    EXPECT_EQ(result.output.stdoutText, "ok \xEF\xBF\xBD\xEF\xBF\xBD end \xEF\xBF\xBD caf\xC3\xA9");
    EXPECT_EQ(result.output.stderrText, "\xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(CommandRunnerTest, StandardInputIsAtEndOfFileAtOnce) {
    // A child waiting for input that never comes would only end at the limit, as a time-out.
    const auto result = timedRun(testChild(), {"read-stdin"}, kAmpleLimit);
    EXPECT_EQ(result.output.stdoutText, "eof after 0 bytes");
    EXPECT_EQ(result.output.status, 0);
    EXPECT_FALSE(result.output.timedOut);
}

TEST(CommandRunnerTest, ChildSeesOnlyDescriptorsZeroOneAndTwo) {
    // A descriptor opened elsewhere in the program without close-on-exec must not leak either.
    const int inheritable = ::open("/dev/null", O_RDONLY);
    ASSERT_GE(inheritable, 0);
    const auto result = timedRun(testChild(), {"descriptors"}, kAmpleLimit);
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

    const auto result = timedRun(testChild(), {"signals"}, kAmpleLimit);

    ::pthread_sigmask(SIG_SETMASK, &previousMask, nullptr);
    ::sigaction(SIGPIPE, &previousPipe, nullptr);
    ::sigaction(SIGUSR1, &previousUser, nullptr);
    EXPECT_EQ(result.output.stdoutText, "SIGUSR1 default, SIGPIPE default, SIGUSR2 unblocked");
}

TEST(CommandRunnerTest, NoZombieIsLeftAfterRuns) {
    ASSERT_TRUE(hasNoChildren());
    (void)CommandRunner::run(launcher(), testChild(), {"silent"}, limit(kAmpleLimit));
    EXPECT_TRUE(hasNoChildren());
    (void)CommandRunner::run(launcher(), testChild(), {"raise", std::to_string(SIGKILL)},
                             limit(kAmpleLimit));
    EXPECT_TRUE(hasNoChildren());
    (void)CommandRunner::run(launcher(), testChild(), {"sleep", "3600"}, limit(0.1));
    EXPECT_TRUE(hasNoChildren());
}

TEST(CommandRunnerTest, GrandchildHoldingThePipesDelaysTheRunByTheReaderJoinOnly) {
    // The grandchild sleeps for an hour with both pipes open: the run must come back while it
    // still holds them.
    const auto result = timedRun(testChild(), {"leave-grandchild", "3600"}, kAmpleLimit);
    const pid_t grandchild = std::atoi(result.output.stdoutText.c_str());
    const bool grandchildWasRunning = grandchild > 0 && ::kill(grandchild, 0) == 0;
    if (grandchild > 0) {
        ::kill(grandchild, SIGKILL);
    }
    EXPECT_GT(grandchild, 0);
    EXPECT_TRUE(grandchildWasRunning) << "the run waited for the grandchild to end";
    EXPECT_EQ(result.output.status, 0);
    EXPECT_FALSE(result.output.timedOut);
    EXPECT_GE(result.seconds, 1.0);
}

TEST(CommandRunnerTest, EightRunsOnEightThreadsAtOnce) {
    constexpr int kThreads = 8;
    // Every child first waits until all eight are running, so the runs can only end if they
    // really run side by side; one runner waiting for another would end in time-outs.
    TemporaryFolder meeting;
    const std::vector<std::string> meet = {"meet", meeting.path().string(),
                                           std::to_string(kThreads)};
    std::vector<CommandOutput> outputs(kThreads);
    std::vector<std::thread> threads;
    for (int index = 0; index < kThreads; ++index) {
        threads.emplace_back([&outputs, &meet, index] {
            auto arguments = meet;
            if (index % 2 == 0) {
                arguments.insert(arguments.end(), {"both-bytes", "100000"});
            } else {
                arguments.insert(arguments.end(), {"exit", std::to_string(index)});
            }
            outputs[index] =
                CommandRunner::run(launcher(), testChild(), arguments, limit(kAmpleLimit));
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
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
    EXPECT_TRUE(hasNoChildren());
}

TEST(CommandRunnerTest, ZeroAndNegativeTimeoutsEndTheChildAtOnce) {
    for (const double timeout : {0.0, -1.0}) {
        // Asleep for an hour: only a SIGTERM at once can end it.
        const auto result = timedRun(testChild(), {"sleep", "3600"}, timeout);
        EXPECT_TRUE(result.output.timedOut);
        EXPECT_EQ(result.output.status, 128 + SIGTERM);
    }
}

// The runner's own part, on a launcher that starts nothing.
TEST(CommandRunnerOnFakeLauncherTest, AskedForTheContractsLimitsAndCap) {
    testing::FakeProcessLauncher fake;
    fake.enqueue(testing::exitedWith(0));
    (void)CommandRunner::run(fake, "/opt/tools/idevice_id", {"-n", "a b"}, milliseconds(6000));
    const auto launches = fake.launches();
    ASSERT_EQ(launches.size(), 1u);
    const auto& options = launches.front();
    EXPECT_EQ(options.program, "/opt/tools/idevice_id");
    EXPECT_EQ(options.arguments, (std::vector<std::string>{"-n", "a b"}));
    EXPECT_EQ(options.timeLimit, milliseconds(6000));
    EXPECT_EQ(options.terminateGrace, milliseconds(500));
    EXPECT_EQ(options.killGrace, milliseconds(1000));
    EXPECT_EQ(options.outputDrainLimit, milliseconds(1000));
    EXPECT_EQ(options.outputCap, 65536u);
}

TEST(CommandRunnerOnFakeLauncherTest, NotStartedIsTheLaunchFailureWhateverWasCaptured) {
    LaunchResult refused;
    refused.end = LaunchEnd::notStarted;
    refused.standardOutput = "stray";
    refused.standardError = "cannot run /missing: No such file or directory";
    const auto output = runEndingAs(refused, "/missing", milliseconds(5000));
    EXPECT_EQ(output.stdoutText, "");
    EXPECT_EQ(output.stderrText, "Unable to launch iPhone helper");
    EXPECT_EQ(output.status, -1);
    EXPECT_FALSE(output.timedOut);
}

TEST(CommandRunnerOnFakeLauncherTest, ToolPrintingTheLaunchFailureTextIsNoLaunchFailure) {
    const auto output = runEndingAs(testing::exitedWith(0, "", "Unable to launch iPhone helper"),
                                    "/bin/tool", milliseconds(5000));
    EXPECT_EQ(output.status, 0);
    EXPECT_TRUE(output.succeeded());
}

TEST(CommandRunnerOnFakeLauncherTest, EachEndBecomesItsStatus) {
    testing::FakeProcessLauncher fake;
    LaunchResult signalled;
    signalled.end = LaunchEnd::signalled;
    signalled.signal = SIGSEGV;
    LaunchResult terminated;
    terminated.end = LaunchEnd::killedAtTimeLimit;
    terminated.signal = SIGTERM;
    terminated.standardOutput = "before the limit\n";
    LaunchResult exitedInGrace;
    exitedInGrace.end = LaunchEnd::killedAtTimeLimit;
    exitedInGrace.exitCode = 0;
    LaunchResult givenUp;
    givenUp.end = LaunchEnd::killedAtTimeLimit;
    for (const auto& result :
         {testing::exitedWith(255), signalled, terminated, exitedInGrace, givenUp}) {
        fake.enqueue(result);
    }
    const auto run = [&fake] { return CommandRunner::run(fake, "/bin/tool", {}, limit(1.0)); };

    const auto exited = run();
    EXPECT_EQ(exited.status, 255);
    EXPECT_FALSE(exited.timedOut);
    const auto crashed = run();
    EXPECT_EQ(crashed.status, 128 + SIGSEGV);
    EXPECT_FALSE(crashed.timedOut);
    const auto stopped = run();
    EXPECT_EQ(stopped.status, 128 + SIGTERM);
    EXPECT_TRUE(stopped.timedOut);
    EXPECT_EQ(stopped.stdoutText, "before the limit\n");
    const auto late = run();
    EXPECT_EQ(late.status, 0);
    EXPECT_TRUE(late.timedOut);
    EXPECT_FALSE(late.succeeded());
    const auto lost = run();
    EXPECT_EQ(lost.status, -1);
    EXPECT_TRUE(lost.timedOut);
}

TEST(CommandRunnerOnFakeLauncherTest, BytesAreDecodedLossily) {
    const auto output = runEndingAs(testing::exitedWith(0, "caf\xC3\xA9 \xFF", "\xE2\x82"),
                                    "/bin/tool", limit(1.0));
    EXPECT_EQ(output.stdoutText, "caf\xC3\xA9 \xEF\xBF\xBD");
    EXPECT_EQ(output.stderrText, "\xEF\xBF\xBD");
}

TEST(CommandRunnerTest, ShutDownLauncherIsALaunchFailure) {
    SpawnProcessLauncher own;
    own.shutDown();
    const auto output = CommandRunner::run(own, testChild(), {"exit", "3"}, limit(kAmpleLimit));
    EXPECT_EQ(output.status, -1);
    EXPECT_EQ(output.stderrText, CommandRunner::kLaunchFailure);
    EXPECT_FALSE(output.timedOut);
}

} // namespace
} // namespace ambrel
