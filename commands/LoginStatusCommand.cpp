#include "commands/LoginStatusCommand.h"

#include <utility>

#include "commands/CommandLine.h"
#include "commands/LoginReport.h"

namespace ambrel {

LoginStatusCommand::LoginStatusCommand(LoginItemService& service, LoginItemIdentity identity)
    : m_service(service), m_identity(std::move(identity)) {}

bool LoginStatusCommand::isRequested(const std::vector<std::string>& arguments) const {
    return CommandLine::hasArgument(arguments, "--login-status");
}

int LoginStatusCommand::run(const Invocation& invocation) {
    const auto status = m_service.status();
    const auto line =
        LoginReport::report(status, status == LoginItemStatus::enabled, m_identity.bundleIdentifier,
                            m_identity.appPath, std::nullopt);
    if (!line.empty()) {
        invocation.out(line + "\n");
    }
    return 0;
}

} // namespace ambrel
