#pragma once

#include <filesystem>
#include <memory>
#include <optional>

#include "monitor/BatteryMonitor.h"
#include "platform/Bundle.h"
#include "platform/Environment.h"
#include "platform/ProcessLauncher.h"

namespace ambrel {

// The real system behind the monitor: wall clock, sysfs power supplies, XDG folders (from
// `environment`), background
// threads and the phone tools. The scheduler, the bundle (read once by the caller) and the
// launcher the phone tools are started with are the caller's; without a launcher the monitor
// gets no phone reader.
MonitorServices systemMonitorServices(std::shared_ptr<MainScheduler> scheduler,
                                      std::shared_ptr<Bundle> bundle,
                                      std::shared_ptr<const Environment> environment,
                                      std::shared_ptr<ProcessLauncher> launcher);

// The tool folder the program hands the monitor: the bundle's resource folder + "Runtime/bin";
// absent when the bundle has no resource folder.
std::optional<std::filesystem::path> bundleToolDirectory(const Bundle& bundle);

} // namespace ambrel
