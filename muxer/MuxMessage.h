#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "muxer/MuxDevice.h"
#include "muxer/PlistNode.h"

namespace ambrel {

// The usbmuxd wire protocol as libusbmuxd speaks it: every message is a 16-byte header of four
// little-endian 32-bit words {length including the header, version, message, tag} followed by
// an XML property list. Requests and replies use version 1 and message 8.
inline constexpr std::size_t kMuxHeaderSize = 16;
inline constexpr std::uint32_t kMuxVersion = 1;
inline constexpr std::uint32_t kMuxPlistMessage = 8;
// Longest message taken from anyone, header included. The largest real one is a pair record
// being saved (about 7 KiB) or a long device list; anything near this is garbage.
inline constexpr std::size_t kLargestMuxMessage = 256 * 1024;
// Property lists that open more arrays and dictionaries than this are refused unparsed:
// libplist parses and frees nested values recursively.
inline constexpr std::size_t kMostMuxContainers = 64;

// The status numbers of a Result reply.
enum class MuxResult : std::uint32_t {
    ok = 0,
    badCommand = 1,
    badDevice = 2,
    connectionRefused = 3,
};

struct MuxHeader {
    std::uint32_t length = 0;
    std::uint32_t version = 0;
    std::uint32_t message = 0;
    std::uint32_t tag = 0;

    friend bool operator==(const MuxHeader&, const MuxHeader&) = default;
};

// The header at the start of `bytes`; absent when fewer than 16 bytes are given. Pure.
std::optional<MuxHeader> decodeMuxHeader(std::string_view bytes);

// Whether a message with this header can be taken: a plist message of our version whose length
// covers at least the header and at most kLargestMuxMessage. Pure.
bool isAcceptableMuxHeader(const MuxHeader& header);

// The header's 16 bytes. Pure.
std::string encodeMuxHeader(const MuxHeader& header);

// A whole message: header (version 1, plist, `tag`) and `dictionary` as XML. Pure.
std::string encodeMuxMessage(std::uint32_t tag, const PlistNode& dictionary);

// What a client asks for, by its MessageType.
enum class MuxRequestType {
    listDevices,
    listen,
    connect,
    readPairRecord,
    readBuid,
    savePairRecord,
    deletePairRecord,
    other,
};

struct MuxRequest {
    MuxRequestType type = MuxRequestType::other;
    // The MessageType as sent.
    std::string messageType;
    // Connect: the device and the port in host order (the client sends it byte-swapped).
    std::uint32_t deviceId = 0;
    std::uint16_t port = 0;
    // ReadPairRecord, SavePairRecord, DeletePairRecord.
    std::string pairRecordId;
};

// The request in a message's payload; absent when the payload is no XML property list with a
// dictionary at the top and a string MessageType, when MessageType or PairRecordID holds a
// NUL, or when it exceeds the limits above. Pure.
std::optional<MuxRequest> parseMuxRequest(std::string_view payload);

// The payload of a request of ours to another muxer: MessageType plus the keys `request`
// needs, the way libusbmuxd sends them (Connect's port byte-swapped). Pure.
PlistNode muxRequestDictionary(const MuxRequest& request, std::string_view programName);

// What another muxer answered, classified the way libusbmuxd classifies it.
struct MuxReply {
    enum class Kind {
        // {MessageType: Result, Number: n}
        result,
        // {MessageType: Attached, Properties: {...}}
        attached,
        // {MessageType: Detached, DeviceID: n}
        detached,
        // {MessageType: Paired, DeviceID: n}
        paired,
        // a dictionary without MessageType: the answer itself (device list, BUID, pair record)
        answer,
    };
    Kind kind = Kind::answer;
    std::uint32_t number = 0;
    std::uint32_t deviceId = 0;
    std::optional<MuxDevice> device;
    PlistNode dictionary;
};

// The reply in a message's payload; absent when it does not parse, carries an unknown
// MessageType, or an Attached event whose device is unusable. Pure.
std::optional<MuxReply> parseMuxReply(std::string_view payload);

// The devices of a ListDevices answer (its DeviceList). Absent when there is no DeviceList or
// one entry is unusable: libusbmuxd rejects the whole list then, and so do we. Pure.
std::optional<std::vector<MuxDevice>> deviceListOf(const MuxReply& reply);

// Replies we send. Pure.
std::string encodeMuxResult(std::uint32_t tag, MuxResult result);
std::string encodeMuxDeviceList(std::uint32_t tag, const std::vector<MuxDevice>& devices);
std::string encodeMuxAttached(std::uint32_t tag, const MuxDevice& device);
std::string encodeMuxDetached(std::uint32_t tag, std::uint32_t deviceId);
std::string encodeMuxBuid(std::uint32_t tag, std::string_view buid);
std::string encodeMuxPairRecord(std::uint32_t tag, std::string_view recordData);

// The text of a string in a dictionary, NULs included; absent when the key is missing or not a
// string.
std::optional<std::string> stringIn(plist_t dictionary, const char* key);
// The value of an unsigned integer in a dictionary; absent when missing or not an integer.
std::optional<std::uint64_t> integerIn(plist_t dictionary, const char* key);
// The bytes of a data value in a dictionary; absent when missing or not data.
std::optional<std::string> dataIn(plist_t dictionary, const char* key);

// The dictionary of an XML property list within the limits above and without a NUL in any text;
// empty otherwise. Pure.
PlistNode parseMuxPlist(std::string_view xml);

} // namespace ambrel
