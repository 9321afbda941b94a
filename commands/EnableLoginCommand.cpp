#include "commands/EnableLoginCommand.h"

#include <optional>
#include <utility>

#include "commands/CommandLine.h"
#include "commands/LoginReport.h"

namespace ambrel {

EnableLoginCommand::EnableLoginCommand(LoginItemService& service, LoginItemIdentity identity)
    : m_service(service), m_identity(std::move(identity)) {}

bool EnableLoginCommand::isRequested(const std::vector<std::string>& arguments) const {
    return CommandLine::hasArgument(arguments, "--enable-login");
}

int EnableLoginCommand::run(const Invocation& invocation) {
    std::optional<LoginItemError> failure;
    if (m_service.status() != LoginItemStatus::enabled) {
        auto result = m_service.registerItem();
        if (!result) {
            failure = result.error();
        }
    }
    const auto status = m_service.status();
    const auto line = LoginReport::report(status, status == LoginItemStatus::enabled,
                                          m_identity.bundleIdentifier, m_identity.appPath, failure);
    if (!line.empty()) {
        invocation.out(line + "\n");
    }
    switch (status) {
    case LoginItemStatus::enabled:
        return 0;
    case LoginItemStatus::requiresApproval:
        return 2;
    case LoginItemStatus::notRegistered:
    case LoginItemStatus::notFound:
        break;
    }
    return 1;
}

} // namespace ambrel
