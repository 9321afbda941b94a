#include "app/SystemServices.h"

#include <utility>

#include "phone/PhoneReader.h"
#include "platform/linux/LinuxHostInfo.h"
#include "platform/linux/SysfsPowerSourceProvider.h"
#include "platform/linux/SystemClock.h"
#include "platform/linux/ThreadWorker.h"
#include "platform/linux/XdgFolders.h"

namespace ambrel {

MonitorServices systemMonitorServices(std::shared_ptr<MainScheduler> scheduler,
                                      std::shared_ptr<Bundle> bundle,
                                      std::shared_ptr<const Environment> environment,
                                      std::shared_ptr<ProcessLauncher> launcher) {
    auto clock = std::make_shared<SystemClock>();
    MonitorServices services;
    services.clock = clock;
    services.scheduler = std::move(scheduler);
    services.worker = std::make_shared<ThreadWorker>();
    services.powerSources = std::make_shared<SysfsPowerSourceProvider>();
    services.host = std::make_shared<LinuxHostInfo>();
    services.folders = std::make_shared<XdgFolders>(std::move(environment));
    services.bundle = std::move(bundle);
    if (!launcher) {
        return services;
    }
    // The read keeps its own share of the launcher: it may still be on its way when the program
    // quits.
    services.readPhone = [clock, launcher = std::move(launcher)](
                             const std::filesystem::path& toolDirectory,
                             const std::optional<std::string>& preferredID,
                             const std::optional<PhoneIdentity>& identity) {
        return PhoneReader::readAttempt(toolDirectory, preferredID, identity, *clock, *launcher);
    };
    return services;
}

std::optional<std::filesystem::path> bundleToolDirectory(const Bundle& bundle) {
    const auto resources = bundle.resourceFolder();
    if (!resources) {
        return std::nullopt;
    }
    return *resources / "Runtime" / "bin" / "";
}

} // namespace ambrel
