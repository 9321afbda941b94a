#pragma once

#include <optional>
#include <string>
#include <vector>

#include "commands/Command.h"

namespace ambrel {

// A switch of ours that only means something beside another ("--text" with "--diagnose",
// "--follow" with "--bar", "--json" and "--since" with "--history"), given without it: says
// which one it goes with, on standard error, and exits 2, rather than starting the widget.
// Asked after every command, so a switch beside its command never comes here.
class CompanionSwitchCommand final : public Command {
public:
    bool isRequested(const std::vector<std::string>& arguments) const override;
    int run(const Invocation& invocation) override;

    // The line for the first companion in `arguments` whose command is missing; none when
    // every companion has its command.
    static std::optional<std::string> problem(const std::vector<std::string>& arguments);
};

} // namespace ambrel
