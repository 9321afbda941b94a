#pragma once

#include <filesystem>

#include "platform/HostInfo.h"

namespace ambrel {

// The computer's name is PRETTY_HOSTNAME of /etc/machine-info, else the host name; its model
// is the device-tree model, else the DMI product name.
class LinuxHostInfo final : public HostInfo {
public:
    // `root` prefixes every system path read; tests point it at a fixture tree.
    explicit LinuxHostInfo(std::filesystem::path root = "/");

    std::optional<std::string> localizedName() const override;
    std::optional<std::string> rawModelIdentifier() const override;

    // The value of PRETTY_HOSTNAME in machine-info text (shell-style assignments, optionally
    // quoted); absent when missing or empty.
    static std::optional<std::string> prettyHostName(std::string_view machineInfo);

private:
    std::filesystem::path m_root;
};

} // namespace ambrel
