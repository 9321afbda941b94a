#pragma once

#include <string>

#include "commands/Command.h"

namespace ambrel {

// "--version": prints the display name and the version, and exits 0.
class VersionCommand final : public Command {
public:
    VersionCommand(std::string displayName, std::string version);

    bool isRequested(const std::vector<std::string>& arguments) const override;
    int run(const Invocation& invocation) override;

    static std::string text(const std::string& displayName, const std::string& version);

private:
    std::string m_displayName;
    std::string m_version;
};

} // namespace ambrel
