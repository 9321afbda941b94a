#include "app/LoginCommand.h"

#include <nlohmann/json.hpp>

#include "app/CommandLine.h"

namespace ambrel::LoginCommand {

std::string statusName(LoginItemStatus status) {
    switch (status) {
    case LoginItemStatus::notRegistered:
        return "notRegistered";
    case LoginItemStatus::enabled:
        return "enabled";
    case LoginItemStatus::requiresApproval:
        return "requiresApproval";
    case LoginItemStatus::notFound:
        return "notFound";
    }
    return "unknown";
}

std::string report(LoginItemStatus status, bool enabled, const std::string& bundleIdentifier,
                   const std::string& appPath, const std::optional<LoginItemError>& failure) {
    // nlohmann's object keeps its keys sorted, which is the order the report wants.
    nlohmann::json json = {
        {"status", statusName(status)},
        {"enabled", enabled},
        {"bundleIdentifier", bundleIdentifier},
        {"appPath", appPath},
    };
    if (failure) {
        json["error"] = failure->description;
        json["errorDomain"] = failure->domain;
        json["errorCode"] = failure->code;
    }
    std::string text;
    try {
        text = json.dump();
    } catch (const nlohmann::json::exception&) {
        return {};
    }
    // "/" occurs only inside strings in JSON text, so escaping every one of them is safe.
    std::string escaped;
    escaped.reserve(text.size() + 16);
    for (const char c : text) {
        if (c == '/') {
            escaped += '\\';
        }
        escaped += c;
    }
    return escaped;
}

std::optional<Outcome> run(const std::vector<std::string>& arguments, LoginItemService& service,
                           const std::string& bundleIdentifier, const std::string& appPath) {
    const bool enable = CommandLine::hasArgument(arguments, "--enable-login");
    if (!enable && !CommandLine::hasArgument(arguments, "--login-status")) {
        return std::nullopt;
    }

    std::optional<LoginItemError> failure;
    if (enable && service.status() != LoginItemStatus::enabled) {
        auto result = service.registerItem();
        if (!result) {
            failure = result.error();
        }
    }

    const auto status = service.status();
    const bool enabled = service.status() == LoginItemStatus::enabled;
    Outcome outcome;
    const auto line = report(status, enabled, bundleIdentifier, appPath, failure);
    if (!line.empty()) {
        outcome.output = line + "\n";
    }
    if (!enable) {
        outcome.exitCode = 0;
    } else if (status == LoginItemStatus::enabled) {
        outcome.exitCode = 0;
    } else if (status == LoginItemStatus::requiresApproval) {
        outcome.exitCode = 2;
    } else {
        outcome.exitCode = 1;
    }
    return outcome;
}

} // namespace ambrel::LoginCommand
