#pragma once

#include <cstddef>
#include <optional>
#include <string_view>

namespace ambrel {

// One step of reading UTF-8: the code point at a position, or, when the bytes there are
// ill-formed, nothing, with `length` the size of their maximal well-formed prefix (at least 1),
// the unit the Unicode standard recommends replacing by one U+FFFD.
struct Utf8Step {
    std::optional<char32_t> value;
    std::size_t length = 1;
};

// Decodes the sequence at `position` (< bytes.size()). Overlong forms, surrogates and values
// above U+10FFFF are ill-formed.
Utf8Step decodeUtf8At(std::string_view bytes, std::size_t position);

} // namespace ambrel
