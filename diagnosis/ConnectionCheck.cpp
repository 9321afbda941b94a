#include "diagnosis/ConnectionCheck.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <functional>
#include <optional>

#include <nlohmann/json.hpp>

namespace ambrel {

namespace {

enum Step : std::size_t {
    tools,
    systemMuxer,
    phoneOnUsb,
    trusted,
    wifiConnections,
    avahiDaemon,
    advertised,
    advertMatches,
    lockdownOverWifi,
    battery,
};

struct Definition {
    const char* name;
    const char* title;
    std::vector<Step> needs;
};

const std::array<Definition, ConnectionCheck::kCheckCount>& definitions() {
    static const std::array<Definition, ConnectionCheck::kCheckCount> kDefinitions{{
        {"tools", "The phone tools are there", {}},
        {"systemMuxer", "The system\u2019s usbmuxd answers", {}},
        {"phoneOnUsb", "An iPhone is on USB", {systemMuxer}},
        {"trusted", "The iPhone trusts this computer", {tools, phoneOnUsb}},
        {"wifiConnections", "Wi-Fi connections are on", {trusted}},
        {"avahiDaemon", "avahi-daemon runs", {}},
        {"advertised", "An iPhone is advertised on this network", {avahiDaemon}},
        {"advertMatches", "The advert matches a known iPhone", {advertised}},
        {"lockdownOverWifi", "The iPhone answers over Wi-Fi", {tools, advertMatches}},
        {"battery", "The battery can be read over Wi-Fi", {lockdownOverWifi}},
    }};
    return kDefinitions;
}

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

std::string joined(const std::vector<std::string>& names) {
    std::string text;
    for (const auto& name : names) {
        text += (text.empty() ? "" : ", ") + name;
    }
    return text;
}

std::string phoneName(const PhoneDetails& details) {
    return details.name.empty() ? std::string("The iPhone") : details.name;
}

// What to do when the phone did not let this computer in.
std::string trustAdvice(const std::string& error, CheckPlace place) {
    if (error == "PasswordProtected") {
        return "Unlock your iPhone and check again.";
    }
    if (error == "UserDeniedPairing") {
        return "Unplug and reconnect your iPhone, then choose Trust when it asks.";
    }
    if (place == CheckPlace::connectionWindow) {
        return "Click Pair above, then unlock your iPhone and tap Trust.";
    }
    return "Run idevicepair pair (or click Trust in the connection window), then unlock your "
           "iPhone and choose Trust.";
}

std::string lockdownAdvice(const LockdownError& error, CheckPlace place) {
    switch (error.kind) {
    case LockdownFailure::helperBroken:
        return "Reinstall Tovrin, since its phone settings helper did not work.";
    case LockdownFailure::timedOut:
        return "Unlock your iPhone and check again, since it did not answer in time.";
    case LockdownFailure::noDevice:
        return "Connect your iPhone with a USB cable and check again.";
    case LockdownFailure::muxerUnavailable:
        return "Start usbmuxd by plugging your iPhone in, then check again.";
    case LockdownFailure::notTrusted:
        return trustAdvice(error.name, place);
    case LockdownFailure::lockdownError:
        break;
    }
    if (error.name == "PasswordProtected") {
        return trustAdvice(error.name, place);
    }
    return "Unlock your iPhone and check again (it answered " + error.name + ").";
}

// Why the phone did not let this computer in, in the report's words.
std::string trustCause(const std::string& error) {
    if (error == "PasswordProtected") {
        return "locked";
    }
    if (error == "UserDeniedPairing") {
        return "denied";
    }
    return "notPaired";
}

std::string lockdownCause(const LockdownError& error) {
    switch (error.kind) {
    case LockdownFailure::helperBroken:
        return "helperBroken";
    case LockdownFailure::timedOut:
        return "timedOut";
    case LockdownFailure::noDevice:
        return "noPhone";
    case LockdownFailure::muxerUnavailable:
        return "notRunning";
    case LockdownFailure::notTrusted:
        return trustCause(error.name);
    case LockdownFailure::lockdownError:
        break;
    }
    return error.name == "PasswordProtected" ? "locked" : "refused";
}

// One check's outcome.
struct Outcome {
    bool passed = false;
    std::string message;
    std::string cause;
};

Outcome passedWith(std::string message) {
    return {true, std::move(message), {}};
}

Outcome failedWith(std::string message, std::string cause) {
    return {false, std::move(message), std::move(cause)};
}

class Run {
public:
    Run(ConnectionProbe& probe, CheckPlace place) : m_probe(probe), m_place(place) {}

