#include "phone/UnicodeText.h"

#include <cstdint>
#include <memory>
#include <optional>
#include <utility>

#include <unicode/ubrk.h>
#include <unicode/utext.h>

namespace ambrel {

namespace {

constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";

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

// Decodes the sequence at `position`. When it is ill-formed, `length` is the size of its
// maximal well-formed prefix (at least 1) and the value is absent.
std::pair<std::optional<char32_t>, std::size_t> decodeAt(std::string_view bytes,
                                                         std::size_t position) {
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

bool isWhitespaceOrNewline(char32_t value) {
    switch (value) {
    case 0x09:
    case 0x0A:
    case 0x0B:
    case 0x0C:
    case 0x0D:
    case 0x20:
    case 0x85:
    case 0xA0:
    case 0x1680:
    case 0x2028:
    case 0x2029:
    case 0x202F:
    case 0x205F:
    case 0x3000:
        return true;
    default:
        return value >= 0x2000 && value <= 0x200A;
    }
}

} // namespace

std::string decodeUtf8Lossy(std::string_view bytes) {
    std::string text;
    text.reserve(bytes.size());
    std::size_t position = 0;
    while (position < bytes.size()) {
        const auto [value, length] = decodeAt(bytes, position);
        if (value) {
            text.append(bytes.substr(position, length));
        } else {
            text.append(kReplacementCharacter);
        }
        position += length;
    }
    return text;
}

std::string_view trimmingWhitespaceAndNewlines(std::string_view text) {
    std::optional<std::size_t> start;
    std::size_t end = 0;
    std::size_t position = 0;
    while (position < text.size()) {
        const auto [value, length] = decodeAt(text, position);
        if (!value || !isWhitespaceOrNewline(*value)) {
            if (!start) {
                start = position;
            }
            end = position + length;
        }
        position += length;
    }
    if (!start) {
        return text.substr(text.size());
    }
    return text.substr(*start, end - *start);
}

std::size_t characterCount(std::string_view text) {
    if (text.empty()) {
        return 0;
    }
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<UText, decltype(&utext_close)> utext(
        utext_openUTF8(nullptr, text.data(), static_cast<std::int64_t>(text.size()), &status),
        &utext_close);
    std::unique_ptr<UBreakIterator, decltype(&ubrk_close)> breaks(
        ubrk_open(UBRK_CHARACTER, "", nullptr, 0, &status), &ubrk_close);
    if (U_SUCCESS(status)) {
        ubrk_setUText(breaks.get(), utext.get(), &status);
    }
    std::size_t count = 0;
    if (U_SUCCESS(status)) {
        while (ubrk_next(breaks.get()) != UBRK_DONE) {
            ++count;
        }
        return count;
    }
    // Without break data, count code points: never fewer than the characters, so a length
    // limit errs on the strict side.
    for (std::size_t position = 0; position < text.size(); ++count) {
        position += decodeAt(text, position).second;
    }
    return count;
}

} // namespace ambrel
