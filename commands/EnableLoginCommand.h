#pragma once

#include "commands/LoginCommand.h"

namespace ambrel {

// "--enable-login": registers the program to start at login unless it already does, prints the
// same line as "--login-status" (with the error when registering failed) and exits 0 when it is
// enabled, 2 when the desktop's startup settings must approve it and 1 otherwise. Asked before
// "--login-status", so it wins when both are given. `service` must outlive the command.
class EnableLoginCommand final : public LoginCommand {
public:
    EnableLoginCommand(LoginItemService& service, LoginItemIdentity identity);

    int run(const Invocation& invocation) override;
};

} // namespace ambrel
