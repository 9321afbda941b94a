#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "commands/Command.h"
#include "commands/MonitorServicesFactory.h"
#include "monitor/BarState.h"
#include "monitor/BatteryMonitor.h"
#include "platform/Environment.h"

namespace ambrel {

// "--bar waybar|polybar|i3blocks [--follow]": prints one line for a status bar at once, never
// waiting for the phone, and exits with the format's code (i3blocks: 33 when a battery is
// critical). With "--follow" it keeps running and prints a new line whenever what the bar shows
// changes (i3blocks then prints only the full text, as its persistent mode reads it). An
// unknown or missing format prints a hint on standard error and exits 2.
class BarCommand final : public Command {
public:
    // `services` need not read the phone: the bar never does. `environment` gives the user's
    // locale; `stateFile` is where a running widget shares its state (BarStateFile::location).
    BarCommand(MonitorServicesFactory services, std::shared_ptr<const Environment> environment,
               std::filesystem::path stateFile);

    bool isRequested(const std::vector<std::string>& arguments) const override;
    int run(const Invocation& invocation) override;

    // What a status bar shows now: the running widget's state in `stateFile` when one runs,
    // else the saved phone reading and the computer's reading held by `monitor`.
    static BarState currentState(const BatteryMonitor& monitor,
                                 const std::filesystem::path& stateFile);

private:
    MonitorServicesFactory m_services;
    std::shared_ptr<const Environment> m_environment;
    std::filesystem::path m_stateFile;
};

} // namespace ambrel
