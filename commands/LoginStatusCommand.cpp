#include "commands/LoginStatusCommand.h"

#include <optional>
#include <utility>

namespace ambrel {

LoginStatusCommand::LoginStatusCommand(LoginItemService& service, LoginItemIdentity identity)
    : LoginCommand(service, std::move(identity), "--login-status") {}

int LoginStatusCommand::run(const Invocation& invocation) {
    printReport(invocation, std::nullopt);
    return 0;
}

} // namespace ambrel
