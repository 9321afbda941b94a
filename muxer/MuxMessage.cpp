#include "muxer/MuxMessage.h"

#include <cstdlib>
#include <cstring>
#include <memory>

#include "model/XmlContainers.h"

namespace ambrel {

namespace {

struct MallocFree {
    void operator()(void* memory) const { std::free(memory); }
};

std::uint32_t readWord(std::string_view bytes, std::size_t offset) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        value |= static_cast<std::uint32_t>(static_cast<std::uint8_t>(bytes[offset + i]))
                 << (8 * i);
    }
    return value;
}

void appendWord(std::string& bytes, std::uint32_t value) {
    for (std::size_t i = 0; i < 4; ++i) {
        bytes.push_back(static_cast<char>((value >> (8 * i)) & 0xFF));
    }
}

struct RequestName {
    const char* text;
    MuxRequestType type;
};

constexpr RequestName kRequestNames[] = {
    {"ListDevices", MuxRequestType::listDevices},
    {"Listen", MuxRequestType::listen},
    {"Connect", MuxRequestType::connect},
    {"ReadPairRecord", MuxRequestType::readPairRecord},
    {"ReadBUID", MuxRequestType::readBuid},
    {"SavePairRecord", MuxRequestType::savePairRecord},
    {"DeletePairRecord", MuxRequestType::deletePairRecord},
};

std::uint16_t swapBytes(std::uint16_t value) {
    return static_cast<std::uint16_t>(((value & 0xFF) << 8) | (value >> 8));
}

PlistNode dictionaryWith(const char* key, plist_t value) {
    PlistNode dictionary(plist_new_dict());
    plist_dict_set_item(dictionary.get(), key, value);
    return dictionary;
}

bool holdsNul(const char* text, std::uint64_t length) {
    return text != nullptr && std::memchr(text, '\0', length) != nullptr;
}

// Whether a string or key anywhere in `node` holds a NUL. libplist 2.2 keeps such a text with
// its full length but writes it back with strlen, reading past its buffer.
bool hasTextWithNul(plist_t node) {
    switch (plist_get_node_type(node)) {
    case PLIST_STRING:
    case PLIST_KEY: {
        std::uint64_t length = 0;
        const char* text = plist_get_string_ptr(node, &length);
        return holdsNul(text, length);
    }
    case PLIST_ARRAY: {
        const std::uint32_t count = plist_array_get_size(node);
        for (std::uint32_t i = 0; i < count; ++i) {
            if (hasTextWithNul(plist_array_get_item(node, i))) {
                return true;
            }
        }
        return false;
    }
    case PLIST_DICT: {
        plist_dict_iter iterator = nullptr;
        plist_dict_new_iter(node, &iterator);
        const std::unique_ptr<void, MallocFree> owned(iterator);
        while (iterator != nullptr) {
            char* rawKey = nullptr;
            plist_t value = nullptr;
            plist_dict_next_item(node, iterator, &rawKey, &value);
            const std::unique_ptr<char, MallocFree> key(rawKey);
            if (!key || value == nullptr) {
                return false;
            }
            if (hasTextWithNul(plist_dict_item_get_key(value)) || hasTextWithNul(value)) {
                return true;
            }
        }
        return false;
    }
    default:
        return false;
    }
}

// The value under `key` when it is of `type`; null otherwise.
plist_t typedItem(plist_t dictionary, const char* key, plist_type type) {
    const plist_t node = plist_dict_get_item(dictionary, key);
    return node != nullptr && plist_get_node_type(node) == type ? node : nullptr;
}

// The bytes of the value under `key` when it is of `type`, read with `read` and their length.
std::optional<std::string> bytesIn(plist_t dictionary, const char* key, plist_type type,
                                   const char* (*read)(plist_t, std::uint64_t*)) {
    const plist_t node = typedItem(dictionary, key, type);
    if (node == nullptr) {
        return std::nullopt;
    }
    std::uint64_t length = 0;
    const char* bytes = read(node, &length);
    return bytes != nullptr ? std::string(bytes, length) : std::string();
}

} // namespace

std::optional<MuxHeader> decodeMuxHeader(std::string_view bytes) {
    if (bytes.size() < kMuxHeaderSize) {
        return std::nullopt;
    }
    return MuxHeader{readWord(bytes, 0), readWord(bytes, 4), readWord(bytes, 8),
                     readWord(bytes, 12)};
}

bool isAcceptableMuxHeader(const MuxHeader& header) {
    return header.version == kMuxVersion && header.message == kMuxPlistMessage &&
           header.length >= kMuxHeaderSize && header.length <= kLargestMuxMessage;
}

