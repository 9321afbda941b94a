#include "phone/PropertyList.h"

#include <cstdint>
#include <cstdlib>
#include <memory>

#include <plist/plist.h>

namespace ambrel {

namespace {

constexpr std::string_view kXmlMarker = "<?xml";

struct PlistFree {
    void operator()(plist_t node) const { plist_free(node); }
};
using PlistHandle = std::unique_ptr<void, PlistFree>;

struct MallocFree {
    void operator()(void* memory) const { std::free(memory); }
};

bool isXmlSpace(char character) {
    return character == ' ' || character == '\t' || character == '\n' || character == '\r';
}

// Whether `text` is a decimal integer that a property list can hold: an optional sign, then
// digits whose value lies between -2^63 and 2^64 - 1, white space allowed around it.
bool isRepresentableInteger(std::string_view text) {
    while (!text.empty() && isXmlSpace(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isXmlSpace(text.back())) {
        text.remove_suffix(1);
    }
    const bool isNegative = !text.empty() && text.front() == '-';
    if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
        text.remove_prefix(1);
    }
    if (text.empty()) {
        return false;
    }
    const std::uint64_t limit = isNegative ? (std::uint64_t{1} << 63) : ~std::uint64_t{0};
    std::uint64_t value = 0;
    for (const char character : text) {
        if (character < '0' || character > '9') {
            return false;
        }
        const auto digit = static_cast<std::uint64_t>(character - '0');
        if (value > (limit - digit) / 10) {
            return false;
        }
        value = value * 10 + digit;
    }
    return true;
}

// libplist 2.2 does not refuse an integer it cannot hold: a negative one past -2^63 comes back
// as 1, a plausible percentage. So every <integer> element must hold a plain decimal number in
// range, or the document is refused, as the system's own parser refuses it.
bool hasOnlyRepresentableIntegers(std::string_view document) {
    constexpr std::string_view kOpen = "<integer";
    constexpr std::string_view kClose = "</integer";
    for (auto open = document.find(kOpen); open != std::string_view::npos;
         open = document.find(kOpen, open + kOpen.size())) {
        const auto tagEnd = document.find('>', open);
        if (tagEnd == std::string_view::npos) {
            return false;
        }
        if (document[tagEnd - 1] == '/') {
            continue;
        }
        const auto close = document.find(kClose, tagEnd);
        if (close == std::string_view::npos ||
            !isRepresentableInteger(document.substr(tagEnd + 1, close - tagEnd - 1))) {
            return false;
        }
    }
    return true;
}

PropertyValue valueOf(plist_t node) {
    switch (plist_get_node_type(node)) {
    case PLIST_BOOLEAN: {
        std::uint8_t value = 0;
        plist_get_bool_val(node, &value);
        return PropertyValue::boolean(value != 0);
    }
    case PLIST_UINT: {
        // libplist 2.2 keeps every integer, negative ones too, as 64 unsigned bits: read back
        // as signed, "-1" is -1 again rather than 2^64 - 1.
        std::uint64_t bits = 0;
        plist_get_uint_val(node, &bits);
        return PropertyValue::integer(static_cast<std::int64_t>(bits));
    }
    case PLIST_REAL: {
        double value = 0.0;
        plist_get_real_val(node, &value);
        return PropertyValue::real(value);
    }
    case PLIST_STRING: {
        // Read with its length: libplist's plist_get_string_val asserts that the text holds no
        // NUL byte, and a tool's output may hold one, which would abort the whole program.
        std::uint64_t length = 0;
        const char* text = plist_get_string_ptr(node, &length);
        return PropertyValue::string(text ? std::string(text, static_cast<std::size_t>(length))
                                          : std::string());
    }
    default:
        return PropertyValue::other();
    }
}

} // namespace

std::optional<PropertyDictionary> parsePropertyList(std::string_view toolOutput) {
    return parsePropertyList(toolOutput, {}, kMostPropertyListContainers);
}

std::optional<PropertyDictionary> parsePropertyList(std::string_view toolOutput,
                                                    const std::vector<std::string>& path,
                                                    std::size_t mostContainers) {
    const auto marker = toolOutput.find(kXmlMarker);
    if (marker == std::string_view::npos) {
        return std::nullopt;
    }
    const std::string_view document = toolOutput.substr(marker);
    if (document.size() > kLargestPropertyList || xmlContainerCount(document) > mostContainers ||
        !hasOnlyRepresentableIntegers(document)) {
        return std::nullopt;
    }

    plist_t raw = nullptr;
    plist_from_memory(document.data(), static_cast<std::uint32_t>(document.size()), &raw);
    const PlistHandle root(raw);
    plist_t node = root.get();
    if (!node || plist_get_node_type(node) != PLIST_DICT) {
        return std::nullopt;
    }
    for (const auto& key : path) {
        node = plist_dict_get_item(node, key.c_str());
        if (node == nullptr || plist_get_node_type(node) != PLIST_DICT) {
            return std::nullopt;
        }
    }

    PropertyDictionary dictionary;
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(node, &iterator);
    const std::unique_ptr<void, MallocFree> ownedIterator(iterator);
    while (iterator != nullptr) {
        char* rawKey = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(node, iterator, &rawKey, &value);
        const std::unique_ptr<char, MallocFree> key(rawKey);
        if (!key || value == nullptr) {
            break;
        }
        dictionary.emplace(key.get(), valueOf(value));
    }
    return dictionary;
}

} // namespace ambrel
