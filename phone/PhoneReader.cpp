#include "phone/PhoneReader.h"

#include <algorithm>
#include <cstdint>
#include <initializer_list>
#include <system_error>
#include <utility>

#include <unistd.h>

#include "model/WhiteSpace.h"
#include "phone/CommandRunner.h"
#include "phone/DeviceIdentifiers.h"
#include "phone/PhoneIssueClassifier.h"
#include "phone/PropertyList.h"
#include "phone/UnicodeText.h"

namespace ambrel::PhoneReader {

namespace {

constexpr const char* kBatteryDomain = "com.apple.mobile.battery";
constexpr const char* kPhoneId = "iphone";
constexpr std::string_view kPhoneModelPrefix = "iPhone";

// A regular file (after following links) that this process may execute.
bool isExecutableFile(const std::filesystem::path& path) {
    std::error_code error;
    return std::filesystem::is_regular_file(path, error) && ::access(path.c_str(), X_OK) == 0;
}

// What one pass or the whole attempt has seen fail so far.
struct AttemptState {
    std::optional<CommandOutput> lastFailure;
    bool triedWiFi = false;
    bool sawCandidates = false;
};

// The battery fields of a usable battery answer.
struct BatteryFields {
    std::int64_t percentage = 0;
    bool isCharging = false;
    bool isPluggedIn = false;
};

std::optional<BatteryFields> batteryFields(std::string_view output) {
    const auto dictionary = parsePropertyList(output);
    if (!dictionary || dictionary->empty()) {
        return std::nullopt;
    }
    const auto capacity = dictionary->find("BatteryCurrentCapacity");
    if (capacity == dictionary->end() || !capacity->second.isNumber()) {
        return std::nullopt;
    }
    const auto percentage = capacity->second.integerValue();
    if (!percentage || *percentage < 0 || *percentage > 100) {
        return std::nullopt;
    }
    const auto booleanOf = [&](const char* key) -> std::optional<bool> {
        const auto found = dictionary->find(key);
        return found == dictionary->end() ? std::nullopt : found->second.boolValue();
    };
    BatteryFields fields;
    fields.percentage = *percentage;
    fields.isCharging = booleanOf("BatteryIsCharging").value_or(false);
    // A phone that reports charging is taken to be plugged in when it does not say.
    fields.isPluggedIn = booleanOf("ExternalConnected").value_or(fields.isCharging);
    return fields;
}

CommandOutput batteryDataUnavailable() {
    CommandOutput record;
    record.stderrText = kBatteryDataUnavailable;
    record.status = 1;
    record.timedOut = false;
    return record;
}

std::vector<std::string> withArguments(std::vector<std::string> base,
                                       std::initializer_list<const char*> more) {
    base.insert(base.end(), more.begin(), more.end());
    return base;
}

std::optional<PhoneReading> readPass(bool network, const std::filesystem::path& listTool,
                                     const std::filesystem::path& infoTool,
                                     const std::optional<std::string>& preferredID,
                                     const std::optional<PhoneIdentity>& identity,
                                     const Clock& clock, ProcessLauncher& launcher,
                                     const PhoneReadTimeouts& timeouts, AttemptState& state) {
    const auto list =
        CommandRunner::run(launcher, listTool, {network ? "-n" : "-l"}, timeouts.list);
    if (!list.succeeded()) {
        state.lastFailure = list;
        return std::nullopt;
    }

    auto identifiers = parseDeviceIdentifiers(list.stdoutText);
    if (preferredID) {
        const auto preferred = std::find(identifiers.begin(), identifiers.end(), *preferredID);
        if (preferred != identifiers.end()) {
            std::rotate(identifiers.begin(), preferred, preferred + 1);
        }
    }
    if (identifiers.size() > kMostCandidatesPerPass) {
        identifiers.resize(kMostCandidatesPerPass);
    }
    if (identifiers.empty()) {
        return std::nullopt;
    }

    for (const auto& udid : identifiers) {
        std::vector<std::string> base;
        if (network) {
            base.emplace_back("-n");
            state.triedWiFi = true;
        }
        base.emplace_back("-u");
        base.push_back(udid);

        const auto battery =
            CommandRunner::run(launcher, infoTool,
                               withArguments(base, {"-q", kBatteryDomain, "-x"}), timeouts.battery);
        if (!battery.succeeded()) {
            state.lastFailure = battery;
            continue;
        }
        const auto fields = batteryFields(battery.stdoutText);
        if (!fields) {
            state.lastFailure = batteryDataUnavailable();
            continue;
        }

        PhoneIdentity who;
        if (identity && identity->udid == udid) {
            who = *identity;
        } else {
            who.udid = udid;
            who.name = readKey("DeviceName", infoTool, base, launcher, timeouts.key)
                           .value_or(kFallbackName);
            who.model = readKey("ProductType", infoTool, base, launcher, timeouts.key);
            if (who.model && !who.model->starts_with(kPhoneModelPrefix)) {
                // Not a phone (an iPad, say): passed over without a word.
                continue;
            }
        }

        const auto link = network ? PhoneLink::wifi : PhoneLink::usb;
        BatteryDeviceSnapshot snapshot(kPhoneId, who.name, fields->percentage, fields->isCharging,
                                       fields->isPluggedIn, clock.now(),
                                       std::string(phoneLinkText(link)), who.model);
        return PhoneReading{std::move(snapshot), link, udid, std::move(who)};
    }
    state.sawCandidates = true;
    return std::nullopt;
}

} // namespace

PhoneReadResult readAttempt(const std::filesystem::path& toolDirectory,
                            const std::optional<std::string>& preferredID,
                            const std::optional<PhoneIdentity>& identity, const Clock& clock,
                            ProcessLauncher& launcher, const PhoneReadTimeouts& timeouts) {
    const auto listTool = toolDirectory / "idevice_id";
    const auto infoTool = toolDirectory / "ideviceinfo";
    if (!isExecutableFile(listTool) || !isExecutableFile(infoTool)) {
        return unexpected(
            PhoneIssue{PhoneSetupState::unavailable, PhoneIssueClassifier::kMissingTools, false});
    }

    AttemptState state;
    // Wi-Fi first on purpose: USB is only asked when no phone answered over the network.
    for (const bool network : {true, false}) {
        if (auto reading = readPass(network, listTool, infoTool, preferredID, identity, clock,
                                    launcher, timeouts, state)) {
            return std::move(*reading);
        }
    }
    return unexpected(
        PhoneIssueClassifier::classify(state.lastFailure, state.sawCandidates, state.triedWiFi));
}

std::optional<std::string> readKey(const std::string& key, const std::filesystem::path& infoTool,
                                   const std::vector<std::string>& base, ProcessLauncher& launcher,
                                   std::chrono::milliseconds timeout) {
    auto arguments = base;
    arguments.emplace_back("-k");
    arguments.push_back(key);
    const auto output = CommandRunner::run(launcher, infoTool, arguments, timeout);
    if (!output.succeeded()) {
        return std::nullopt;
    }
    const auto value = trimmingWhitespaceAndNewlines(output.stdoutText);
    if (value.empty() || value.find('\n') != std::string_view::npos ||
        characterCount(value) > kLongestKeyValue) {
        return std::nullopt;
    }
    return std::string(value);
}

} // namespace ambrel::PhoneReader
