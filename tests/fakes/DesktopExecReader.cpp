#include "tests/fakes/DesktopExecReader.h"

namespace ambrel::testing {

std::optional<std::vector<std::string>> readExec(const std::string& value) {
    std::string unescaped;
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (value[i] != '\\') {
            unescaped += value[i];
            continue;
        }
        if (++i == value.size()) {
            return std::nullopt;
        }
        switch (value[i]) {
        case 's':
            unescaped += ' ';
            break;
        case 'n':
            unescaped += '\n';
            break;
        case 't':
            unescaped += '\t';
            break;
        case 'r':
            unescaped += '\r';
            break;
        case '\\':
            unescaped += '\\';
            break;
        default:
            // The quoting layer's own escapes ("\$", "\"", "\`") pass through to it.
            unescaped += '\\';
            unescaped += value[i];
        }
    }
    std::string expanded;
    for (std::size_t i = 0; i < unescaped.size(); ++i) {
        if (unescaped[i] == '%') {
            if (i + 1 == unescaped.size() || unescaped[i + 1] != '%') {
                return std::nullopt;
            }
            ++i;
        }
        expanded += unescaped[i];
    }
    std::vector<std::string> arguments;
    std::string current;
    bool inArgument = false;
    const std::string reserved = "\t\n\"'\\><~|&;$*?#()`";
    for (std::size_t i = 0; i < expanded.size(); ++i) {
        const char c = expanded[i];
        if (c == ' ') {
            if (inArgument) {
                arguments.push_back(current);
                current.clear();
                inArgument = false;
            }
            continue;
        }
        inArgument = true;
        if (c == '"') {
            for (++i;; ++i) {
                if (i == expanded.size()) {
                    return std::nullopt;
                }
                if (expanded[i] == '"') {
                    break;
                }
                if (expanded[i] == '\\') {
                    if (i + 1 == expanded.size() ||
                        std::string("\"`$\\").find(expanded[i + 1]) == std::string::npos) {
                        return std::nullopt;
                    }
                    ++i;
                } else if (expanded[i] == '`' || expanded[i] == '$') {
                    return std::nullopt;
                }
                current += expanded[i];
            }
            continue;
        }
        if (reserved.find(c) != std::string::npos) {
            return std::nullopt;
        }
        current += c;
    }
    if (inArgument) {
        arguments.push_back(current);
    }
    return arguments;
}

} // namespace ambrel::testing
