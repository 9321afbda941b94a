#pragma once

#include <string>
#include <vector>

#include "diagnosis/ConnectionProbe.h"

namespace ambrel {

enum class CheckStatus { passed, failed, skipped };

struct CheckResult {
    // A short identifier ("systemMuxer"), stable for scripts.
    std::string name;
    // What the check looks at, for people ("The system’s usbmuxd answers").
    std::string title;
    CheckStatus status = CheckStatus::skipped;
    // Passed: what was found. Failed: one sentence saying what to do next. Skipped: which
    // earlier check it waits for.
    std::string message;
    // Failed: why, in one word a window can pick its own texts by: "missing" (the phone tools),
    // "helperMissing", "notInstalled", "notRunning", "noPhone", "locked", "denied",
    // "notPaired", "timedOut", "helperBroken", "refused" (the phone answered with an error),
    // "off", "notSeen", "neverPaired", "unknownAddress", "unreachable", "noLevel". Empty
    // otherwise.
    std::string cause;
};

struct ConnectionReport {
    std::vector<CheckResult> checks;
    // Every check passed.
    bool ok = false;
    // The phone can be read over the cable (its checks up to trust passed) or over Wi-Fi (its
    // battery was read there): either is a working setup.
    bool readableOverUsb = false;
    bool readableOverWifi = false;
    // One sentence about the whole: what works, and the one thing to do.
    std::string summary;

    bool readable() const { return readableOverUsb || readableOverWifi; }
};

// Where the check's advice is shown, so that it never sends the user to the place they are.
enum class CheckPlace { commandLine, connectionWindow };

// The connection check: why the phone is, or is not, read over Wi-Fi, link by link. Ten checks
// in a fixed order; a check that needs one that failed (or was skipped) is skipped. Blocks
// while the probe works: never on the main thread.
class ConnectionCheck {
public:
    static constexpr int kCheckCount = 10;

    static ConnectionReport run(ConnectionProbe& probe, CheckPlace place = CheckPlace::commandLine);

    // {"checks":[{"name":…,"status":…,"message":…}],"ok":…,"readableOver":["usb",…],
    // "summary":…} on one line. Pure.
    static std::string toJson(const ConnectionReport& report);
    // One line per check, "passed"/"failed"/"skipped" with the title and message, then the
    // summary. Pure.
    static std::string toText(const ConnectionReport& report);
    static const char* statusName(CheckStatus status);
    // One sentence saying what to do about a failed exchange with the phone. Pure.
    static std::string adviceFor(const LockdownError& error,
                                 CheckPlace place = CheckPlace::commandLine);
};

} // namespace ambrel
