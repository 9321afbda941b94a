#pragma once

#include <chrono>
#include <string>

#include "muxer/NetworkAddress.h"

namespace ambrel {

// What a phone's lockdown said when asked to start a session for one of our pairings.
enum class ProbeAnswer {
    // It started one: the phone holds that pairing.
    holdsPairing,
    // "InvalidHostID": the phone does not know that pairing.
    otherPairing,
    // No connection, no reply in time, or any other reply (a locked phone, say): nothing learned.
    noAnswer,
};

// The lockdown request that asks for a session: the HostID and SystemBUID of a pairing, which
// libimobiledevice sends in the clear before any encryption, and nothing else. Pure.
std::string startSessionRequest(const std::string& hostId, const std::string& systemBuid);

// The meaning of lockdown's reply body (an XML property list) to that request. Pure.
ProbeAnswer probeAnswerOf(const std::string& replyBody);

// Asks lockdown at `address` whether it holds the pairing of `hostId`: connects, sends
// startSessionRequest() and reads the one reply, within `limit` in all, then hangs up without
// using the session. Blocks; run it off the main thread.
ProbeAnswer probeLockdown(const NetworkAddress& address, const std::string& hostId,
                          const std::string& systemBuid, std::chrono::milliseconds limit);

} // namespace ambrel
