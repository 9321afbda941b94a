#include "platform/linux/DesktopEntry.h"

#include "model/WhiteSpace.h"

namespace ambrel::DesktopEntry {

namespace {

// Characters that the Desktop Entry rules reserve in an Exec argument.
constexpr std::string_view kReserved = " \t\n\"'\\><~|&;$*?#()`";
// Characters that must be escaped with a backslash inside a quoted argument.
constexpr std::string_view kEscapedInQuotes = "\"`$\\";

} // namespace

std::string quoteExecArgument(std::string_view argument) {
    const bool needsQuotes =
        argument.empty() || argument.find_first_of(kReserved) != std::string_view::npos;
    std::string quoted;
    quoted.reserve(argument.size() + 8);
    if (needsQuotes) {
        quoted += '"';
    }
    for (const char c : argument) {
        if (c == '%') {
            quoted += "%%";
            continue;
        }
        if (needsQuotes && kEscapedInQuotes.find(c) != std::string_view::npos) {
            quoted += '\\';
        }
        quoted += c;
    }
    if (needsQuotes) {
        quoted += '"';
    }
    return quoted;
}

std::string escapeStringValue(std::string_view value) {
    std::string escaped;
    escaped.reserve(value.size() + 8);
    for (std::size_t i = 0; i < value.size(); ++i) {
        const char c = value[i];
        switch (c) {
        case '\\':
            escaped += "\\\\";
            break;
        case '\n':
            escaped += "\\n";
            break;
        case '\t':
            escaped += "\\t";
            break;
        case '\r':
            escaped += "\\r";
            break;
        case ' ':
            // Readers drop spaces after '=', so a leading one has to be spelled out.
            escaped += i == 0 ? "\\s" : " ";
            break;
        default:
            escaped += c;
        }
    }
    return escaped;
}

std::string execValue(const std::filesystem::path& executable) {
    return escapeStringValue(quoteExecArgument(executable.native()));
}

std::map<std::string, std::string> parseMainGroup(std::string_view text) {
    std::map<std::string, std::string> fields;
    bool inMainGroup = false;
    while (!text.empty()) {
        const auto end = text.find('\n');
        const auto line = trimmingAsciiBlanks(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);

        if (line.empty() || line.front() == '#') {
            continue;
        }
        if (line.front() == '[') {
            inMainGroup = line == "[Desktop Entry]";
            continue;
        }
        const auto equals = line.find('=');
        if (!inMainGroup || equals == std::string_view::npos) {
            continue;
        }
        const auto key = trimmingAsciiBlanks(line.substr(0, equals));
        const auto value = trimmingAsciiBlanks(line.substr(equals + 1));
        fields.emplace(std::string(key), std::string(value));
    }
    return fields;
}

} // namespace ambrel::DesktopEntry
