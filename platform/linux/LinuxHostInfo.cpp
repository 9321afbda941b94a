#include "platform/linux/LinuxHostInfo.h"

#include <fstream>
#include <iterator>
#include <sstream>
#include <utility>

#include <limits.h>
#include <unistd.h>

#include "model/WhiteSpace.h"
#include "platform/linux/FileText.h"

namespace ambrel {

namespace {

// machine-info, a device-tree model and a DMI product name are a few bytes; more is not read.
constexpr std::size_t kSmallFileLimit = 64 * 1024;

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
        const auto line = trimmingAsciiBlanks(machineInfo.substr(0, newline));
        machineInfo = newline == std::string_view::npos ? std::string_view()
                                                        : machineInfo.substr(newline + 1);
        constexpr std::string_view kKey = "PRETTY_HOSTNAME=";
        if (line.starts_with(kKey)) {
            // The last assignment wins, as when the file is sourced by a shell.
            found = unquoted(line.substr(kKey.size()));
        }
    }
    if (found && trimmingAsciiBlanks(*found).empty()) {
        return std::nullopt;
    }
    return found;
}

std::optional<std::string> LinuxHostInfo::localizedName() const {
    if (const auto machineInfo = readFileText(m_root / "etc/machine-info", kSmallFileLimit)) {
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
    if (auto model = readFileText(m_root / "sys/firmware/devicetree/base/model", kSmallFileLimit)) {
        return model;
    }
    if (auto product = readFileText(m_root / "sys/class/dmi/id/product_name", kSmallFileLimit)) {
        std::string text(trimmingAsciiBlanks(*product));
        text.push_back('\0');
        return text;
    }
    return std::nullopt;
}

} // namespace ambrel
