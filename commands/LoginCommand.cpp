#include "commands/LoginCommand.h"

#include <utility>

#include "commands/CommandLine.h"
#include "commands/LoginReport.h"

namespace ambrel {

LoginCommand::LoginCommand(LoginItemService& service, LoginItemIdentity identity,
                           std::string switchName)
    : m_service(service), m_identity(std::move(identity)), m_switchName(std::move(switchName)) {}

bool LoginCommand::isRequested(const std::vector<std::string>& arguments) const {
    return CommandLine::hasArgument(arguments, m_switchName);
}

LoginItemStatus LoginCommand::printReport(const Invocation& invocation,
                                          const std::optional<LoginItemError>& failure) const {
    const auto status = m_service.status();
    const auto line = LoginReport::report(status, status == LoginItemStatus::enabled,
                                          m_identity.bundleIdentifier, m_identity.appPath, failure);
    if (!line.empty()) {
        invocation.out(line + "\n");
    }
    return status;
}

} // namespace ambrel
