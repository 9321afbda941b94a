#include "commands/ReadingsCommand.h"

#include <memory>
#include <utility>

#include <QCoreApplication>

#include <nlohmann/json.hpp>

#include "commands/CommandLine.h"
#include "monitor/PhoneHealthCheck.h"
#include "platform/qt/QtMainScheduler.h"

namespace ambrel {

namespace {

nlohmann::json snapshotJson(const std::optional<BatteryDeviceSnapshot>& snapshot) {
    return snapshot ? snapshot->toJson() : nlohmann::json(nullptr);
}

} // namespace

ReadingsCommand::ReadingsCommand(MonitorServicesFactory services,
                                 std::optional<std::filesystem::path> toolDirectory)
    : m_services(std::move(services)), m_toolDirectory(std::move(toolDirectory)) {}

bool ReadingsCommand::isRequested(const std::vector<std::string>& arguments) const {
    return CommandLine::hasArgument(arguments, "--readings");
}

std::string ReadingsCommand::report(const BatteryMonitor& monitor) {
    // The phone's health as last read by the widget (this switch does not ask the phone).
    nlohmann::json phoneHealth = nullptr;
    if (const auto record = PhoneHealthFile::choose(
            PhoneHealthFile::load(monitor.cacheURL().parent_path() / PhoneHealthFile::kFileName),
            {monitor.phoneID()})) {
        phoneHealth = PhoneHealthFile::healthJson(record->health);
        phoneHealth["measured"] = record->measured.secondsSinceReferenceDate();
    }
    const nlohmann::json json = {
        {"mac", snapshotJson(monitor.mac())},
        {"macHealth", PhoneHealthFile::healthJson(monitor.macHealth())},
        {"macStatus", monitor.macStatus()},
        {"phone", snapshotJson(monitor.phone())},
        {"phoneHealth", std::move(phoneHealth)},
        {"phoneSetupState", std::string(rawValue(monitor.phoneSetupState()))},
        {"phoneStatus", monitor.phoneStatus()},
    };
    return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

int ReadingsCommand::run(const Invocation& invocation) {
    // A core application, not a GUI one: this works over SSH and without any display.
    int argc = invocation.argc;
    QCoreApplication application(argc, invocation.argv);
    BatteryMonitor monitor(m_services(std::make_shared<QtMainScheduler>()), m_toolDirectory,
                           std::nullopt);

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
    invocation.out(report(monitor) + "\n");
    return 0;
}

} // namespace ambrel
