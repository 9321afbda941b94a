// The power-supply attribute texts of /sys/class/power_supply, as this computer's battery
// reading turns them into power-source descriptions.
//
// Input layout: records separated by NUL bytes, each "<supply>/<attribute>=<text>"; records of
// one supply name gather into one entry, in the order the names first appear. A record without
// "/" or "=" is skipped. fuzz/make_corpus.py writes the test fixtures in this form.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "fuzz/FuzzCheck.h"
#include "platform/linux/PowerSupplyParser.h"

using ambrel::fuzzing::check;

namespace {

std::vector<ambrel::PowerSupplyEntry> suppliesFrom(std::string_view input) {
    std::vector<ambrel::PowerSupplyEntry> supplies;
    while (!input.empty()) {
        const auto end = std::min(input.find('\0'), input.size());
        const std::string_view record = input.substr(0, end);
        input.remove_prefix(std::min(end + 1, input.size()));
        const auto slash = record.find('/');
        const auto equals = record.find('=', slash == std::string_view::npos ? 0 : slash);
        if (slash == std::string_view::npos || equals == std::string_view::npos) {
            continue;
        }
        const std::string name(record.substr(0, slash));
        auto entry = std::find_if(supplies.begin(), supplies.end(),
                                  [&](const auto& supply) { return supply.name == name; });
        if (entry == supplies.end()) {
            supplies.push_back({name, {}});
            entry = supplies.end() - 1;
        }
        entry->attributes[std::string(record.substr(slash + 1, equals - slash - 1))] =
            std::string(record.substr(equals + 1));
    }
    return supplies;
}

std::string_view trimmedType(const ambrel::PowerSupplyEntry& supply) {
    const auto found = supply.attributes.find("type");
    if (found == supply.attributes.end()) {
        return {};
    }
    std::string_view type = found->second;
    const auto isBlank = [](char c) { return c == '\n' || c == ' ' || c == '\t' || c == '\r'; };
    while (!type.empty() && isBlank(type.back())) {
        type.remove_suffix(1);
    }
    while (!type.empty() && isBlank(type.front())) {
        type.remove_prefix(1);
    }
    return type;
}

template <typename T>
bool holds(const ambrel::PowerSourceDescription& description, const char* key) {
    const auto found = description.find(key);
    return found != description.end() && std::holds_alternative<T>(found->second);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const auto supplies = suppliesFrom(std::string_view(reinterpret_cast<const char*>(data), size));
    const auto sources = ambrel::powerSourcesFromSupplies(supplies);

    const auto batteries = std::count_if(supplies.begin(), supplies.end(), [](const auto& supply) {
        return trimmedType(supply) == "Battery";
    });
    check(static_cast<std::ptrdiff_t>(sources.size()) == batteries,
          "one description per supply of type Battery");
    for (const auto& source : sources) {
        check(source.has_value(), "a parsed battery always has a description");
        const auto& description = *source;
        check(description.contains("Current Capacity") == description.contains("Max Capacity"),
              "the capacities come in pairs");
        if (description.contains("Current Capacity")) {
            check(holds<std::int64_t>(description, "Current Capacity") &&
                      holds<std::int64_t>(description, "Max Capacity"),
                  "capacities are integers");
        }
        check(holds<std::string>(description, "Transport Type"), "a transport type is always set");
        check(holds<std::string>(description, "Power Source State"), "a power state is always set");
        const auto& state = std::get<std::string>(description.at("Power Source State"));
        check(state == "AC Power" || state == "Battery Power", "the power state is one of two");
        if (description.contains("Is Present")) {
            check(holds<bool>(description, "Is Present"), "presence is a boolean");
        }
        if (description.contains("Is Charging")) {
            check(holds<bool>(description, "Is Charging"), "charging is a boolean");
            if (std::get<bool>(description.at("Is Charging"))) {
                check(state == "AC Power", "a charging battery is on external power");
            }
        }
    }
    return 0;
}
