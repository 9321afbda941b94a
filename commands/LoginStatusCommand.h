#pragma once

#include "commands/Command.h"
#include "commands/LoginItemIdentity.h"
#include "platform/LoginItemService.h"

namespace ambrel {

// "--login-status": prints whether the program starts at login, as one JSON line (see
// LoginReport), and exits 0. `service` must outlive the command.
class LoginStatusCommand final : public Command {
public:
    LoginStatusCommand(LoginItemService& service, LoginItemIdentity identity);

    bool isRequested(const std::vector<std::string>& arguments) const override;
    int run(const Invocation& invocation) override;

private:
    LoginItemService& m_service;
    LoginItemIdentity m_identity;
};

} // namespace ambrel
