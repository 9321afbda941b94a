#include "model/Utf8.h"

namespace ambrel {

namespace {

// The bounds of the second byte of a sequence starting with `lead`, and how many continuation
// bytes follow; those bounds exclude overlong forms, surrogates and values above U+10FFFF.
struct LeadByte {
    std::size_t continuationCount = 0;
    unsigned char secondLow = 0x80;
    unsigned char secondHigh = 0xBF;
};

std::optional<LeadByte> leadByte(unsigned char lead) {
    if (lead >= 0xC2 && lead <= 0xDF) {
        return LeadByte{1, 0x80, 0xBF};
    }
    if (lead == 0xE0) {
        return LeadByte{2, 0xA0, 0xBF};
    }
    if ((lead >= 0xE1 && lead <= 0xEC) || lead == 0xEE || lead == 0xEF) {
        return LeadByte{2, 0x80, 0xBF};
    }
    if (lead == 0xED) {
        return LeadByte{2, 0x80, 0x9F};
    }
    if (lead == 0xF0) {
        return LeadByte{3, 0x90, 0xBF};
    }
    if (lead >= 0xF1 && lead <= 0xF3) {
        return LeadByte{3, 0x80, 0xBF};
    }
    if (lead == 0xF4) {
        return LeadByte{3, 0x80, 0x8F};
    }
    return std::nullopt;
}

} // namespace

Utf8Step decodeUtf8At(std::string_view bytes, std::size_t position) {
    const auto lead = static_cast<unsigned char>(bytes[position]);
    if (lead < 0x80) {
        return {lead, 1};
    }
    const auto shape = leadByte(lead);
    if (!shape) {
        return {std::nullopt, 1};
    }
    char32_t value = lead & (0x3F >> shape->continuationCount);
    std::size_t next = position + 1;
    for (std::size_t index = 0; index < shape->continuationCount; ++index, ++next) {
        if (next >= bytes.size()) {
            return {std::nullopt, next - position};
        }
        const auto byte = static_cast<unsigned char>(bytes[next]);
        const unsigned char low = index == 0 ? shape->secondLow : 0x80;
        const unsigned char high = index == 0 ? shape->secondHigh : 0xBF;
        if (byte < low || byte > high) {
            return {std::nullopt, next - position};
        }
        value = (value << 6) | (byte & 0x3F);
    }
    return {value, next - position};
}

} // namespace ambrel
