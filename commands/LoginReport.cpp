#include "commands/LoginReport.h"

#include <nlohmann/json.hpp>

namespace ambrel::LoginReport {

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

} // namespace ambrel::LoginReport
