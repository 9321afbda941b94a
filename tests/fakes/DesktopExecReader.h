#pragma once

#include <optional>
#include <string>
#include <vector>

namespace ambrel::testing {

// What a desktop reads back from an Exec value, following the Desktop Entry rules step by step:
// the key file's string escapes first, then "%%", then the argument quoting. Absent when the
// text breaks a rule (an unknown escape, a lone '%', an unterminated quote, a reserved
// character outside quotes).
// Written for the tests, apart from the program's own quoting, so that the two check each other.
std::optional<std::vector<std::string>> readExec(const std::string& value);

} // namespace ambrel::testing
