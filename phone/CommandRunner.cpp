#include "phone/CommandRunner.h"

#include "phone/UnicodeText.h"
#include "platform/ProcessLauncher.h"

namespace ambrel::CommandRunner {

namespace {

std::int32_t statusOf(const LaunchResult& result) {
    if (result.exitCode) {
        return *result.exitCode;
    }
    if (result.signal) {
        return kSignalStatusBase + *result.signal;
    }
    return -1;
}

} // namespace

CommandOutput run(ProcessLauncher& launcher, const std::filesystem::path& executable,
                  const std::vector<std::string>& arguments, std::chrono::milliseconds timeout,
                  std::size_t capturedBytes) {
    LaunchOptions options;
    options.program = executable;
    options.arguments = arguments;
    options.timeLimit = timeout;
    options.terminateGrace = kTerminateGrace;
    options.killGrace = kKillGrace;
    options.outputDrainLimit = kReaderJoin;
    options.outputCap = capturedBytes;
    const auto result = launcher.launch(options);

    CommandOutput output;
    if (result.end == LaunchEnd::notStarted) {
        // The system's reason is not passed on: the user can do nothing with it.
        output.stderrText = kLaunchFailure;
        output.status = -1;
        output.timedOut = false;
        return output;
    }
    output.stdoutText = decodeUtf8Lossy(result.standardOutput);
    output.stderrText = decodeUtf8Lossy(result.standardError);
    output.status = statusOf(result);
    output.timedOut = result.end == LaunchEnd::killedAtTimeLimit;
    return output;
}

} // namespace ambrel::CommandRunner
