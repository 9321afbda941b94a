#pragma once

#include <optional>
#include <string>

#include "platform/LoginItemService.h"

// What "--login-status" and "--enable-login" print.
namespace ambrel::LoginReport {

// The status names of the command-line report.
std::string statusName(LoginItemStatus status);

// The report as one line of compact JSON (no newline): keys sorted, every "/" written "\/".
// "error", "errorDomain" and "errorCode" appear only after a failed registration. Empty when
// the report cannot be serialised (text that is not UTF-8).
std::string report(LoginItemStatus status, bool enabled, const std::string& bundleIdentifier,
                   const std::string& appPath, const std::optional<LoginItemError>& failure);

} // namespace ambrel::LoginReport
