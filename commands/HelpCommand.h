#pragma once

#include <string>

#include "commands/Command.h"

namespace ambrel {

// "--help": prints what the program does and every switch it takes, and exits 0.
class HelpCommand final : public Command {
public:
    explicit HelpCommand(std::string displayName);

    bool isRequested(const std::vector<std::string>& arguments) const override;
    int run(const Invocation& invocation) override;

    // The help with the program's display name in it.
    static std::string text(const std::string& displayName);

private:
    std::string m_displayName;
};

} // namespace ambrel
