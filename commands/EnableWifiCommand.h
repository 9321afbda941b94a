#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "commands/PhoneConnectionCommand.h"
#include "phone/LockdownHelper.h"

namespace ambrel {

// "--enable-wifi [UDID]": turns on the Wi-Fi connections of the phone with UDID, or of the first
// phone on USB, over USB. One JSON line: {"udid":…,"wifiConnections":true} and exit 0 when they
// are now on; else {"error":…,"message":…,"udid":…,"wifiConnections":false} (no "udid" when no
// phone was found) and exit 1.
class EnableWifiCommand final : public PhoneConnectionCommand {
public:
    // What the command prints and its exit code.
    struct Outcome {
        std::string output;
        int exitCode = 1;
    };

    // `setup` is asked once the program's own muxer runs; the helper runs on `worker`.
    EnableWifiCommand(std::function<SystemConnectionProbe::Setup()> setup,
                      std::shared_ptr<Worker> worker);

    int run(const Invocation& invocation) override;

    // Turns the phone's Wi-Fi connections on through `helper`. Blocks: never on the main thread.
    static Outcome enable(const LockdownHelper& helper, const std::string& udid);
    // Whether `text` has the form of a phone's UDID.
    static bool looksLikeUdid(std::string_view text);
    // A UDID of that form as the phone itself gives it.
    static std::string canonicalUdid(std::string udid);
    // The UDID given after "--enable-wifi"; empty when none (or another switch follows).
    static std::string udidArgument(const std::vector<std::string>& arguments);
};

} // namespace ambrel
