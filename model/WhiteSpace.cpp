#include "model/WhiteSpace.h"

#include <optional>

#include "model/Utf8.h"

namespace ambrel {

bool isWhitespaceOrNewline(char32_t character) {
    switch (character) {
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
        return character >= 0x2000 && character <= 0x200A;
    }
}

std::string_view trimmingWhitespaceAndNewlines(std::string_view text) {
    std::optional<std::size_t> start;
    std::size_t end = 0;
    std::size_t position = 0;
    while (position < text.size()) {
        const auto step = decodeUtf8At(text, position);
        if (!step.value || !isWhitespaceOrNewline(*step.value)) {
            if (!start) {
                start = position;
            }
            end = position + step.length;
        }
        position += step.length;
    }
    if (!start) {
        return text.substr(text.size());
    }
    return text.substr(*start, end - *start);
}

std::string_view trimmingAsciiBlanks(std::string_view text) {
    const auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; };
    while (!text.empty() && isBlank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isBlank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

} // namespace ambrel