    ConnectionReport report() {
        ConnectionReport result;
        result.ok = true;
        for (std::size_t step = 0; step < definitions().size(); ++step) {
            const Definition& definition = definitions()[step];
            CheckResult check{definition.name, definition.title, CheckStatus::skipped, {}, {}};
            const auto blocker =
                std::find_if(definition.needs.begin(), definition.needs.end(),
                             [this](Step need) { return m_status[need] != CheckStatus::passed; });
            if (blocker != definition.needs.end()) {
                check.message =
                    std::string("Waits for \u201c") + definitions()[*blocker].title + "\u201d.";
            } else {
                Outcome outcome = perform(static_cast<Step>(step));
                check.status = outcome.passed ? CheckStatus::passed : CheckStatus::failed;
                check.message = std::move(outcome.message);
                check.cause = std::move(outcome.cause);
            }
            m_status[step] = check.status;
            result.ok = result.ok && check.status == CheckStatus::passed;
            result.checks.push_back(std::move(check));
        }
        result.readableOverUsb = m_status[trusted] == CheckStatus::passed;
        result.readableOverWifi = m_status[battery] == CheckStatus::passed;
        result.summary = summary(result);
        return result;
    }

private:
    Outcome perform(Step step) {
        switch (step) {
        case tools: {
            const auto missing = m_probe.missingTools();
            if (missing.empty()) {
                return passedWith("idevice_id, ideviceinfo, idevicepair and tovrin-lockdown are "
                                  "installed.");
            }
            const bool onlyHelper = missing.size() == 1 && missing.front() == "tovrin-lockdown";
            return failedWith(toolsAdvice(missing), onlyHelper ? "helperMissing" : "missing");
        }
        case systemMuxer: {
            m_systemPhones = m_probe.systemMuxerPhones();
            if (!m_systemPhones) {
                if (m_probe.usbmuxdInstalled()) {
                    return failedWith("Plug your iPhone in with a USB cable: Debian starts "
                                      "usbmuxd only while an iPhone is plugged in.",
                                      "notRunning");
                }
                return failedWith("Install usbmuxd (sudo apt-get install usbmuxd), then plug "
                                  "your iPhone in.",
                                  "notInstalled");
            }
            return passedWith("usbmuxd lists " + std::to_string(m_systemPhones->size()) +
                              (m_systemPhones->size() == 1 ? " device." : " devices."));
        }
        case phoneOnUsb: {
            const auto found = std::find_if(
                m_systemPhones->begin(), m_systemPhones->end(),
                [](const PhoneOnMuxer& phone) { return phone.link == PhoneLink::usb; });
            if (found == m_systemPhones->end()) {
                return failedWith("Connect your iPhone to this computer with a USB cable and "
                                  "unlock it.",
                                  "noPhone");
            }
            m_usbUdid = found->udid;
            return passedWith(found->udid + " is on USB.");
        }
        case trusted: {
            const auto details = m_probe.details(m_usbUdid, false);
            if (!details) {
                return failedWith(lockdownAdvice(details.error(), m_place),
                                  lockdownCause(details.error()));
            }
            m_usbDetails = details.value();
            if (!m_usbDetails->trusted) {
                return failedWith(trustAdvice(m_usbDetails->trustError, m_place),
                                  trustCause(m_usbDetails->trustError));
            }
            return passedWith(phoneName(*m_usbDetails) + " trusts this computer.");
        }
        case wifiConnections:
            if (m_usbDetails->wifiConnections.value_or(false)) {
                return passedWith("\u201cShow this iPhone when on Wi-Fi\u201d is on.");
            }
            if (m_place == CheckPlace::connectionWindow) {
                return failedWith("Turn on \u201cShow this iPhone when on Wi-Fi\u201d above.",
                                  "off");
            }
            return failedWith("Run tovrin --enable-wifi while the iPhone is on the cable (or turn "
                              "on \u201cShow this iPhone when on Wi-Fi\u201d in the connection "
                              "window).",
                              "off");
        case avahiDaemon:
            if (m_probe.avahiDaemonRuns()) {
                return passedWith("avahi-daemon answers on the system bus.");
            }
            if (!m_probe.avahiDaemonInstalled()) {
                return failedWith("Install avahi-daemon (sudo apt-get install avahi-daemon) so "
                                  "that Tovrin can find your iPhone on the network.",
                                  "notInstalled");
            }
            return failedWith("Start avahi-daemon (sudo systemctl enable --now avahi-daemon) so "
                              "that Tovrin can find your iPhone on the network.",
                              "notRunning");
        case advertised:
            m_adverts = m_probe.advertisedMacs();
            if (m_adverts.empty()) {
                return failedWith("Put your iPhone on the same Wi-Fi network as this computer, "
                                  "unlock it and check again.",
                                  "notSeen");
            }
            return passedWith(std::to_string(m_adverts.size()) +
                              (m_adverts.size() == 1 ? " iPhone is" : " iPhones are") +
                              " advertised.");
        case advertMatches:
            return matchAdvert();
        case lockdownOverWifi: {
            const auto details = m_probe.details(m_wifiUdid, true);
            if (!details) {
                if (details.error().kind == LockdownFailure::notTrusted) {
                    return failedWith(trustAdvice(details.error().name, m_place),
                                      trustCause(details.error().name));
                }
                return failedWith("Make sure this network lets this computer reach your iPhone "
                                  "(TCP port 62078), or plug it in and check again.",
                                  "unreachable");
            }
            if (!details.value().trusted) {
                return failedWith(trustAdvice(details.value().trustError, m_place),
                                  trustCause(details.value().trustError));
            }
            return passedWith(phoneName(details.value()) + " answers over Wi-Fi.");
        }
        case battery: {
            const auto level = m_probe.wifiBatteryLevel(m_wifiUdid);
            if (!level) {
                return failedWith("Unlock your iPhone and check again, since it did not give its "
                                  "battery level over Wi-Fi.",
                                  "noLevel");
            }
            return passedWith("The battery is at " + std::to_string(level.value()) + "%.");
        }
        }
        return failedWith("Check again.", "refused");
    }

