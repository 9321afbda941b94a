#include "mac/MacBatteryReader.h"

#include <cmath>
#include <variant>

namespace ambrel::MacBatteryReader {

namespace {

std::optional<double> numberValue(const PowerSourceDescription& description, const char* key) {
    const auto found = description.find(key);
    if (found == description.end()) {
        return std::nullopt;
    }
    if (const auto* integer = std::get_if<std::int64_t>(&found->second)) {
        return static_cast<double>(*integer);
    }
    if (const auto* real = std::get_if<double>(&found->second)) {
        return *real;
    }
    return std::nullopt;
}

const bool* boolValue(const PowerSourceDescription& description, const char* key) {
    const auto found = description.find(key);
    return found == description.end() ? nullptr : std::get_if<bool>(&found->second);
}

const std::string* textValue(const PowerSourceDescription& description, const char* key) {
    const auto found = description.find(key);
    return found == description.end() ? nullptr : std::get_if<std::string>(&found->second);
}

struct TakenSource {
    const PowerSourceDescription* description;
    double current;
    double max;
};

std::optional<TakenSource> firstUsableSource(const PowerSourceList& sources) {
    for (const auto& source : sources) {
        if (!source) {
            continue;
        }
        const auto current = numberValue(*source, "Current Capacity");
        if (!current) {
            continue;
        }
        const auto max = numberValue(*source, "Max Capacity");
        if (!max || !(*max > 0.0)) {
            continue;
        }
        if (const bool* present = boolValue(*source, "Is Present"); present && !*present) {
            continue;
        }
        if (const std::string* transport = textValue(*source, "Transport Type");
            transport && *transport != "Internal") {
            continue;
        }
        return TakenSource{&*source, *current, *max};
    }
    return std::nullopt;
}

} // namespace

std::optional<std::int64_t> percentage(double current, double max) {
    const double ratio = current / max * 100.0;
    if (std::isnan(ratio)) {
        return std::nullopt;
    }
    // Clamping before the conversion gives the same answer as clamping after it for every
    // representable value, and keeps an absurd capacity from overflowing the integer.
    const double rounded = std::round(ratio);
    if (rounded <= 0.0) {
        return 0;
    }
    if (rounded >= 100.0) {
        return 100;
    }
    return static_cast<std::int64_t>(rounded);
}

std::optional<int> maximumCapacity(double full, double design) {
    if (!(full > 0.0) || !(design > 0.0)) {
        return std::nullopt;
    }
    const double share = std::round(full / design * 100.0);
    if (!(share >= 1.0) || share > 150.0) {
        return std::nullopt;
    }
    return static_cast<int>(share);
}

std::optional<std::string> modelIdentifier(const HostInfo& host) {
    const auto raw = host.rawModelIdentifier();
    if (!raw || raw->size() < 2) {
        return std::nullopt;
    }
    const auto zero = raw->find('\0');
    std::string model = raw->substr(0, zero);
    if (model.empty()) {
        return std::nullopt;
    }
    return model;
}

MacBatteryOutcome read(PowerSourceProvider& powerSources, const HostInfo& host, Date now) {
    const auto sources = powerSources.copyPowerSources();
    if (!sources) {
        return {std::nullopt, kStatusUnavailable, {}, {}};
    }
    const auto taken = firstUsableSource(*sources);
    if (!taken) {
        return {std::nullopt, kStatusNoBattery, {}, {}};
    }
    const auto percent = percentage(taken->current, taken->max);
    if (!percent) {
        return {std::nullopt, kStatusNoBattery, {}, {}};
    }
    const std::string* state = textValue(*taken->description, "Power Source State");
    const bool isPluggedIn = state != nullptr && *state == "AC Power";
    const bool* charging = boolValue(*taken->description, "Is Charging");
    const bool isCharging = charging != nullptr && *charging;

    // The plug is tested first on purpose: a source that claims to charge while on battery
    // reads "On battery".
    const char* status = !isPluggedIn ? kStatusOnBattery
                         : isCharging ? kStatusCharging
                                      : kStatusConnected;
    BatteryDeviceSnapshot snapshot("mac", host.localizedName().value_or(kFallbackName), *percent,
                                   isCharging, isPluggedIn, now, "Mac", modelIdentifier(host));
    MacBatteryOutcome outcome{std::move(snapshot), status, {}, {}};
    const auto& description = *taken->description;
    if (const auto design = numberValue(description, "Design Capacity")) {
        outcome.health.maximumCapacity = maximumCapacity(taken->max, *design);
    }
    if (const auto cycles = numberValue(description, "Cycle Count");
        cycles && *cycles >= 1.0 && *cycles < 1e6) {
        outcome.health.cycleCount = static_cast<int>(*cycles);
    }
    // Minutes beyond two days are a rate too small to mean anything.
    const auto minutes = [&](const char* key) -> std::optional<int> {
        const auto value = numberValue(description, key);
        if (!value || !(*value >= 1.0) || *value > 48.0 * 60) {
            return std::nullopt;
        }
        return static_cast<int>(*value);
    };
    if (isCharging) {
        outcome.timeLeft.minutesToFull = minutes("Time to Full Charge");
    } else if (!isPluggedIn) {
        outcome.timeLeft.minutesToEmpty = minutes("Time to Empty");
    }
    return outcome;
}

} // namespace ambrel::MacBatteryReader
