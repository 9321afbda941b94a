#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace ambrel {

// Decodes `bytes` as UTF-8 and returns it re-encoded, with every ill-formed sequence replaced
// by U+FFFD (one replacement per maximal ill-formed subpart, the way the Unicode standard
// recommends). Never fails: tools may print anything.
std::string decodeUtf8Lossy(std::string_view bytes);

// How many characters (extended grapheme clusters, the units a reader sees) UTF-8 `text` has.
std::size_t characterCount(std::string_view text);

} // namespace ambrel
