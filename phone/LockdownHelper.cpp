#include "phone/LockdownHelper.h"

#include <utility>

#include <nlohmann/json.hpp>

#include "phone/CommandRunner.h"
#include "phone/LockdownHelperProtocol.h"

namespace ambrel {

namespace {

namespace protocol = LockdownHelperProtocol;
using nlohmann::json;

LockdownFailure failureOfExit(int status) {
    switch (status) {
    case protocol::kExitNoDevice:
        return LockdownFailure::noDevice;
    case protocol::kExitMuxerUnavailable:
        return LockdownFailure::muxerUnavailable;
    case protocol::kExitNotTrusted:
        return LockdownFailure::notTrusted;
    case protocol::kExitLockdownError:
        return LockdownFailure::lockdownError;
    default:
        return LockdownFailure::helperBroken;
    }
}

// The helper's one JSON object when it ended with success; its error otherwise.
Expected<json, LockdownError> replyOf(const CommandOutput& output) {
    if (output.timedOut) {
        return unexpected(LockdownError{LockdownFailure::timedOut, "TimedOut"});
    }
    json reply = json::parse(output.stdoutText, nullptr, false);
    if (reply.is_discarded() || !reply.is_object()) {
        return unexpected(LockdownError{LockdownFailure::helperBroken, "HelperFailed"});
    }
    if (output.status != protocol::kExitOk) {
        const auto kind = failureOfExit(output.status);
        const auto name = reply.value(protocol::kErrorKey, std::string());
        if (kind == LockdownFailure::helperBroken || name.empty()) {
            return unexpected(LockdownError{LockdownFailure::helperBroken, "HelperFailed"});
        }
        return unexpected(LockdownError{kind, name});
    }
    return reply;
}

LockdownError malformed() {
    return {LockdownFailure::helperBroken, "HelperFailed"};
}

// The value under `key` in the helper's reply: the reply's own error, or a malformed one when
// the value is missing or not of the kind `isKind` asks for.
Expected<json, LockdownError> replyValue(const CommandOutput& output, const char* key,
                                         bool (json::*isKind)() const noexcept) {
    auto reply = replyOf(output);
    if (!reply) {
        return unexpected(reply.error());
    }
    const auto found = reply.value().find(key);
    if (found == reply.value().end() || !((*found).*isKind)()) {
        return unexpected(malformed());
    }
    return *found;
}

PhoneLink linkOf(const json& value) {
    return value == protocol::kNetworkConnection ? PhoneLink::wifi : PhoneLink::usb;
}

} // namespace

CommandOutput LockdownHelper::run(const std::filesystem::path& executable,
                                  const std::vector<std::string>& arguments,
                                  std::chrono::milliseconds timeout) const {
    if (!m_launcher) {
        // Nothing to start it with reads as a tool that could not be started.
        return CommandOutput{"", CommandRunner::kLaunchFailure, -1, false};
    }
    return CommandRunner::run(*m_launcher, executable, arguments, timeout);
}

LockdownHelper::LockdownHelper(std::filesystem::path toolDirectory,
                               std::shared_ptr<ProcessLauncher> launcher)
    : m_toolDirectory(std::move(toolDirectory)), m_launcher(std::move(launcher)) {}

std::filesystem::path LockdownHelper::helperPath() const {
    return m_toolDirectory / protocol::kFileName;
}

std::filesystem::path LockdownHelper::pairToolPath() const {
    return m_toolDirectory / "idevicepair";
}

Expected<std::vector<PhoneOnMuxer>, LockdownError> LockdownHelper::listPhones() const {
    return parseList(run(helperPath(), {protocol::kListCommand}, kTimeout));
}

Expected<PhoneDetails, LockdownError> LockdownHelper::details(const std::string& udid,
                                                              bool networkOnly) const {
    std::vector<std::string> arguments{protocol::kInfoCommand, udid};
    if (networkOnly) {
        arguments.emplace_back(protocol::kNetworkOption);
    }
    return parseDetails(run(helperPath(), arguments, kTimeout));
}

Expected<bool, LockdownError> LockdownHelper::wifiConnections(const std::string& udid,
                                                              std::optional<bool> wanted) const {
    std::vector<std::string> arguments{protocol::kWifiCommand, udid};
    if (wanted) {
        arguments.emplace_back(*wanted ? protocol::kOn : protocol::kOff);
    }
    return parseWifi(run(helperPath(), arguments, kTimeout));
}

Expected<bool, std::string> LockdownHelper::pair(const std::string& udid) const {
    const auto output = run(pairToolPath(), {"-u", udid, "pair"}, kPairTimeout);
    if (output.succeeded()) {
        return true;
    }
    std::string text = output.stdoutText + output.stderrText;
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) {
        text.pop_back();
    }
    return unexpected(text);
}

Expected<std::vector<PhoneOnMuxer>, LockdownError>
LockdownHelper::parseList(const CommandOutput& output) {
    const auto devices = replyValue(output, protocol::kDevicesKey, &json::is_array);
    if (!devices) {
        return unexpected(devices.error());
    }
    std::vector<PhoneOnMuxer> phones;
    for (const auto& entry : devices.value()) {
        if (!entry.is_object() || !entry.contains(protocol::kUdidKey) ||
            !entry[protocol::kUdidKey].is_string()) {
            return unexpected(malformed());
        }
        phones.push_back({entry[protocol::kUdidKey].get<std::string>(),
                          linkOf(entry.value(protocol::kConnectionKey, ""))});
    }
    return phones;
}

Expected<PhoneDetails, LockdownError> LockdownHelper::parseDetails(const CommandOutput& output) {
    auto reply = replyOf(output);
    if (!reply) {
        return unexpected(reply.error());
    }
    const json& line = reply.value();
    PhoneDetails details;
    try {
        details.udid = line.at(protocol::kUdidKey).get<std::string>();
        details.link = linkOf(line.value(protocol::kConnectionKey, ""));
        details.name = line.value(protocol::kNameKey, std::string());
        details.model = line.value(protocol::kModelKey, std::string());
        details.osVersion = line.value(protocol::kOsVersionKey, std::string());
        details.wifiAddress = line.value(protocol::kWifiAddressKey, std::string());
        details.trusted = line.at(protocol::kTrustedKey).get<bool>();
        details.trustError = line.value(protocol::kTrustErrorKey, std::string());
        if (line.contains(protocol::kWifiConnectionsKey) &&
            line[protocol::kWifiConnectionsKey].is_boolean()) {
            details.wifiConnections = line[protocol::kWifiConnectionsKey].get<bool>();
        }
    } catch (const json::exception&) {
        return unexpected(malformed());
    }
    return details;
}

Expected<bool, LockdownError> LockdownHelper::parseWifi(const CommandOutput& output) {
    const auto value = replyValue(output, protocol::kWifiConnectionsKey, &json::is_boolean);
    if (!value) {
        return unexpected(value.error());
    }
    return value.value().get<bool>();
}

} // namespace ambrel
