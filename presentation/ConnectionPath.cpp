#include "presentation/ConnectionPath.h"

#include <algorithm>
#include <array>

namespace ambrel {

namespace {

struct StepTitle {
    const char* name;
    const char* title;
};

constexpr std::array<StepTitle, ConnectionCheck::kCheckCount> kTitles{{
    {"tools", "Phone tools installed"},
    {"systemMuxer", "USB service running"},
    {"phoneOnUsb", "iPhone connected by cable"},
    {"trusted", "iPhone trusts this computer"},
    {"wifiConnections", "Wi-Fi connections on"},
    {"avahiDaemon", "Network discovery on"},
    {"advertised", "iPhone seen on this network"},
    {"advertMatches", "iPhone recognised"},
    {"lockdownOverWifi", "iPhone answers over Wi-Fi"},
    {"battery", "Battery read over Wi-Fi"},
}};

PathProblem checkAgain(std::string whatIsWrong, std::string whatToDo, std::string command = {}) {
    return {std::move(whatIsWrong), std::move(whatToDo), std::move(command), PathAction::checkAgain,
            "Check Again"};
}

// The phone did not let this computer in; `onCable`: it is on the cable now, so the window can
// pair it.
PathProblem trustProblem(const std::string& cause, bool onCable) {
    if (cause == "locked") {
        return checkAgain("Your iPhone is locked.", "Unlock it, then check again.");
    }
    if (cause == "denied") {
        return checkAgain("Your iPhone was told not to trust this computer.",
                          "Unplug it, plug it back in, and tap Trust when it asks.");
    }
    if (cause == "timedOut") {
        return checkAgain("Your iPhone didn\u2019t answer in time.",
                          "Unlock it, then check again.");
    }
    if (cause == "helperBroken") {
        return checkAgain("Tovrin\u2019s phone helper didn\u2019t work.",
                          "Reinstall Tovrin, then check again.");
    }
    if (cause == "noPhone") {
        return checkAgain("Your iPhone left the cable.", "Plug it back in and unlock it.");
    }
    if (cause == "notRunning") {
        return checkAgain("The USB service isn\u2019t running.",
                          "Plug your iPhone in with a cable: the system starts the service "
                          "(usbmuxd) then.");
    }
    if (cause == "refused") {
        return checkAgain("Your iPhone turned the question down.", "Unlock it, then check again.");
    }
    if (onCable) {
        return {"Your iPhone doesn\u2019t trust this computer yet.",
                "Click Pair, then unlock your iPhone and tap Trust.",
                {},
                PathAction::pair,
                "Pair"};
    }
    return checkAgain("Your iPhone doesn\u2019t trust this computer.",
                      "Plug it in, click Pair, and tap Trust on the iPhone.");
}

} // namespace

std::string ConnectionPath::titleOf(const std::string& checkName) {
    const auto found = std::find_if(kTitles.begin(), kTitles.end(),
                                    [&](const StepTitle& step) { return checkName == step.name; });
    return found == kTitles.end() ? checkName : std::string(found->title);
}

PathProblem ConnectionPath::problemOf(const CheckResult& failed) {
    const std::string& name = failed.name;
    const std::string& cause = failed.cause;
    if (name == "tools") {
        if (cause == "helperMissing") {
            return checkAgain("Tovrin\u2019s phone helper is missing.",
                              "Reinstall Tovrin, then check again.");
        }
        return checkAgain("Some of the phone tools are missing.", "Install them, then check again.",
                          "sudo apt-get install libimobiledevice-utils");
    }
    if (name == "systemMuxer") {
        if (cause == "notInstalled") {
            return checkAgain("The USB service (usbmuxd) isn\u2019t installed.",
                              "Install it, then plug your iPhone in.",
                              "sudo apt-get install usbmuxd");
        }
        return trustProblem("notRunning", false);
    }
    if (name == "phoneOnUsb") {
        return checkAgain("No iPhone is connected by cable.",
                          "Connect your iPhone with a USB data cable and unlock it.");
    }
    if (name == "trusted") {
        return trustProblem(cause, true);
    }
    if (name == "wifiConnections") {
        return {"Wi-Fi connections are off for this iPhone.",
                "Turn them on while the iPhone is on the cable.",
                {},
                PathAction::turnOnWifi,
                "Turn On"};
    }
    if (name == "avahiDaemon") {
        if (cause == "notInstalled") {
            return checkAgain("Network discovery (avahi-daemon) isn\u2019t installed.",
                              "Install it, then check again.", "sudo apt-get install avahi-daemon");
        }
        return checkAgain("Network discovery (avahi-daemon) is off.",
                          "Turn it on, then check again.",
                          "sudo systemctl enable --now avahi-daemon");
    }
    if (name == "advertised") {
        return checkAgain("Your iPhone isn\u2019t seen on this network.",
                          "Unlock it on the same Wi-Fi network as this computer, then check "
                          "again.");
    }
    if (name == "advertMatches") {
        if (cause == "neverPaired") {
            return checkAgain("Tovrin doesn\u2019t know your iPhone yet.",
                              "Plug it in once and pair, so that Tovrin can tell it apart on "
                              "the network.");
        }
        return checkAgain("An iPhone is on this network, but Tovrin can\u2019t tell it is yours.",
                          "Plug your iPhone in once, then check again.");
    }
    if (name == "lockdownOverWifi") {
        if (cause == "unreachable") {
            return checkAgain("Your iPhone doesn\u2019t answer over Wi-Fi.",
                              "Make sure this network lets its devices reach each other, or plug "
                              "the iPhone in.");
        }
        return trustProblem(cause, false);
    }
    if (name == "battery") {
        return checkAgain("Your iPhone didn\u2019t give its battery level over Wi-Fi.",
                          "Unlock it, then check again.");
    }
    return checkAgain(failed.message, "Check again.");
}

std::string ConnectionPath::phoneLine(const std::string& model, const std::string& osVersion,
                                      bool onUsb, bool onWifi) {
    std::string line;
    const auto add = [&line](const std::string& part) {
        line += (line.empty() ? "" : " \u00b7 ") + part;
    };
    if (!model.empty()) {
        add(model);
    }
    if (!osVersion.empty()) {
        add("iOS " + osVersion);
    }
    if (onUsb || onWifi) {
        add(onUsb && onWifi ? "on USB and Wi-Fi" : onUsb ? "on USB" : "on Wi-Fi");
    }
    return line;
}

ConnectionPath ConnectionPath::of(const ConnectionReport& report) {
    ConnectionPath path;
    if (report.readableOverWifi && !report.ok) {
        // Read over Wi-Fi, the goal: the cable's steps that failed (it is unplugged) are no
        // problem. The steps that got it there are shown.
        for (const auto& check : report.checks) {
            if (check.status == CheckStatus::passed) {
                path.steps.push_back({check.name, titleOf(check.name), check.status});
            }
        }
        path.summary = "Your iPhone can be read over Wi-Fi.";
        return path;
    }
    const auto failed =
        std::find_if(report.checks.begin(), report.checks.end(),
                     [](const CheckResult& check) { return check.status == CheckStatus::failed; });
    const auto shownEnd = failed == report.checks.end() ? failed : failed + 1;
    for (auto check = report.checks.begin(); check != shownEnd; ++check) {
        path.steps.push_back({check->name, titleOf(check->name), check->status});
    }
    if (failed != report.checks.end()) {
        path.problem = problemOf(*failed);
        path.folded = static_cast<int>(report.checks.end() - shownEnd);
        if (path.folded > 0) {
            path.foldedLine = std::to_string(path.folded) +
                              (path.folded == 1 ? " more check waits" : " more checks wait") +
                              " for this one";
        }
    }
    if (report.ok) {
        path.summary = "Your iPhone can be read over USB and over Wi-Fi.";
    } else if (report.readableOverUsb) {
        path.summary = "Your iPhone can be read over USB. To read it over Wi-Fi too, fix the step "
                       "below.";
    } else {
        path.summary = "Your iPhone can\u2019t be read yet. Fix the step below, then check again.";
    }
    return path;
}

} // namespace ambrel
