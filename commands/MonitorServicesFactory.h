#pragma once

#include <functional>
#include <memory>

#include "monitor/BatteryMonitor.h"
#include "platform/MainScheduler.h"

namespace ambrel {

// Makes the system's services for a monitor that runs on `scheduler`'s thread: what the entry
// hands the commands that read batteries, once they have their event loop.
using MonitorServicesFactory =
    std::function<MonitorServices(std::shared_ptr<MainScheduler> scheduler)>;

} // namespace ambrel
