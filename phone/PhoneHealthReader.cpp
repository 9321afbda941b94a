#include "phone/PhoneHealthReader.h"

#include <cmath>
#include <vector>

#include "phone/CommandRunner.h"
#include "phone/PropertyList.h"

namespace ambrel::PhoneHealthReader {

namespace {

// An entry holds arrays of samples; far more than the reading's own limit.
constexpr std::size_t kMostContainers = 8192;

std::optional<std::int64_t> positive(const PropertyDictionary& entry, const char* key) {
    const auto found = entry.find(key);
    if (found == entry.end() || found->second.kind() == PropertyValue::Kind::boolean) {
        return std::nullopt;
    }
    const auto value = found->second.integerValue();
    if (!value || *value <= 0) {
        return std::nullopt;
    }
    return value;
}

// The first of `keys` that `entry`, then `fallback`, holds as a positive number.
std::optional<std::int64_t> firstOf(const PropertyDictionary& entry,
                                    const std::optional<PropertyDictionary>& fallback,
                                    std::initializer_list<const char*> keys) {
    for (const auto* dictionary : {&entry, fallback ? &*fallback : nullptr}) {
        if (dictionary == nullptr) {
            continue;
        }
        for (const char* key : keys) {
            if (auto value = positive(*dictionary, key)) {
                return value;
            }
        }
    }
    return std::nullopt;
}

} // namespace

std::optional<BatteryHealth> parse(std::string_view toolOutput) {
    const auto entry = parsePropertyList(toolOutput, {"IORegistry"}, kMostContainers);
    if (!entry) {
        return std::nullopt;
    }
    const auto batteryData =
        parsePropertyList(toolOutput, {"IORegistry", "BatteryData"}, kMostContainers);

    BatteryHealth health;
    const auto full =
        firstOf(*entry, batteryData, {"NominalChargeCapacity", "AppleRawMaxCapacity"});
    const auto design = firstOf(*entry, batteryData, {"DesignCapacity"});
    if (full && design) {
        const double share =
            std::round(static_cast<double>(*full) / static_cast<double>(*design) * 100.0);
        // Past half again the design is a unit mix-up, not a battery.
        if (share >= 1.0 && share <= 150.0) {
            health.maximumCapacity = static_cast<int>(share);
        }
    }
    if (const auto cycles = firstOf(*entry, batteryData, {"CycleCount"});
        cycles && *cycles < 1000000) {
        health.cycleCount = static_cast<int>(*cycles);
    }
    // Hundredths of a degree; anything outside what a working phone reaches is a wrong value.
    if (const auto found = entry->find("Temperature"); found != entry->end()) {
        if (const auto hundredths = found->second.integerValue();
            hundredths && found->second.kind() != PropertyValue::Kind::boolean &&
            *hundredths > -4000 && *hundredths < 10000) {
            health.temperature = static_cast<double>(*hundredths) / 100.0;
        }
    }
    if (health.isEmpty()) {
        return std::nullopt;
    }
    return health;
}

std::optional<BatteryHealth> read(const std::filesystem::path& toolDirectory,
                                  const std::string& udid, PhoneLink link,
                                  ProcessLauncher& launcher, std::chrono::milliseconds timeout) {
    std::vector<std::string> arguments;
    if (link == PhoneLink::wifi) {
        arguments.emplace_back("-n");
    }
    arguments.insert(arguments.end(), {"-u", udid, "ioregentry", kBatteryEntry});
    const auto output =
        CommandRunner::run(launcher, toolDirectory / kTool, arguments, timeout, kLargestOutput);
    if (!output.succeeded()) {
        return std::nullopt;
    }
    return parse(output.stdoutText);
}

} // namespace ambrel::PhoneHealthReader
