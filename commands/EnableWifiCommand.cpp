#include "commands/EnableWifiCommand.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include <nlohmann/json.hpp>

#include "diagnosis/ConnectionCheck.h"

namespace ambrel {

namespace {

std::string line(const nlohmann::json& json) {
    return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

EnableWifiCommand::Outcome failure(const std::string& udid, const LockdownError& error) {
    nlohmann::json json = {{"error", error.name},
                           {"message", ConnectionCheck::adviceFor(error)},
                           {"wifiConnections", false}};
    if (!udid.empty()) {
        json["udid"] = udid;
    }
    return {line(json), 1};
}

EnableWifiCommand::Outcome notPaired(const std::string& udid) {
    const nlohmann::json json = {
        {"error", "NotPaired"},
        {"message", "This computer is not paired with that iPhone. Plug it in, unlock it and "
                    "choose Trust (or run idevicepair pair), then try again."},
        {"udid", udid},
        {"wifiConnections", false}};
    return {line(json), 1};
}

} // namespace

EnableWifiCommand::EnableWifiCommand(std::function<SystemConnectionProbe::Setup()> setup,
                                     std::shared_ptr<Worker> worker)
    : PhoneConnectionCommand("--enable-wifi", std::move(setup), std::move(worker)) {}

bool EnableWifiCommand::looksLikeUdid(std::string_view text) {
    const auto hex = [](std::string_view part) {
        return std::all_of(part.begin(), part.end(),
                           [](char c) { return std::isxdigit(static_cast<unsigned char>(c)); });
    };
    // 40 hexadecimal digits before the iPhone XS; since then 8, a dash and 16 (usbmuxd may give
    // them without the dash).
    if (text.size() == 40 || text.size() == 24) {
        return hex(text);
    }
    return text.size() == 25 && text[8] == '-' && hex(text.substr(0, 8)) && hex(text.substr(9));
}

std::string EnableWifiCommand::canonicalUdid(std::string udid) {
    // As the phone and usbmuxd name it, and its pair record with it: the 24-digit form with its
    // dash and in capitals, the older 40-digit one in small letters.
    if (udid.size() == 24) {
        udid.insert(8, 1, '-');
    }
    const bool older = udid.size() == 40;
    std::transform(udid.begin(), udid.end(), udid.begin(), [older](unsigned char c) {
        return static_cast<char>(older ? std::tolower(c) : std::toupper(c));
    });
    return udid;
}

int EnableWifiCommand::run(const Invocation& invocation) {
    const auto given = udidArgument(invocation.arguments);
    if (!given.empty() && !looksLikeUdid(given)) {
        invocation.err(usageError("--enable-wifi takes an iPhone's identifier (UDID), such as "
                                  "00008110-001A2B3C4D5E6F70, or nothing for the iPhone on USB; "
                                  "got '" +
                                  given + "'"));
        return kUsageExitCode;
    }
    const std::string udid = given.empty() ? given : canonicalUdid(given);
    Outcome outcome;
    runWithSetup([&](const SystemConnectionProbe::Setup& setup) {
        // A phone this computer never paired with is not asked anything.
        if (!udid.empty() && SystemConnectionProbe(setup).isPaired(udid) == false) {
            outcome = notPaired(udid);
            return;
        }
        outcome = enable(LockdownHelper(setup.toolDirectory, setup.launcher), udid);
    });
    invocation.out(outcome.output);
    return outcome.exitCode;
}

EnableWifiCommand::Outcome EnableWifiCommand::enable(const LockdownHelper& helper,
                                                     const std::string& udid) {
    std::string chosen = udid;
    if (chosen.empty()) {
        const auto phones = helper.listPhones();
        if (!phones) {
            return failure({}, phones.error());
        }
        const auto& list = phones.value();
        const auto found = std::find_if(list.begin(), list.end(), [](const PhoneOnMuxer& phone) {
            return phone.link == PhoneLink::usb;
        });
        if (found == list.end()) {
            return failure({}, {LockdownFailure::noDevice, "NoDevice"});
        }
        chosen = found->udid;
    }
    const auto enabled = helper.wifiConnections(chosen, true);
    if (!enabled) {
        return failure(chosen, enabled.error());
    }
    if (!enabled.value()) {
        // The phone took the request and still says off.
        return failure(chosen, {LockdownFailure::lockdownError, "StillOff"});
    }
    return {line({{"udid", chosen}, {"wifiConnections", true}}), 0};
}

std::string EnableWifiCommand::udidArgument(const std::vector<std::string>& arguments) {
    const auto found = std::find(arguments.begin() + (arguments.empty() ? 0 : 1), arguments.end(),
                                 "--enable-wifi");
    if (found == arguments.end() || found + 1 == arguments.end() || (found + 1)->empty() ||
        (found + 1)->rfind("--", 0) == 0) {
        return {};
    }
    return *(found + 1);
}

} // namespace ambrel
