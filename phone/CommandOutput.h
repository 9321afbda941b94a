#pragma once

#include <cstdint>
#include <string>

namespace ambrel {

// How one tool run ended and what it printed.
struct CommandOutput {
    // Standard output, lossily decoded as UTF-8, from at most the first 65,536 bytes.
    std::string stdoutText;
    // The same for standard error.
    std::string stderrText;
    // The tool's termination status; -1 when it could not be started or was still running
    // when the runner gave up.
    std::int32_t status = -1;
    // The tool had not ended within the caller's time limit.
    bool timedOut = false;

    bool succeeded() const { return status == 0 && !timedOut; }
};

} // namespace ambrel
