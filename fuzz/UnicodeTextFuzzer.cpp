// The lossy UTF-8 decoding every tool output goes through, and the trimming and character
// counting that the identifier and key readings apply to it.
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "fuzz/FuzzCheck.h"
#include "model/WhiteSpace.h"
#include "phone/UnicodeText.h"

using ambrel::fuzzing::check;

namespace {

// Strict well-formedness (Unicode Table 3-7): no overlong forms, no surrogates, nothing past
// U+10FFFF.
bool isWellFormedUtf8(std::string_view text) {
    std::size_t position = 0;
    while (position < text.size()) {
        const auto lead = static_cast<unsigned char>(text[position]);
        std::size_t length = 0;
        unsigned char low = 0x80;
        unsigned char high = 0xBF;
        if (lead < 0x80) {
            ++position;
            continue;
        }
        if (lead >= 0xC2 && lead <= 0xDF) {
            length = 2;
        } else if (lead >= 0xE0 && lead <= 0xEF) {
            length = 3;
            low = lead == 0xE0 ? 0xA0 : 0x80;
            high = lead == 0xED ? 0x9F : 0xBF;
        } else if (lead >= 0xF0 && lead <= 0xF4) {
            length = 4;
            low = lead == 0xF0 ? 0x90 : 0x80;
            high = lead == 0xF4 ? 0x8F : 0xBF;
        } else {
            return false;
        }
        if (position + length > text.size()) {
            return false;
        }
        for (std::size_t index = 1; index < length; ++index) {
            const auto next = static_cast<unsigned char>(text[position + index]);
            const unsigned char from = index == 1 ? low : 0x80;
            const unsigned char to = index == 1 ? high : 0xBF;
            if (next < from || next > to) {
                return false;
            }
        }
        position += length;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes(reinterpret_cast<const char*>(data), size);
    const std::string decoded = ambrel::decodeUtf8Lossy(bytes);
    check(isWellFormedUtf8(decoded), "decoding always gives well-formed UTF-8");
    check(ambrel::decodeUtf8Lossy(decoded) == decoded, "well-formed text decodes to itself");
    if (isWellFormedUtf8(bytes)) {
        check(decoded == bytes, "well-formed input is kept as it is");
    }
    // Each ill-formed byte becomes at most one three-byte replacement character.
    check(decoded.size() <= 3 * size, "decoding at most triples the size");

    const std::string_view trimmed = ambrel::trimmingWhitespaceAndNewlines(decoded);
    check(trimmed.data() >= decoded.data() &&
              trimmed.data() + trimmed.size() <= decoded.data() + decoded.size(),
          "the trimmed text lies inside the text");
    check(ambrel::trimmingWhitespaceAndNewlines(trimmed) == trimmed, "trimming is idempotent");
    check(isWellFormedUtf8(trimmed), "trimming never cuts a character apart");

    const std::size_t characters = ambrel::characterCount(decoded);
    check(characters <= decoded.size(), "no more characters than bytes");
    check((characters == 0) == decoded.empty(), "only empty text has no characters");
    return 0;
}
