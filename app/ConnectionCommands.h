#pragma once

#include <string>
#include <vector>

#include "diagnosis/ConnectionProbe.h"
#include "diagnosis/SystemConnectionProbe.h"

namespace ambrel::ConnectionCommands {

struct Outcome {
    std::string output;
    int exitCode = 1;
};

// "--enable-wifi [UDID]": turns on the Wi-Fi connections of the phone with UDID, or of the
// first phone on USB, over USB. One JSON line: {"udid":…,"wifiConnections":true} and exit 0
// when they are now on; else {"error":…,"message":…,"udid":…,"wifiConnections":false} (no
// "udid" when no phone was found) and exit 1. Blocks: never on the main thread.
Outcome enableWifi(const LockdownHelper& helper, const std::string& udid);

// "--diagnose [--text]": the connection check as one JSON line, or as text for people; exit 0
// when every check passed. Blocks: never on the main thread.
Outcome diagnose(ConnectionProbe& probe, bool asText);

// The UDID given after "--enable-wifi"; empty when none (or another switch follows).
std::string enableWifiUdid(const std::vector<std::string>& arguments);

// Runs the command `arguments` ask for ("--enable-wifi" or "--diagnose") on a thread of its own,
// prints its output and returns its exit code.
int run(const std::vector<std::string>& arguments, const SystemConnectionProbe::Setup& setup);

bool isRequested(const std::vector<std::string>& arguments);

} // namespace ambrel::ConnectionCommands
