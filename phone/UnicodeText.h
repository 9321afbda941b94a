#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace ambrel {

// Decodes `bytes` as UTF-8 and returns it re-encoded, with every ill-formed sequence replaced
// by U+FFFD (one replacement per maximal ill-formed subpart, the way the Unicode standard
// recommends). Never fails: tools may print anything.
std::string decodeUtf8Lossy(std::string_view bytes);

// `text` without leading and trailing white space and line breaks: tab, LF, VT, FF, CR, U+0085
// and every space or separator character of Unicode (U+0020, U+00A0, U+1680, U+2000 to U+200A,
// U+2028, U+2029, U+202F, U+205F, U+3000). `text` is UTF-8; the view points into it.
std::string_view trimmingWhitespaceAndNewlines(std::string_view text);

// How many characters (extended grapheme clusters, the units a reader sees) UTF-8 `text` has.
std::size_t characterCount(std::string_view text);

} // namespace ambrel
