#pragma once

#include <string_view>

namespace ambrel {

// The program's one notion of white space: Unicode's White_Space characters, that is tab, LF,
// VT, FF, CR, U+0085 and every space or separator (U+0020, U+00A0, U+1680, U+2000 to U+200A,
// U+2028, U+2029, U+202F, U+205F, U+3000).
bool isWhitespaceOrNewline(char32_t character);

// `text` without leading and trailing white space. `text` is UTF-8; bytes that are not
// well-formed count as content. The view points into `text`.
std::string_view trimmingWhitespaceAndNewlines(std::string_view text);

// `text` without leading and trailing ASCII blanks (space, tab, CR, LF): for the system's own
// files (kernel attributes, desktop entries, machine-info), whose formats know no other blanks.
// The view points into `text`.
std::string_view trimmingAsciiBlanks(std::string_view text);

} // namespace ambrel
