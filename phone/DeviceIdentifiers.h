#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace ambrel {

// Identifiers longer than this are not device identifiers.
inline constexpr std::size_t kLongestDeviceIdentifier = 128;

// The device identifiers in the output of `idevice_id -n` or `-l`: the text is split at every
// line break (LF, VT, FF, CR, U+0085, U+2028, U+2029), each piece trimmed of white space and
// line breaks, and a piece kept only if it is 1 to 128 characters of hexadecimal digits
// (0-9, a-f, A-F) and "-". Order and duplicates are kept. Pure; thread-safe.
std::vector<std::string> parseDeviceIdentifiers(std::string_view listOutput);

} // namespace ambrel
