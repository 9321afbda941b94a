#include "commands/LoginStatusCommand.h"

#include <optional>
#include <utility>

#include "commands/CommandLine.h"

namespace ambrel {

LoginStatusCommand::LoginStatusCommand(LoginItemService& service, LoginItemIdentity identity)
    : LoginCommand(service, std::move(identity)) {}

bool LoginStatusCommand::isRequested(const std::vector<std::string>& arguments) const {
    return CommandLine::hasArgument(arguments, "--login-status");
}

int LoginStatusCommand::run(const Invocation& invocation) {
    printReport(invocation, std::nullopt);
    return 0;
}

} // namespace ambrel
