#include "commands/VersionCommand.h"

#include <utility>

#include "commands/CommandLine.h"

namespace ambrel {

VersionCommand::VersionCommand(std::string displayName, std::string version)
    : m_displayName(std::move(displayName)), m_version(std::move(version)) {}

bool VersionCommand::isRequested(const std::vector<std::string>& arguments) const {
    return CommandLine::hasArgument(arguments, "--version");
}

int VersionCommand::run(const Invocation& invocation) {
    invocation.out(text(m_displayName, m_version));
    return 0;
}

std::string VersionCommand::text(const std::string& displayName, const std::string& version) {
    return displayName + " " + version + "\n";
}

} // namespace ambrel
