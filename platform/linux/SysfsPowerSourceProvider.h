#pragma once

#include <filesystem>

#include "platform/PowerSourceProvider.h"

namespace ambrel {

// Power sources from the kernel's power-supply class folder (normally
// /sys/class/power_supply; tests point it at a fixture tree). Entries are taken in byte
// order of their names.
class SysfsPowerSourceProvider final : public PowerSourceProvider {
public:
    explicit SysfsPowerSourceProvider(std::filesystem::path root = "/sys/class/power_supply");

    // Absent when the folder does not exist or cannot be listed.
    std::optional<PowerSourceList> copyPowerSources() override;

private:
    std::filesystem::path m_root;
};

} // namespace ambrel
