#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "commands/Command.h"
#include "commands/MonitorServicesFactory.h"
#include "monitor/BatteryMonitor.h"

namespace ambrel {

// "--readings": builds the monitor as a normal run would, reads both batteries once, waits for
// the phone read to end, prints one JSON line and exits 0. Needs no display.
class ReadingsCommand final : public Command {
public:
    // `services` must read the phone; `toolDirectory` is where its tools are.
    ReadingsCommand(MonitorServicesFactory services,
                    std::optional<std::filesystem::path> toolDirectory);

    bool isRequested(const std::vector<std::string>& arguments) const override;
    bool usesPhone() const override { return true; }
    int run(const Invocation& invocation) override;

    // The one-line report: compact JSON, keys sorted, snapshots in their JSON form:
    // {"mac":…,"macStatus":…,"phone":…,"phoneSetupState":…,"phoneStatus":…}
    static std::string report(const BatteryMonitor& monitor);

private:
    MonitorServicesFactory m_services;
    std::optional<std::filesystem::path> m_toolDirectory;
};

} // namespace ambrel
