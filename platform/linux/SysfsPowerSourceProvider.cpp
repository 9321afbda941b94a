#include "platform/linux/SysfsPowerSourceProvider.h"

#include <algorithm>
#include <array>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>

#include "platform/linux/PowerSupplyParser.h"

namespace ambrel {

namespace {

constexpr std::array<const char*, 17> kAttributes{"type",
                                                  "status",
                                                  "present",
                                                  "scope",
                                                  "online",
                                                  "capacity",
                                                  "energy_now",
                                                  "energy_full",
                                                  "charge_now",
                                                  "charge_full",
                                                  "energy_full_design",
                                                  "charge_full_design",
                                                  "cycle_count",
                                                  "power_now",
                                                  "current_now",
                                                  "time_to_empty_now",
                                                  "time_to_full_now"};

// Attribute files are a few bytes; anything longer is not one of them.
constexpr std::streamsize kMaxAttributeSize = 4096;

std::optional<std::string> readSmallFile(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream) {
        return std::nullopt;
    }
    std::string text(static_cast<std::size_t>(kMaxAttributeSize), '\0');
    stream.read(text.data(), kMaxAttributeSize);
    if (stream.bad()) {
        return std::nullopt;
    }
    text.resize(static_cast<std::size_t>(stream.gcount()));
    return text;
}

} // namespace

SysfsPowerSourceProvider::SysfsPowerSourceProvider(std::filesystem::path root)
    : m_root(std::move(root)) {}

std::optional<PowerSourceList> SysfsPowerSourceProvider::copyPowerSources() {
    std::error_code error;
    std::filesystem::directory_iterator entries(m_root, error);
    if (error) {
        return std::nullopt;
    }
    std::vector<std::string> names;
    for (const auto& entry : entries) {
        names.push_back(entry.path().filename().string());
    }
    std::sort(names.begin(), names.end());

    std::vector<PowerSupplyEntry> supplies;
    supplies.reserve(names.size());
    for (auto& name : names) {
        PowerSupplyEntry supply{std::move(name), {}};
        for (const char* attribute : kAttributes) {
            if (auto text = readSmallFile(m_root / supply.name / attribute)) {
                supply.attributes.emplace(attribute, std::move(*text));
            }
        }
        supplies.push_back(std::move(supply));
    }
    return powerSourcesFromSupplies(supplies);
}

} // namespace ambrel