    Outcome matchAdvert() {
        std::vector<KnownWifiPhone> known = m_probe.knownPhones();
        if (m_usbDetails && !m_usbDetails->wifiAddress.empty()) {
            known.insert(known.begin(), {m_usbDetails->udid, lowerCase(m_usbDetails->wifiAddress)});
        }
        for (const auto& phone : known) {
            if (!phone.wifiMac.empty() &&
                std::find(m_adverts.begin(), m_adverts.end(), phone.wifiMac) != m_adverts.end()) {
                m_wifiUdid = phone.udid;
                return passedWith(phone.udid + " is advertised as " + phone.wifiMac + ".");
            }
        }
        if (known.empty()) {
            return failedWith("Plug your iPhone in and trust this computer, so that Tovrin knows "
                              "which phone on the network is yours.",
                              "neverPaired");
        }
        return failedWith("Plug your iPhone in once and check again, so that Tovrin learns its "
                          "Wi-Fi address.",
                          "unknownAddress");
    }

    static std::string toolsAdvice(const std::vector<std::string>& missing) {
        std::vector<std::string> tools;
        bool helper = false;
        for (const auto& name : missing) {
            if (name == "tovrin-lockdown") {
                helper = true;
            } else {
                tools.push_back(name);
            }
        }
        std::string advice;
        if (!tools.empty()) {
            advice = "Install libimobiledevice-utils (sudo apt-get install "
                     "libimobiledevice-utils), since " +
                     joined(tools) + (tools.size() == 1 ? " is" : " are") + " missing.";
        }
        if (helper) {
            advice += std::string(advice.empty() ? "" : " ") +
                      "Reinstall Tovrin, since its helper tovrin-lockdown is missing.";
        }
        return advice;
    }

