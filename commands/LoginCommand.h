#pragma once

#include <optional>
#include <string>
#include <vector>

#include "commands/Command.h"
#include "commands/LoginItemIdentity.h"
#include "platform/LoginItemService.h"

namespace ambrel {

// What "--login-status" and "--enable-login" have in common: the login item service they ask,
// who they ask for, and the one JSON line (see LoginReport) both print. `service` must outlive
// the command.
class LoginCommand : public Command {
public:
    bool isRequested(const std::vector<std::string>& arguments) const final;

protected:
    // `switchName` is the argument that asks for the command.
    LoginCommand(LoginItemService& service, LoginItemIdentity identity, std::string switchName);

    // Prints the report of the service's status as it is now, with `failure` when registering
    // failed, and returns that status.
    LoginItemStatus printReport(const Invocation& invocation,
                                const std::optional<LoginItemError>& failure) const;

    LoginItemService& m_service;

private:
    LoginItemIdentity m_identity;
    std::string m_switchName;
};

} // namespace ambrel
