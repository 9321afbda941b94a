#include "platform/linux/PowerSupplyParser.h"

#include <charconv>
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
    } else if (chargeNow && chargeFull) {
        description["Current Capacity"] = *chargeNow;
        description["Max Capacity"] = *chargeFull;
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
