#include "app/AmbrelMain.h"

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include <QApplication>

#include "app/AmbrelDelegate.h"
#include "app/BarCommand.h"
#include "app/CommandLine.h"
#include "app/ConnectionCommands.h"
#include "app/ConnectionSetup.h"
#include "app/LoginCommand.h"
#include "app/QuitSignals.h"
#include "app/ReadingsCommand.h"
#include "app/SettingsFile.h"
#include "app/ShellTexts.h"
#include "app/SingleInstance.h"
#include "muxer/PrivateMuxer.h"
#include "platform/linux/ExecutableBundle.h"
#include "platform/linux/SpawnProcessLauncher.h"
#include "platform/linux/XdgAutostartService.h"
#include "platform/linux/XdgFolders.h"

#ifndef TOVRIN_VERSION
#error "TOVRIN_VERSION must be defined by the build"
#endif

namespace ambrel::AmbrelMain {

namespace {

void print(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

std::string bundleIdentifier(const Bundle& bundle) {
    return bundle.infoString("CFBundleIdentifier").value_or(std::string());
}

// The program's own executable stands for the bundle path: it is what the autostart entry
// starts and what the user would look for.
std::string appPath(const Bundle& bundle) {
    return bundle.executablePath().string();
}

std::unique_ptr<XdgAutostartService> loginItemService(const Bundle& bundle) {
    AutostartProgram program;
    program.identifier = bundleIdentifier(bundle);
    program.name = ShellTexts::displayName(bundle);
    program.executable = bundle.executablePath();
    program.resourceFolder = bundle.resourceFolder();
    return std::make_unique<XdgAutostartService>(std::move(program));
}

// Placement and stacking below other windows need X11; under Wayland the program asks for
// XWayland unless the user chose a platform.
void preferX11UnderWayland() {
    if (!qEnvironmentVariableIsEmpty("WAYLAND_DISPLAY") &&
        !qEnvironmentVariableIsSet("QT_QPA_PLATFORM")) {
        qputenv("QT_QPA_PLATFORM", "xcb");
    }
}

// What a later launch hands over to the running copy: a preview capture, with its path made
// absolute since the running copy works in another folder, and the look asked for.
SingleInstance::Request handOverRequest(const std::vector<std::string>& arguments) {
    const auto path = CommandLine::capturePreviewPath(arguments);
    if (!path) {
        return {};
    }
    std::error_code error;
    const auto absolute = std::filesystem::absolute(*path, error);
    SingleInstance::Request request{arguments.empty() ? std::string("tovrin") : arguments.front(),
                                    "--capture-preview", error ? *path : absolute.string()};
    if (const auto look = CommandLine::previewLook(arguments)) {
        request.emplace_back(look == CommandLine::PreviewLook::dark ? "--preview-dark"
                                                                    : "--preview-light");
    }
    return request;
}

int runWidget(int argc, char** argv, const std::vector<std::string>& arguments,
              std::shared_ptr<Bundle> bundle, SystemConnectionProbe::Setup connectionSetup,
              HeldQuitSignals& heldQuitSignals) {
    preferX11UnderWayland();
    auto [claim, instance] = SingleInstance::claim(
        SingleInstance::lockPath(bundleIdentifier(*bundle).empty() ? std::string("tovrin")
                                                                   : bundleIdentifier(*bundle)),
        handOverRequest(arguments));
    if (claim == SingleInstance::Claim::handedOver) {
        return 0;
    }

    QCoreApplication::setOrganizationName(QString::fromLatin1(SettingsFile::kOrganization));
    QCoreApplication::setOrganizationDomain(QStringLiteral("quenby.com"));
    QCoreApplication::setApplicationName(QString::fromLatin1(SettingsFile::kApplication));
    QCoreApplication::setApplicationVersion(QStringLiteral(TOVRIN_VERSION));
    QApplication application(argc, argv);

    const QuitSignals quitSignals;
    heldQuitSignals.release();
    auto loginItems = loginItemService(*bundle);
    AmbrelDelegate delegate(arguments, std::move(bundle), std::move(loginItems),
                            std::move(connectionSetup));
    QObject::connect(&application, &QCoreApplication::aboutToQuit, &delegate,
                     [&delegate] { delegate.applicationWillTerminate(); });
    delegate.applicationDidFinishLaunching();
    if (instance) {
        instance->listen(
            [&delegate](const SingleInstance::Request& request) { delegate.laterLaunch(request); });
    }
    return QApplication::exec();
}

} // namespace

int main(int argc, char** argv) {
    const auto arguments = CommandLine::arguments(argc, argv);
    auto bundle = std::make_shared<ExecutableBundle>();

    auto loginItems = loginItemService(*bundle);
    if (const auto outcome = LoginCommand::run(arguments, *loginItems, bundleIdentifier(*bundle),
                                               appPath(*bundle))) {
        print(outcome->output);
        return outcome->exitCode;
    }
    const auto name = ShellTexts::displayName(*bundle);
    if (CommandLine::hasArgument(arguments, "--help")) {
        print(CommandLine::helpText(name));
        return 0;
    }
    if (CommandLine::hasArgument(arguments, "--version")) {
        print(CommandLine::versionText(
            name, bundle->infoString("CFBundleShortVersionString").value_or(TOVRIN_VERSION)));
        return 0;
    }
    if (BarCommand::isRequested(arguments)) {
        return BarCommand::run(argc, argv, arguments);
    }
    // Wi-Fi phones are reached through the program's own muxer; the phone tools find it in
    // USBMUXD_SOCKET_ADDRESS. Started before any other thread, kept until the program ends.
    const auto support = XdgFolders().applicationSupport();
    const auto dataFolder = support ? *support / "Ambrel" : std::filesystem::path();
    const char* userMuxer = std::getenv("USBMUXD_SOCKET_ADDRESS");
    const std::string userMuxerAddress = userMuxer != nullptr ? userMuxer : "";
    HeldQuitSignals heldQuitSignals;
    const auto muxer = startPrivateMuxer(dataFolder);
    if (ConnectionCommands::isRequested(arguments)) {
        heldQuitSignals.release();
        const auto launcher = std::make_shared<SpawnProcessLauncher>();
        return ConnectionCommands::run(
            arguments, connectionProbeSetup(*bundle, userMuxerAddress, dataFolder, launcher));
    }
    if (CommandLine::hasArgument(arguments, "--readings")) {
        heldQuitSignals.release();
        return ReadingsCommand::run(argc, argv);
    }
    auto connectionSetup = connectionProbeSetup(*bundle, userMuxerAddress, dataFolder, nullptr);
    return runWidget(argc, argv, arguments, std::move(bundle), std::move(connectionSetup),
                     heldQuitSignals);
}

} // namespace ambrel::AmbrelMain
