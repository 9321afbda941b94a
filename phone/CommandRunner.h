#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "phone/CommandOutput.h"

namespace ambrel {
class ProcessLauncher;
}

namespace ambrel::CommandRunner {

inline constexpr std::size_t kCapturedBytesLimit = 65536;
inline constexpr std::chrono::milliseconds kTerminateGrace{500};
inline constexpr std::chrono::milliseconds kKillGrace{1000};
inline constexpr std::chrono::milliseconds kReaderJoin{1000};
inline constexpr const char* kLaunchFailure = "Unable to launch iPhone helper";
// Added to the signal number to make the status of a child that a signal ended, as shells do:
// a child killed by SIGKILL reports 137, one ended by SIGTERM 143.
inline constexpr std::int32_t kSignalStatusBase = 128;

// Runs `executable` with `arguments` through `launcher` (each argument passed as it is: no
// shell, no expansion), standard input on /dev/null, and waits at most `timeout` (monotonic)
// before SIGTERM, then kTerminateGrace before SIGKILL, then kKillGrace, then kReaderJoin for the
// output. Blocks for at most timeout + 2.5 s. Never call it on the main thread. Thread-safe.
//
// Each stream keeps its first kCapturedBytesLimit bytes, decoded as UTF-8 with ill-formed
// sequences replaced by U+FFFD. A path that cannot be started ends at once with status -1,
// empty stdout and stderr kLaunchFailure. The status is the exit code, or kSignalStatusBase +
// the signal number when a signal ended the child, or -1 when the child was still running when
// the runner gave up.
//
// `capturedBytes` raises or lowers the kept bytes for a tool known to print more.
CommandOutput run(ProcessLauncher& launcher, const std::filesystem::path& executable,
                  const std::vector<std::string>& arguments, std::chrono::milliseconds timeout,
                  std::size_t capturedBytes = kCapturedBytesLimit);

} // namespace ambrel::CommandRunner
