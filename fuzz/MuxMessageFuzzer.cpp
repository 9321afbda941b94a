// One message as a client or another muxer could send it to the program's muxer: the header,
// then whatever bytes follow, parsed both as a request and as a reply.
#include <cstddef>
#include <cstdint>
#include <string_view>

#include "fuzz/FuzzCheck.h"
#include "muxer/MuxMessage.h"

using ambrel::fuzzing::check;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view message(reinterpret_cast<const char*>(data), size);
    const auto header = ambrel::decodeMuxHeader(message);
    check(header.has_value() == (size >= ambrel::kMuxHeaderSize), "every 16 bytes are a header");
    if (!header) {
        return 0;
    }
    check(ambrel::encodeMuxHeader(*header) == message.substr(0, ambrel::kMuxHeaderSize),
          "a header encodes back to its bytes");
    const auto payload = message.substr(ambrel::kMuxHeaderSize);

    if (const auto request = ambrel::parseMuxRequest(payload)) {
        const auto again =
            ambrel::encodeMuxMessage(header->tag, ambrel::muxRequestDictionary(*request, "fuzz"));
        const auto reparsed =
            ambrel::parseMuxRequest(std::string_view(again).substr(ambrel::kMuxHeaderSize));
        check(reparsed.has_value(), "a request we write parses");
        check(reparsed->type == request->type && reparsed->messageType == request->messageType,
              "a request keeps its type");
        check(reparsed->deviceId == request->deviceId && reparsed->port == request->port,
              "a request keeps its device and port");
    }

    if (const auto reply = ambrel::parseMuxReply(payload)) {
        if (reply->kind == ambrel::MuxReply::Kind::attached) {
            check(reply->device.has_value() && reply->device->deviceId > 0,
                  "an Attached event has a usable device");
        }
        if (const auto devices = ambrel::deviceListOf(*reply)) {
            const auto again = ambrel::encodeMuxDeviceList(header->tag, *devices);
            const auto reparsed =
                ambrel::parseMuxReply(std::string_view(again).substr(ambrel::kMuxHeaderSize));
            check(reparsed.has_value(), "a device list we write parses");
            const auto listed = ambrel::deviceListOf(*reparsed);
            check(listed.has_value() && listed->size() == devices->size(),
                  "a device list we write keeps every device");
            for (std::size_t i = 0; i < devices->size(); ++i) {
                check((*listed)[i].deviceId == (*devices)[i].deviceId &&
                          (*listed)[i].serialNumber == (*devices)[i].serialNumber &&
                          (*listed)[i].connection == (*devices)[i].connection,
                      "a listed device keeps its identity");
            }
        }
    }
    return 0;
}
