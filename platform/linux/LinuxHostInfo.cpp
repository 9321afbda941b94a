#include "platform/linux/LinuxHostInfo.h"

#include <fstream>
#include <iterator>
#include <sstream>
#include <utility>

#include <limits.h>
#include <unistd.h>

namespace ambrel {

namespace {

std::optional<std::string> readFile(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream) {
        return std::nullopt;
    }
    std::string text;
    constexpr std::size_t kLimit = 64 * 1024;
    text.resize(kLimit);
    stream.read(text.data(), static_cast<std::streamsize>(kLimit));
    if (stream.bad()) {
        return std::nullopt;
    }
    text.resize(static_cast<std::size_t>(stream.gcount()));
    return text;
}

std::string_view trimmed(std::string_view text) {
    const auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; };
    while (!text.empty() && isBlank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && isBlank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

// Undoes the shell quoting that machine-info values may carry: "..." with backslash escapes,
// or '...' taken literally.
std::string unquoted(std::string_view value) {
    if (value.size() >= 2 && value.front() == '\'' && value.back() == '\'') {
        return std::string(value.substr(1, value.size() - 2));
    }
    if (value.size() >= 2 && value.front() == '"' && value.back() == '"') {
        value = value.substr(1, value.size() - 2);
    }
    std::string result;
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (value[i] == '\\' && i + 1 < value.size()) {
            ++i;
        }
        result.push_back(value[i]);
    }
    return result;
}

} // namespace

LinuxHostInfo::LinuxHostInfo(std::filesystem::path root) : m_root(std::move(root)) {}

std::optional<std::string> LinuxHostInfo::prettyHostName(std::string_view machineInfo) {
    std::optional<std::string> found;
    while (!machineInfo.empty()) {
        const auto newline = machineInfo.find('\n');
        const auto line = trimmed(machineInfo.substr(0, newline));
        machineInfo = newline == std::string_view::npos ? std::string_view()
                                                        : machineInfo.substr(newline + 1);
        constexpr std::string_view kKey = "PRETTY_HOSTNAME=";
        if (line.starts_with(kKey)) {
            // The last assignment wins, as when the file is sourced by a shell.
            found = unquoted(line.substr(kKey.size()));
        }
    }
    if (found && trimmed(*found).empty()) {
        return std::nullopt;
    }
    return found;
}

std::optional<std::string> LinuxHostInfo::localizedName() const {
    if (const auto machineInfo = readFile(m_root / "etc/machine-info")) {
        if (auto name = prettyHostName(*machineInfo)) {
            return name;
        }
    }
    char buffer[HOST_NAME_MAX + 1] = {};
    if (gethostname(buffer, sizeof buffer - 1) != 0 || buffer[0] == '\0') {
        return std::nullopt;
    }
    return std::string(buffer);
}

std::optional<std::string> LinuxHostInfo::rawModelIdentifier() const {
    // The device tree keeps the model with its terminating zero byte, like the system call the
    // model rule was made for; the DMI file ends in a newline instead, which is not part of it.
    if (auto model = readFile(m_root / "sys/firmware/devicetree/base/model")) {
        return model;
    }
    if (auto product = readFile(m_root / "sys/class/dmi/id/product_name")) {
        std::string text(trimmed(*product));
        text.push_back('\0');
        return text;
    }
    return std::nullopt;
}

} // namespace ambrel
