#pragma once

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

namespace ambrel {

// What to run and how long to let it run.
struct LaunchOptions {
    // The executable's path; nothing is looked up in PATH.
    std::filesystem::path program;
    // Passed to the child as they are: no shell, no quoting, no expansion.
    std::vector<std::string> arguments;
    // How long the child may run (monotonic) before it is asked to end; zero or less asks at
    // once.
    std::chrono::milliseconds timeLimit{0};
    // After the time limit: how long SIGTERM is given before SIGKILL, and how long SIGKILL is
    // given before the launcher stops waiting for the child.
    std::chrono::milliseconds terminateGrace{500};
    std::chrono::milliseconds killGrace{1000};
    // How long, once the child has ended or been given up, its output streams may take to reach
    // end of file (a grandchild may still hold them open).
    std::chrono::milliseconds outputDrainLimit{1000};
    // The bytes kept of each output stream; the rest is read and dropped.
    std::size_t outputCap = 65536;
};

// How a launch ended.
enum class LaunchEnd {
    // Nothing was started: the program is missing or not executable, the system refused, or the
    // launcher no longer starts children.
    notStarted,
    // The child ended by itself within the limit; `exitCode` holds its code (absent only when
    // another part of the program reaped the child first).
    exited,
    // A signal ended the child within the limit (a shutdown's SIGKILL included); `signal` holds
    // its number.
    signalled,
    // The child was still running at the limit and was told to end. `exitCode` or `signal` says
    // how it ended then; neither is set when it outlived the kill grace too.
    killedAtTimeLimit,
};

// The outcome of one launch and what the child printed.
struct LaunchResult {
    LaunchEnd end = LaunchEnd::notStarted;
    std::optional<int> exitCode;
    std::optional<int> signal;
    // The raw bytes of each stream, at most the options' `outputCap` of them.
    std::string standardOutput;
    std::string standardError;
};

// Starts external programs and waits for them within a time limit. Thread-safe; launch() blocks,
// so never on the main thread.
class ProcessLauncher {
public:
    virtual ~ProcessLauncher() = default;

    // Runs `options.program` with standard input on /dev/null and both output streams captured,
    // and returns once it has ended, or has been stopped after the time limit, or at once when
    // it could not be started. Blocks for at most timeLimit + terminateGrace + killGrace +
    // outputDrainLimit.
    virtual LaunchResult launch(const LaunchOptions& options) = 0;
};

} // namespace ambrel
