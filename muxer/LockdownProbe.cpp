#include "muxer/LockdownProbe.h"

#include <cstdint>
#include <cstdlib>
#include <plist/plist.h>

#include "muxer/MuxChannel.h"
#include "muxer/MuxMessage.h"
#include "muxer/PlistNode.h"

namespace ambrel {

namespace {

// Lockdown frames each property list with its length, 4 bytes big-endian.
constexpr std::size_t kLengthSize = 4;

std::string bigEndian32(std::uint32_t value) {
    return {static_cast<char>(value >> 24), static_cast<char>(value >> 16),
            static_cast<char>(value >> 8), static_cast<char>(value)};
}

} // namespace

std::string startSessionRequest(const std::string& hostId, const std::string& systemBuid) {
    PlistNode request(plist_new_dict());
    plist_dict_set_item(request.get(), "Label", plist_new_string("tovrin"));
    plist_dict_set_item(request.get(), "ProtocolVersion", plist_new_string("2"));
    plist_dict_set_item(request.get(), "Request", plist_new_string("StartSession"));
    plist_dict_set_item(request.get(), "HostID", plist_new_string(hostId.c_str()));
    plist_dict_set_item(request.get(), "SystemBUID", plist_new_string(systemBuid.c_str()));
    char* xml = nullptr;
    std::uint32_t length = 0;
    plist_to_xml(request.get(), &xml, &length);
    std::string body = xml != nullptr ? std::string(xml, length) : std::string();
    std::free(xml);
    return bigEndian32(static_cast<std::uint32_t>(body.size())) + body;
}

ProbeAnswer probeAnswerOf(const std::string& replyBody) {
    const auto reply = parseMuxPlist(replyBody);
    if (!reply) {
        return ProbeAnswer::noAnswer;
    }
    if (stringIn(reply.get(), "Request") != "StartSession") {
        return ProbeAnswer::noAnswer;
    }
    if (const auto error = stringIn(reply.get(), "Error")) {
        return *error == "InvalidHostID" ? ProbeAnswer::otherPairing : ProbeAnswer::noAnswer;
    }
    const auto session = stringIn(reply.get(), "SessionID");
    return session && !session->empty() ? ProbeAnswer::holdsPairing : ProbeAnswer::noAnswer;
}

ProbeAnswer probeLockdown(const NetworkAddress& address, const std::string& hostId,
                          const std::string& systemBuid, std::chrono::milliseconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    // Rounded up: each step may end at the deadline, never before it.
    const auto left = [&] {
        return std::chrono::ceil<std::chrono::milliseconds>(deadline -
                                                            std::chrono::steady_clock::now());
    };
    const UniqueFd phone = connectTcp(address, limit);
    if (!phone.isValid()) {
        return ProbeAnswer::noAnswer;
    }
    const MuxChannel channel(phone.get(), -1);
    if (channel.writeAll(startSessionRequest(hostId, systemBuid), left()) != ChannelStatus::ok) {
        return ProbeAnswer::noAnswer;
    }
    std::string header;
    if (channel.readBytes(header, kLengthSize, left()) != ChannelStatus::ok) {
        return ProbeAnswer::noAnswer;
    }
    const auto length = (std::uint32_t{static_cast<unsigned char>(header[0])} << 24) |
                        (std::uint32_t{static_cast<unsigned char>(header[1])} << 16) |
                        (std::uint32_t{static_cast<unsigned char>(header[2])} << 8) |
                        std::uint32_t{static_cast<unsigned char>(header[3])};
    if (length == 0 || length > kLargestMuxMessage) {
        return ProbeAnswer::noAnswer;
    }
    std::string body;
    if (channel.readBytes(body, length, left()) != ChannelStatus::ok) {
        return ProbeAnswer::noAnswer;
    }
    return probeAnswerOf(body);
}

} // namespace ambrel
