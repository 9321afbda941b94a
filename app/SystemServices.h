#pragma once

#include <filesystem>
#include <memory>
#include <optional>

#include "monitor/BatteryMonitor.h"
#include "platform/Bundle.h"

namespace ambrel {

// The real system behind the monitor: wall clock, sysfs power supplies, XDG folders, background
// threads and the phone tools. The scheduler and the bundle (read once by the caller) are the
// caller's.
MonitorServices systemMonitorServices(std::shared_ptr<MainScheduler> scheduler,
                                      std::shared_ptr<Bundle> bundle);

// The tool folder the program hands the monitor: the bundle's resource folder + "Runtime/bin";
// absent when the bundle has no resource folder.
std::optional<std::filesystem::path> bundleToolDirectory(const Bundle& bundle);

} // namespace ambrel
