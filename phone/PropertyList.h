#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "model/XmlContainers.h"
#include "phone/PropertyValue.h"

namespace ambrel {

// The top-level dictionary of a property list, by key.
using PropertyDictionary = std::map<std::string, PropertyValue>;

// Documents longer than this are refused unparsed; a tool run keeps at most 64 KiB anyway.
inline constexpr std::size_t kLargestPropertyList = 1024 * 1024;
// Documents that open more arrays and dictionaries than this are refused unparsed: libplist
// builds and frees nested values recursively, and deep nesting would exhaust the stack.
inline constexpr std::size_t kMostPropertyListContainers = 256;

// Parses the property list in a tool's output: everything before the first "<?xml" (warnings
// the tool printed) is skipped, and the text from there on must be a property list whose top
// level is a dictionary. Since the text handed to libplist starts at that marker, it is always
// read as XML. Absent when there is no marker, the document does not parse, its top
// level is not a dictionary, an integer in it is not a plain decimal number between -2^63 and
// 2^64 - 1, or it exceeds the limits above. Pure; thread-safe.
std::optional<PropertyDictionary> parsePropertyList(std::string_view toolOutput);

// The same for a dictionary nested in the top-level one: `path` names the keys to follow from
// the top, each of which must hold a dictionary. Documents may open up to `mostContainers`
// arrays and dictionaries (a registry entry holds many). Absent as above, or when a key on the
// path is missing or not a dictionary.
std::optional<PropertyDictionary> parsePropertyList(std::string_view toolOutput,
                                                    const std::vector<std::string>& path,
                                                    std::size_t mostContainers);

} // namespace ambrel
