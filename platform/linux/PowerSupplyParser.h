#pragma once

#include <map>
#include <string>
#include <vector>

#include "platform/PowerSourceProvider.h"

namespace ambrel {

// One entry of /sys/class/power_supply: its name and the text of the attribute files read
// (for example "type" -> "Battery\n"). Files that could not be read are simply missing.
struct PowerSupplyEntry {
    std::string name;
    std::map<std::string, std::string> attributes;
};

// Turns the supplies, in the order given, into power-source descriptions: one per supply of
// type "Battery". Pure: no I/O. Attribute texts may be anything; a value that does not parse
// leaves its key out of the description.
PowerSourceList powerSourcesFromSupplies(const std::vector<PowerSupplyEntry>& supplies);

} // namespace ambrel