    // The first failed check's message, or nothing.
    static std::string firstFailure(const ConnectionReport& report, std::size_t from,
                                    std::size_t to) {
        for (std::size_t step = from; step < to && step < report.checks.size(); ++step) {
            if (report.checks[step].status == CheckStatus::failed) {
                return report.checks[step].message;
            }
        }
        return {};
    }

    std::string summary(const ConnectionReport& report) const {
        if (report.ok) {
            return "Every check passed: your iPhone can be read over USB and over Wi-Fi.";
        }
        if (report.readableOverUsb && !report.readableOverWifi) {
            const auto next = firstFailure(report, wifiConnections, battery + 1);
            return "Your iPhone can be read over USB." +
                   (next.empty() ? std::string() : " To read it over Wi-Fi as well: " + next);
        }
        if (report.readableOverWifi) {
            return "Your iPhone can be read over Wi-Fi.";
        }
        if (m_status[phoneOnUsb] == CheckStatus::failed &&
            m_status[advertised] == CheckStatus::failed) {
            return "No iPhone is on USB or on this network: plug yours in, or unlock it on the "
                   "same Wi-Fi network as this computer.";
        }
        return "Your iPhone cannot be read yet: fix the first failed check and check again.";
    }

    ConnectionProbe& m_probe;
    CheckPlace m_place;
    std::array<CheckStatus, ConnectionCheck::kCheckCount> m_status{};
    std::optional<std::vector<PhoneOnMuxer>> m_systemPhones;
    std::string m_usbUdid;
    std::optional<PhoneDetails> m_usbDetails;
    std::vector<std::string> m_adverts;
    std::string m_wifiUdid;
};

} // namespace

ConnectionReport ConnectionCheck::run(ConnectionProbe& probe, CheckPlace place) {
    return Run(probe, place).report();
}

std::string ConnectionCheck::adviceFor(const LockdownError& error, CheckPlace place) {
    return lockdownAdvice(error, place);
}

const char* ConnectionCheck::statusName(CheckStatus status) {
    switch (status) {
    case CheckStatus::passed:
        return "passed";
    case CheckStatus::failed:
        return "failed";
    case CheckStatus::skipped:
        return "skipped";
    }
    return "skipped";
}

std::string ConnectionCheck::toJson(const ConnectionReport& report) {
    nlohmann::json checks = nlohmann::json::array();
    for (const auto& check : report.checks) {
        checks.push_back({{"name", check.name},
                          {"status", statusName(check.status)},
                          {"message", check.message}});
    }
    nlohmann::json over = nlohmann::json::array();
    if (report.readableOverUsb) {
        over.push_back("usb");
    }
    if (report.readableOverWifi) {
        over.push_back("wifi");
    }
    const nlohmann::json line = {
        {"checks", checks}, {"ok", report.ok}, {"readableOver", over}, {"summary", report.summary}};
    return line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string ConnectionCheck::toText(const ConnectionReport& report) {
    std::string text;
    for (const auto& check : report.checks) {
        std::string status = statusName(check.status);
        status.resize(8, ' ');
        text += status + check.title + ": " + check.message + "\n";
    }
    text += report.summary + "\n";
    return text;
}

} // namespace ambrel