std::string encodeMuxHeader(const MuxHeader& header) {
    std::string bytes;
    bytes.reserve(kMuxHeaderSize);
    appendWord(bytes, header.length);
    appendWord(bytes, header.version);
    appendWord(bytes, header.message);
    appendWord(bytes, header.tag);
    return bytes;
}

std::string encodeMuxMessage(std::uint32_t tag, const PlistNode& dictionary) {
    char* xml = nullptr;
    std::uint32_t length = 0;
    plist_to_xml(dictionary.get(), &xml, &length);
    const std::unique_ptr<char, MallocFree> owned(xml);
    const std::string_view payload = xml != nullptr ? std::string_view(xml, length) : "";
    std::string message =
        encodeMuxHeader({static_cast<std::uint32_t>(kMuxHeaderSize + payload.size()), kMuxVersion,
                         kMuxPlistMessage, tag});
    message.append(payload);
    return message;
}

PlistNode parseMuxPlist(std::string_view xml) {
    if (xml.empty() || xml.size() > kLargestMuxMessage ||
        xml.find('\0') != std::string_view::npos || xmlContainerCount(xml) > kMostMuxContainers) {
        return {};
    }
    plist_t raw = nullptr;
    plist_from_xml(xml.data(), static_cast<std::uint32_t>(xml.size()), &raw);
    PlistNode node(raw);
    if (!node || plist_get_node_type(node.get()) != PLIST_DICT || hasTextWithNul(node.get())) {
        return {};
    }
    return node;
}

std::optional<std::string> stringIn(plist_t dictionary, const char* key) {
    // Read with its length: plist_get_string_val asserts on a text with a NUL inside.
    return bytesIn(dictionary, key, PLIST_STRING, plist_get_string_ptr);
}

std::optional<std::uint64_t> integerIn(plist_t dictionary, const char* key) {
    const plist_t node = typedItem(dictionary, key, PLIST_UINT);
    if (node == nullptr) {
        return std::nullopt;
    }
    std::uint64_t value = 0;
    plist_get_uint_val(node, &value);
    return value;
}

std::optional<std::string> dataIn(plist_t dictionary, const char* key) {
    return bytesIn(dictionary, key, PLIST_DATA, plist_get_data_ptr);
}

std::optional<MuxRequest> parseMuxRequest(std::string_view payload) {
    const PlistNode dictionary = parseMuxPlist(payload);
    if (!dictionary) {
        return std::nullopt;
    }
    auto messageType = stringIn(dictionary.get(), "MessageType");
    auto pairRecordId = stringIn(dictionary.get(), "PairRecordID").value_or("");
    // usbmuxd reads both as C strings; a NUL inside would make them mean something else there
    // than here.
    if (!messageType || messageType->find('\0') != std::string::npos ||
        pairRecordId.find('\0') != std::string::npos) {
        return std::nullopt;
    }
    MuxRequest request;
    request.messageType = std::move(*messageType);
    for (const auto& name : kRequestNames) {
        if (request.messageType == name.text) {
            request.type = name.type;
        }
    }
    if (request.type == MuxRequestType::connect) {
        request.deviceId =
            static_cast<std::uint32_t>(integerIn(dictionary.get(), "DeviceID").value_or(0));
        request.port = swapBytes(
            static_cast<std::uint16_t>(integerIn(dictionary.get(), "PortNumber").value_or(0)));
    }
    request.pairRecordId = std::move(pairRecordId);
    return request;
}

PlistNode muxRequestDictionary(const MuxRequest& request, std::string_view programName) {
    PlistNode dictionary(plist_new_dict());
    plist_t raw = dictionary.get();
    plist_dict_set_item(raw, "MessageType", plist_new_string(request.messageType.c_str()));
    plist_dict_set_item(raw, "ProgName", plist_new_string(std::string(programName).c_str()));
    plist_dict_set_item(raw, "kLibUSBMuxVersion", plist_new_uint(3));
    if (request.type == MuxRequestType::connect) {
        plist_dict_set_item(raw, "DeviceID", plist_new_uint(request.deviceId));
        plist_dict_set_item(raw, "PortNumber", plist_new_uint(swapBytes(request.port)));
    }
    if (!request.pairRecordId.empty()) {
        plist_dict_set_item(raw, "PairRecordID", plist_new_string(request.pairRecordId.c_str()));
    }
    return dictionary;
}

