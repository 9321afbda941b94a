#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "phone/CommandOutput.h"

namespace ambrel::CommandRunner {

inline constexpr std::size_t kReadChunk = 4096;
inline constexpr std::size_t kCapturedBytesLimit = 65536;
inline constexpr double kTerminateGrace = 0.5;
inline constexpr double kKillGrace = 1.0;
inline constexpr double kReaderJoin = 1.0;
inline constexpr const char* kLaunchFailure = "Unable to launch iPhone helper";
// Added to the signal number to make the status of a child that a signal ended, as shells do:
// a child killed by SIGKILL reports 137, one ended by SIGTERM 143.
inline constexpr std::int32_t kSignalStatusBase = 128;

// Runs `executable` with `arguments` (each passed as it is: no shell, no expansion), standard
// input on /dev/null, and waits at most `timeout` seconds (monotonic) before SIGTERM, then
// SIGKILL. Blocks for at most timeout + 2.5 s. Never call it on the main thread. Thread-safe.
//
// The child inherits the environment and working directory, gets every signal at its default
// disposition and an empty signal mask, and has no open descriptor besides 0, 1 and 2. Each
// stream keeps its first kCapturedBytesLimit bytes; the rest is read and dropped so the child
// never blocks on a full pipe. A path that is missing or cannot be executed ends at once with
// status -1, empty stdout and stderr kLaunchFailure. The status is the exit code, or
// kSignalStatusBase + the signal number when a signal ended the child, or -1 when the child was
// still running when the runner gave up (it is then reaped in the background once it ends).
// The runner only ever reads from the pipes, so it cannot raise SIGPIPE in this program.
CommandOutput run(const std::filesystem::path& executable,
                  const std::vector<std::string>& arguments, double timeout);

// Sends SIGKILL to the child of every run in progress, from any thread, so that none is left
// behind when the program quits; those runs then end promptly with the status of a killed
// child. Runs started afterwards are not affected. Thread-safe.
void terminateRunningChildren();

// For a program that is quitting: from now on every run ends at once as a launch failure, and
// the children of runs in progress are killed. A phone read still on its way then cannot start
// its next tool behind the program's back. Thread-safe; there is no way back.
void refuseLaunchesAndTerminate();

} // namespace ambrel::CommandRunner
