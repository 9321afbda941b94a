#include "presentation/BarLine.h"

#include <algorithm>
#include <array>
#include <vector>

#include <nlohmann/json.hpp>

#include "model/BatteryRefreshPolicy.h"
#include "presentation/DeviceBatteryGaugeModel.h"

namespace ambrel {

std::optional<BarFormat> barFormatFromName(std::string_view name) {
    if (name == "waybar") {
        return BarFormat::waybar;
    }
    if (name == "polybar") {
        return BarFormat::polybar;
    }
    if (name == "i3blocks") {
        return BarFormat::i3blocks;
    }
    return std::nullopt;
}

namespace BarLine {

namespace {

struct Device {
    DeviceBatteryGaugeModel gauge;
    // Bar class prefix: "computer" or "phone".
    const char* classPrefix;
    // The short word in the bar itself.
    const char* barWord;
};

std::array<Device, 2> devices(const BarState& state, Date now, const UserLocale& locale) {
    const bool connectionFailed = state.phoneSetupState == PhoneSetupState::needsPairing ||
                                  state.phoneSetupState == PhoneSetupState::notFound ||
                                  state.phoneSetupState == PhoneSetupState::unavailable;
    return {
        Device{
            DeviceBatteryGaugeModel(state.mac, BatteryDeviceKind::mac, false, false, now, locale),
            "computer", "Computer"},
        Device{DeviceBatteryGaugeModel(state.phone, BatteryDeviceKind::phone,
                                       state.isRefreshingPhone, connectionFailed, now, locale),
               "phone", "iPhone"},
    };
}

std::string level(const DeviceBatteryGaugeModel& gauge) {
    const auto& snapshot = gauge.snapshot();
    if (!snapshot) {
        return gauge.isChecking() ? "\u2026" : "\u2014";
    }
    std::string piece = gauge.isDoubtful() ? "~" : "";
    piece += std::to_string(snapshot->percentage()) + "%";
    // As on the card, the bolt needs external power as well.
    if (snapshot->isCharging() && snapshot->isPluggedIn()) {
        piece += "\u26a1";
    }
    return piece;
}

std::string powerState(const BatteryDeviceSnapshot& snapshot) {
    if (snapshot.isCharging()) {
        return "Charging";
    }
    return snapshot.isPluggedIn() ? "Plugged in" : "On battery";
}

// The lower percentage of the readings present.
std::optional<std::int64_t> lowest(const std::array<Device, 2>& all) {
    std::optional<std::int64_t> result;
    for (const auto& device : all) {
        if (const auto& snapshot = device.gauge.snapshot()) {
            result = result ? std::min(*result, snapshot->percentage()) : snapshot->percentage();
        }
    }
    return result;
}

bool anyDoubtful(const std::array<Device, 2>& all) {
    return std::any_of(all.begin(), all.end(),
                       [](const Device& device) { return device.gauge.isDoubtful(); });
}

std::vector<std::string> classes(const std::array<Device, 2>& all) {
    std::vector<std::string> result;
    bool anyReading = false;
    bool allFull = true;
    bool anyPlugged = false;
    for (const auto& device : all) {
        const std::string prefix = device.classPrefix;
        const auto& snapshot = device.gauge.snapshot();
        if (!snapshot) {
            result.push_back(prefix + "-unavailable");
            continue;
        }
        anyReading = true;
        allFull = allFull && snapshot->percentage() >= 100;
        anyPlugged = anyPlugged || snapshot->isPluggedIn();
        result.push_back(prefix + (snapshot->isCharging()    ? "-charging"
                                   : snapshot->isPluggedIn() ? "-plugged"
                                                             : "-discharging"));
        if (device.gauge.isDoubtful()) {
            result.push_back(prefix + "-stale");
        }
    }
    if (!anyReading) {
        result.emplace_back("unavailable");
        return result;
    }
    const auto low = *lowest(all);
    if (low <= kCriticalLevel) {
        result.emplace_back("critical");
    } else if (low <= kWarningLevel) {
        result.emplace_back("warning");
    }
    if (allFull) {
        result.emplace_back("full");
    }
    if (anyPlugged) {
        result.emplace_back("plugged");
    }
    if (anyDoubtful(all)) {
        result.emplace_back("stale");
    }
    return result;
}

// One word for waybar's format-icons: the most pressing state.
std::string alt(const std::array<Device, 2>& all) {
    const auto low = lowest(all);
    if (!low) {
        return "unavailable";
    }
    if (*low <= kCriticalLevel) {
        return "critical";
    }
    if (*low <= kWarningLevel) {
        return "warning";
    }
    if (anyDoubtful(all)) {
        return "stale";
    }
    const bool charging = std::any_of(all.begin(), all.end(), [](const Device& device) {
        return device.gauge.snapshot() && device.gauge.snapshot()->isCharging();
    });
    return charging ? "charging" : "normal";
}

// The card's colour for the lower reading, or for a doubtful one; empty when all is well.
std::string colorFor(const std::array<Device, 2>& all) {
    const auto low = lowest(all);
    if (low && *low <= kCriticalLevel) {
        return kCriticalColor;
    }
    if ((low && *low <= kWarningLevel) || anyDoubtful(all)) {
        return kWarningColor;
    }
    return {};
}

std::string joined(const std::array<Device, 2>& all, bool withWords) {
    std::string line;
    for (const auto& device : all) {
        if (!line.empty()) {
            line += " \u00b7 ";
        }
        if (withWords) {
            line += std::string(device.barWord) + " ";
        }
        line += level(device.gauge);
    }
    return line;
}

} // namespace

std::string text(const BarState& state, Date now, const UserLocale& locale) {
    return joined(devices(state, now, locale), true);
}

std::string shortText(const BarState& state, Date now, const UserLocale& locale) {
    return joined(devices(state, now, locale), false);
}

std::string tooltip(const BarState& state, Date now, const UserLocale& locale) {
    std::string result;
    for (const auto& device : devices(state, now, locale)) {
        if (!result.empty()) {
            result += "\n";
        }
        result += device.gauge.title();
        if (const auto& snapshot = device.gauge.snapshot()) {
            result +=
                " " + std::to_string(snapshot->percentage()) + "% \u00b7 " + powerState(*snapshot);
        }
        result += " \u00b7 " + device.gauge.statusLine();
    }
    return result;
}

std::string pangoEscaped(std::string_view text) {
    std::string escaped;
    escaped.reserve(text.size());
    for (const char c : text) {
        switch (c) {
        case '&':
            escaped += "&amp;";
            break;
        case '<':
            escaped += "&lt;";
            break;
        case '>':
            escaped += "&gt;";
            break;
        case '"':
            escaped += "&quot;";
            break;
        case '\'':
            escaped += "&apos;";
            break;
        default:
            escaped += c;
        }
    }
    return escaped;
}

BarOutput format(BarFormat format, const BarState& state, Date now, const UserLocale& locale) {
    const auto all = devices(state, now, locale);
    const auto low = lowest(all);
    const bool critical = low && *low <= kCriticalLevel;
    switch (format) {
    case BarFormat::waybar: {
        const nlohmann::json json = {
            {"text", pangoEscaped(joined(all, true))},
            {"tooltip", pangoEscaped(tooltip(state, now, locale))},
            {"class", classes(all)},
            {"percentage", low ? std::clamp<std::int64_t>(*low, 0, 100) : 0},
            {"alt", alt(all)},
        };
        return {json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n", 0};
    }
    case BarFormat::polybar: {
        const std::string color = colorFor(all);
        const std::string line = joined(all, true);
        return {(color.empty() ? line : "%{F" + color + "}" + line + "%{F-}") + "\n", 0};
    }
    case BarFormat::i3blocks:
        return {joined(all, true) + "\n" + joined(all, false) + "\n" + colorFor(all) + "\n",
                critical ? kI3blocksUrgentExitCode : 0};
    }
    return {};
}

std::string followLine(BarFormat format, const BarState& state, Date now,
                       const UserLocale& locale) {
    if (format != BarFormat::i3blocks) {
        return BarLine::format(format, state, now, locale).text;
    }
    // A persistent block reads one JSON object per line ("format=json"); it cannot take an exit
    // code, so "urgent" says what 33 says to a block run each time.
    const auto all = devices(state, now, locale);
    const auto low = lowest(all);
    nlohmann::json json = {
        {"full_text", joined(all, true)},
        {"short_text", joined(all, false)},
        {"urgent", low && *low <= kCriticalLevel},
    };
    if (const auto color = colorFor(all); !color.empty()) {
        json["color"] = color;
    }
    return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
}

std::optional<Date> nextAgeChange(const BarState& state, Date now) {
    std::optional<Date> next;
    for (const auto* snapshot : {&state.mac, &state.phone}) {
        if (!*snapshot || (*snapshot)->isStale(now)) {
            continue;
        }
        const double limit = (*snapshot)->id() == "iphone" ? BatteryRefreshPolicy::phoneStaleAfter
                                                           : BatteryRefreshPolicy::macStaleAfter;
        const Date turns = (*snapshot)->lastUpdated().addingSeconds(limit);
        next = next ? std::min(*next, turns) : turns;
    }
    return next;
}

} // namespace BarLine

} // namespace ambrel
