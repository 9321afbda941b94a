#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <string_view>

namespace ambrel::DesktopEntry {

// Quotes one argument of an Exec line: double quotes when it holds a reserved character (or is
// empty), with '"', '`', '$' and '\' escaped inside, and every '%' doubled so that no field code
// is seen. The result is the argument as the Exec line's own syntax sees it, before the key
// file's string escaping.
std::string quoteExecArgument(std::string_view argument);

// The key file's escaping of a string value: '\' becomes "\\", newline "\n", tab "\t", carriage
// return "\r", and a leading space "\s". Readers undo this before they unquote an Exec line,
// which is why a backslash in a quoted path ends up as four of them in the file.
std::string escapeStringValue(std::string_view value);

// The Exec value that starts `executable` with no arguments, ready to be written after "Exec=".
std::string execValue(const std::filesystem::path& executable);

// The keys and raw (still escaped) values of the "[Desktop Entry]" group of a key file. Comments,
// blank lines and other groups are skipped; spaces around '=' are dropped; the first occurrence
// of a key wins.
std::map<std::string, std::string> parseMainGroup(std::string_view text);

} // namespace ambrel::DesktopEntry
