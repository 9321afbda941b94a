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

// Runs `executable` with `arguments` (each passed as it is: no shell, no expansion), standard
// input on /dev/null, and waits at most `timeout` seconds (monotonic) before SIGTERM, then
// SIGKILL. Blocks for at most timeout + 2.5 s. Never call it on the main thread. Thread-safe.
CommandOutput run(const std::filesystem::path& executable,
                  const std::vector<std::string>& arguments, double timeout);

} // namespace ambrel::CommandRunner
