#include "app/ConnectionCommands.h"

#include <algorithm>
#include <cstdio>
#include <thread>

#include <nlohmann/json.hpp>

#include "app/CommandLine.h"
#include "diagnosis/ConnectionCheck.h"

namespace ambrel::ConnectionCommands {

namespace {

std::string line(const nlohmann::json& json) {
    return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

Outcome failure(const std::string& udid, const LockdownError& error) {
    nlohmann::json json = {{"error", error.name},
                           {"message", ConnectionCheck::adviceFor(error)},
                           {"wifiConnections", false}};
    if (!udid.empty()) {
        json["udid"] = udid;
    }
    return {line(json), 1};
}

} // namespace

Outcome enableWifi(const LockdownHelper& helper, const std::string& udid) {
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

Outcome diagnose(ConnectionProbe& probe, bool asText) {
    const auto report = ConnectionCheck::run(probe);
    return {asText ? ConnectionCheck::toText(report) : ConnectionCheck::toJson(report) + "\n",
            report.ok ? 0 : 1};
}

std::string enableWifiUdid(const std::vector<std::string>& arguments) {
    const auto found = std::find(arguments.begin() + (arguments.empty() ? 0 : 1), arguments.end(),
                                 "--enable-wifi");
    if (found == arguments.end() || found + 1 == arguments.end() || (found + 1)->empty() ||
        (found + 1)->rfind("--", 0) == 0) {
        return {};
    }
    return *(found + 1);
}

bool isRequested(const std::vector<std::string>& arguments) {
    return CommandLine::hasArgument(arguments, "--enable-wifi") ||
           CommandLine::hasArgument(arguments, "--diagnose");
}

int run(const std::vector<std::string>& arguments, const SystemConnectionProbe::Setup& setup) {
    Outcome outcome;
    // The phone tools are run off the main thread, as everywhere in the program.
    std::thread worker([&] {
        if (CommandLine::hasArgument(arguments, "--enable-wifi")) {
            outcome = enableWifi(LockdownHelper(setup.toolDirectory, setup.launcher),
                                 enableWifiUdid(arguments));
        } else {
            SystemConnectionProbe probe(setup);
            outcome = diagnose(probe, CommandLine::hasArgument(arguments, "--text"));
        }
    });
    worker.join();
    std::fwrite(outcome.output.data(), 1, outcome.output.size(), stdout);
    std::fflush(stdout);
    return outcome.exitCode;
}

} // namespace ambrel::ConnectionCommands