std::optional<MuxReply> parseMuxReply(std::string_view payload) {
    PlistNode dictionary = parseMuxPlist(payload);
    if (!dictionary) {
        return std::nullopt;
    }
    MuxReply reply;
    const plist_t typeNode = plist_dict_get_item(dictionary.get(), "MessageType");
    if (typeNode == nullptr || plist_get_node_type(typeNode) != PLIST_STRING) {
        reply.kind = MuxReply::Kind::answer;
        reply.dictionary = std::move(dictionary);
        return reply;
    }
    const auto type = stringIn(dictionary.get(), "MessageType").value_or("");
    if (type == "Result") {
        reply.kind = MuxReply::Kind::result;
        reply.number =
            static_cast<std::uint32_t>(integerIn(dictionary.get(), "Number").value_or(0));
    } else if (type == "Attached") {
        const plist_t properties = plist_dict_get_item(dictionary.get(), "Properties");
        if (properties == nullptr || plist_get_node_type(properties) != PLIST_DICT) {
            return std::nullopt;
        }
        reply.device = deviceFromProperties(properties);
        if (!reply.device) {
            return std::nullopt;
        }
        reply.kind = MuxReply::Kind::attached;
        reply.deviceId = reply.device->deviceId;
    } else if (type == "Detached" || type == "Paired") {
        const auto deviceId = integerIn(dictionary.get(), "DeviceID");
        if (!deviceId) {
            return std::nullopt;
        }
        reply.kind = type == "Detached" ? MuxReply::Kind::detached : MuxReply::Kind::paired;
        reply.deviceId = static_cast<std::uint32_t>(*deviceId);
    } else {
        return std::nullopt;
    }
    reply.dictionary = std::move(dictionary);
    return reply;
}

std::optional<std::vector<MuxDevice>> deviceListOf(const MuxReply& reply) {
    if (reply.kind != MuxReply::Kind::answer || !reply.dictionary) {
        return std::nullopt;
    }
    const plist_t list = plist_dict_get_item(reply.dictionary.get(), "DeviceList");
    if (list == nullptr || plist_get_node_type(list) != PLIST_ARRAY) {
        return std::nullopt;
    }
    std::vector<MuxDevice> devices;
    const std::uint32_t count = plist_array_get_size(list);
    for (std::uint32_t i = 0; i < count; ++i) {
        const plist_t entry = plist_array_get_item(list, i);
        const plist_t properties = entry != nullptr && plist_get_node_type(entry) == PLIST_DICT
                                       ? plist_dict_get_item(entry, "Properties")
                                       : nullptr;
        if (properties == nullptr || plist_get_node_type(properties) != PLIST_DICT) {
            return std::nullopt;
        }
        auto device = deviceFromProperties(properties);
        if (!device) {
            return std::nullopt;
        }
        devices.push_back(std::move(*device));
    }
    return devices;
}

std::string encodeMuxResult(std::uint32_t tag, MuxResult result) {
    PlistNode dictionary = dictionaryWith("MessageType", plist_new_string("Result"));
    plist_dict_set_item(dictionary.get(), "Number",
                        plist_new_uint(static_cast<std::uint32_t>(result)));
    return encodeMuxMessage(tag, dictionary);
}

namespace {

PlistNode attachedDictionary(const MuxDevice& device) {
    PlistNode dictionary = dictionaryWith("DeviceID", plist_new_uint(device.deviceId));
    plist_dict_set_item(dictionary.get(), "MessageType", plist_new_string("Attached"));
    plist_dict_set_item(dictionary.get(), "Properties", devicePropertiesOf(device).release());
    return dictionary;
}

} // namespace

std::string encodeMuxDeviceList(std::uint32_t tag, const std::vector<MuxDevice>& devices) {
    PlistNode list(plist_new_array());
    for (const auto& device : devices) {
        plist_array_append_item(list.get(), attachedDictionary(device).release());
    }
    return encodeMuxMessage(tag, dictionaryWith("DeviceList", list.release()));
}

std::string encodeMuxAttached(std::uint32_t tag, const MuxDevice& device) {
    return encodeMuxMessage(tag, attachedDictionary(device));
}

std::string encodeMuxDetached(std::uint32_t tag, std::uint32_t deviceId) {
    PlistNode dictionary = dictionaryWith("MessageType", plist_new_string("Detached"));
    plist_dict_set_item(dictionary.get(), "DeviceID", plist_new_uint(deviceId));
    return encodeMuxMessage(tag, dictionary);
}

std::string encodeMuxBuid(std::uint32_t tag, std::string_view buid) {
    return encodeMuxMessage(tag,
                            dictionaryWith("BUID", plist_new_string(std::string(buid).c_str())));
}

std::string encodeMuxPairRecord(std::uint32_t tag, std::string_view recordData) {
    return encodeMuxMessage(
        tag,
        dictionaryWith("PairRecordData", plist_new_data(recordData.data(), recordData.size())));
}

} // namespace ambrel
