#include "commands/CompanionSwitchCommand.h"

#include "commands/CommandLine.h"

namespace ambrel {

namespace {

struct Companion {
    const char* name;
    const char* command;
    const char* example;
};

constexpr Companion kCompanions[] = {
    {"--text", "--diagnose", "tovrin --diagnose --text"},
    {"--follow", "--bar", "tovrin --bar waybar --follow"},
    {"--json", "--history", "tovrin --history --json"},
    {"--since", "--history", "tovrin --history --since 10d"},
};

} // namespace

std::optional<std::string>
CompanionSwitchCommand::problem(const std::vector<std::string>& arguments) {
    for (const auto& companion : kCompanions) {
        if (CommandLine::hasArgument(arguments, companion.name) &&
            !CommandLine::hasArgument(arguments, companion.command)) {
            return usageError(std::string(companion.name) + " goes with " + companion.command +
                              ", as in: " + companion.example);
        }
    }
    return std::nullopt;
}

bool CompanionSwitchCommand::isRequested(const std::vector<std::string>& arguments) const {
    return problem(arguments).has_value();
}

int CompanionSwitchCommand::run(const Invocation& invocation) {
    invocation.err(problem(invocation.arguments).value_or(std::string()));
    return kUsageExitCode;
}

} // namespace ambrel
