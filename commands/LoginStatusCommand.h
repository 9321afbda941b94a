#pragma once

#include "commands/LoginCommand.h"

namespace ambrel {

// "--login-status": prints whether the program starts at login, as one JSON line (see
// LoginReport), and exits 0. `service` must outlive the command.
class LoginStatusCommand final : public LoginCommand {
public:
    LoginStatusCommand(LoginItemService& service, LoginItemIdentity identity);

    int run(const Invocation& invocation) override;
};

} // namespace ambrel
