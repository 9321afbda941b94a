#include "app/ReadingsCommand.h"

#include <cstdio>
#include <memory>

#include <QCoreApplication>

#include <nlohmann/json.hpp>

#include "app/SystemServices.h"
#include "platform/linux/ExecutableBundle.h"
#include "platform/linux/SpawnProcessLauncher.h"
#include "platform/qt/QtMainScheduler.h"

namespace ambrel::ReadingsCommand {

namespace {

nlohmann::json snapshotJson(const std::optional<BatteryDeviceSnapshot>& snapshot) {
    return snapshot ? snapshot->toJson() : nlohmann::json(nullptr);
}

} // namespace

std::string report(const BatteryMonitor& monitor) {
    const nlohmann::json json = {
        {"mac", snapshotJson(monitor.mac())},
        {"macStatus", monitor.macStatus()},
        {"phone", snapshotJson(monitor.phone())},
        {"phoneSetupState", std::string(rawValue(monitor.phoneSetupState()))},
        {"phoneStatus", monitor.phoneStatus()},
    };
    return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

int run(int argc, char** argv) {
    // A core application, not a GUI one: this works over SSH and without any display.
    QCoreApplication application(argc, argv);
    auto scheduler = std::make_shared<QtMainScheduler>();
    const auto launcher = std::make_shared<SpawnProcessLauncher>();
    auto services =
        systemMonitorServices(scheduler, std::make_shared<ExecutableBundle>(), launcher);
    const auto toolDirectory = bundleToolDirectory(*services.bundle);
    BatteryMonitor monitor(std::move(services), toolDirectory, std::nullopt);

    const auto finishWhenIdle = [&monitor] {
        if (!monitor.isRefreshingPhone()) {
            QCoreApplication::exit(0);
        }
    };
    monitor.addObserver([&](MonitorProperty property, ChangePhase phase) {
        if (property == MonitorProperty::isRefreshingPhone && phase == ChangePhase::didChange) {
            finishWhenIdle();
        }
    });
    monitor.refreshAll();
    if (monitor.isRefreshingPhone()) {
        QCoreApplication::exec();
    }
    const std::string line = report(monitor) + "\n";
    std::fwrite(line.data(), 1, line.size(), stdout);
    std::fflush(stdout);
    launcher->shutDown();
    return 0;
}

} // namespace ambrel::ReadingsCommand
