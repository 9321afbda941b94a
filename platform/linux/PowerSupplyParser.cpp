#include "platform/linux/PowerSupplyParser.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <string_view>

#include "model/WhiteSpace.h"

namespace ambrel {

namespace {

std::optional<std::string_view> attribute(const PowerSupplyEntry& entry, const std::string& key) {
    const auto found = entry.attributes.find(key);
    if (found == entry.attributes.end()) {
        return std::nullopt;
    }
    return trimmingAsciiBlanks(found->second);
}

std::optional<std::int64_t> integerAttribute(const PowerSupplyEntry& entry,
                                             const std::string& key) {
    const auto text = attribute(entry, key);
    if (!text || text->empty()) {
        return std::nullopt;
    }
    std::int64_t value = 0;
    const char* end = text->data() + text->size();
    const auto [rest, error] = std::from_chars(text->data(), end, value);
    if (error != std::errc() || rest != end) {
        return std::nullopt;
    }
    return value;
}

bool isExternalSupplyType(std::string_view type) {
    return type == "Mains" || type == "Wireless" || type.starts_with("USB");
}

bool anyExternalSupplyOnline(const std::vector<PowerSupplyEntry>& supplies) {
    for (const auto& supply : supplies) {
        const auto type = attribute(supply, "type");
        if (type && isExternalSupplyType(*type) && integerAttribute(supply, "online") == 1) {
            return true;
        }
    }
    return false;
}

// The design capacity, in the unit of the full charge it goes with. A design of zero or less
// says nothing.
void describeWear(PowerSourceDescription& description, std::optional<std::int64_t> design) {
    if (design && *design > 0) {
        description["Design Capacity"] = *design;
    }
}

// Minutes to full or to empty: the kernel's own estimate (seconds) when the driver gives one,
// else the energy (or charge) still to go over the present power (or current). Some drivers
// report the rate with a sign, so only its size counts; a rate of zero gives no estimate.
void describeTimeLeft(PowerSourceDescription& description, const PowerSupplyEntry& battery,
                      bool charging) {
    const char* key = charging ? "Time to Full Charge" : "Time to Empty";
    if (const auto seconds =
            integerAttribute(battery, charging ? "time_to_full_now" : "time_to_empty_now");
        seconds && *seconds > 0) {
        description[key] = (*seconds + 30) / 60;
        return;
    }
    const auto estimate = [&](const char* now, const char* full,
                              const char* rate) -> std::optional<std::int64_t> {
        const auto level = integerAttribute(battery, now);
        const auto top = integerAttribute(battery, full);
        auto flow = integerAttribute(battery, rate);
        if (!level || !top || !flow || *flow == 0 || *level < 0 || *top <= 0) {
            return std::nullopt;
        }
        const double perHour = std::abs(static_cast<double>(*flow));
        const double left = charging ? static_cast<double>(std::max<std::int64_t>(*top - *level, 0))
                                     : static_cast<double>(*level);
        return static_cast<std::int64_t>(std::llround(left / perHour * 60.0));
    };
    auto minutes = estimate("energy_now", "energy_full", "power_now");
    if (!minutes) {
        minutes = estimate("charge_now", "charge_full", "current_now");
    }
    if (minutes) {
        description[key] = *minutes;
    }
}

PowerSourceDescription describeBattery(const PowerSupplyEntry& battery, bool externalOnline) {
    PowerSourceDescription description;

    // Energy (µWh) is the most precise pair, then charge (µAh), then the kernel's own percent.
    const auto energyNow = integerAttribute(battery, "energy_now");
    const auto energyFull = integerAttribute(battery, "energy_full");
    const auto chargeNow = integerAttribute(battery, "charge_now");
    const auto chargeFull = integerAttribute(battery, "charge_full");
    const auto capacity = integerAttribute(battery, "capacity");
    if (energyNow && energyFull) {
        description["Current Capacity"] = *energyNow;
        description["Max Capacity"] = *energyFull;
        describeWear(description, integerAttribute(battery, "energy_full_design"));
    } else if (chargeNow && chargeFull) {
        description["Current Capacity"] = *chargeNow;
        description["Max Capacity"] = *chargeFull;
        describeWear(description, integerAttribute(battery, "charge_full_design"));
    } else if (capacity) {
        description["Current Capacity"] = *capacity;
        description["Max Capacity"] = std::int64_t{100};
    }

    if (const auto present = integerAttribute(battery, "present"); present == 0 || present == 1) {
        description["Is Present"] = *present == 1;
    }

    const auto scope = attribute(battery, "scope");
    description["Transport Type"] =
        !scope || *scope == "System" ? std::string("Internal") : std::string(*scope);

    const auto status = attribute(battery, "status");
    const bool statusSaysPower =
        status && (*status == "Charging" || *status == "Full" || *status == "Not charging");
    description["Power Source State"] =
        std::string(externalOnline || statusSaysPower ? "AC Power" : "Battery Power");
    if (status) {
        description["Is Charging"] = *status == "Charging";
    }
    // Zero is what drivers without a counter report: unknown, not a new battery.
    if (const auto cycles = integerAttribute(battery, "cycle_count"); cycles && *cycles > 0) {
        description["Cycle Count"] = *cycles;
    }
    if (status == "Charging" || status == "Discharging") {
        describeTimeLeft(description, battery, *status == "Charging");
    }
    return description;
}

} // namespace

PowerSourceList powerSourcesFromSupplies(const std::vector<PowerSupplyEntry>& supplies) {
    const bool externalOnline = anyExternalSupplyOnline(supplies);
    PowerSourceList sources;
    for (const auto& supply : supplies) {
        if (attribute(supply, "type") == "Battery") {
            sources.emplace_back(describeBattery(supply, externalOnline));
        }
    }
    return sources;
}

} // namespace ambrel
