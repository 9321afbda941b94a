#include "commands/EnableLoginCommand.h"

#include <optional>
#include <utility>

namespace ambrel {

EnableLoginCommand::EnableLoginCommand(LoginItemService& service, LoginItemIdentity identity)
    : LoginCommand(service, std::move(identity), "--enable-login") {}

int EnableLoginCommand::run(const Invocation& invocation) {
    std::optional<LoginItemError> failure;
    if (m_service.status() != LoginItemStatus::enabled) {
        auto result = m_service.registerItem();
        if (!result) {
            failure = result.error();
        }
    }
    switch (printReport(invocation, failure)) {
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
