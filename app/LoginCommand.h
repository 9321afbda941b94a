#pragma once

#include <optional>
#include <string>
#include <vector>

#include "platform/LoginItemService.h"

namespace ambrel::LoginCommand {

// The status names of the command-line report.
std::string statusName(LoginItemStatus status);

// The report as one line of compact JSON (no newline): keys sorted, every "/" written "\/".
// "error", "errorDomain" and "errorCode" appear only after a failed registration. Empty when
// the report cannot be serialised (text that is not UTF-8).
std::string report(LoginItemStatus status, bool enabled, const std::string& bundleIdentifier,
                   const std::string& appPath, const std::optional<LoginItemError>& failure);

struct Outcome {
    int exitCode = 0;
    // The line to print, newline included; empty when nothing is to be printed.
    std::string output;
};

// "--enable-login" (it wins when both are given) or "--login-status" anywhere after the
// program path; absent when neither is there and the program is to run. "--enable-login"
// registers unless already enabled and exits 0 when enabled, 2 when approval is needed and 1
// otherwise; "--login-status" alone exits 0.
std::optional<Outcome> run(const std::vector<std::string>& arguments, LoginItemService& service,
                           const std::string& bundleIdentifier, const std::string& appPath);

} // namespace ambrel::LoginCommand
