#include "app/AmbrelMain.h"

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <memory>
#include <string>

#include <QApplication>

#include "app/AmbrelDelegate.h"
#include "app/ArrivalRelay.h"
#include "app/ConnectionSetup.h"
#include "app/SystemServices.h"
#include "commands/BarCommand.h"
#include "commands/CommandLine.h"
#include "commands/CompanionSwitchCommand.h"
#include "commands/DiagnoseCommand.h"
#include "commands/EnableLoginCommand.h"
#include "commands/EnableWifiCommand.h"
#include "commands/HelpCommand.h"
#include "commands/HistoryCommand.h"
#include "commands/LoginStatusCommand.h"
#include "commands/ReadingsCommand.h"
#include "commands/VersionCommand.h"
#include "history/HistoryStore.h"
#include "mac/MacBatteryReader.h"
#include "monitor/BarState.h"
#include "monitor/PhoneHealthCheck.h"
#include "muxer/PrivateMuxer.h"
#include "muxer/UsbArrivalWatch.h"
#include "platform/linux/ExecutableBundle.h"
#include "platform/linux/LinuxHostInfo.h"
#include "platform/linux/ProcessEnvironment.h"
#include "platform/linux/SpawnProcessLauncher.h"
#include "platform/linux/SysfsPowerSourceProvider.h"
#include "platform/linux/SystemClock.h"
#include "platform/linux/ThreadWorker.h"
#include "platform/linux/XdgAutostartService.h"
#include "platform/linux/XdgFolders.h"
#include "platform/qt/QuitSignals.h"
#include "platform/qt/SingleInstance.h"
#include "shell/SettingsFile.h"
#include "shell/ShellTexts.h"

#ifndef TOVRIN_VERSION
#error "TOVRIN_VERSION must be defined by the build"
#endif

namespace ambrel::AmbrelMain {

namespace {

void print(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

void printError(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stderr);
}

constexpr const char* kNoDisplay =
    "tovrin: there is no display to show the card on (DISPLAY and WAYLAND_DISPLAY are not "
    "set).\nStart it from your desktop session. Without one, \"tovrin --readings\" and "
    "\"tovrin --bar waybar\" print the batteries.\n";
constexpr int kNoDisplayExitCode = 1;

std::string bundleIdentifier(const Bundle& bundle) {
    return bundle.infoString("CFBundleIdentifier").value_or(std::string());
}

// The program's own executable stands for the bundle path: it is what the autostart entry
// starts and what the user would look for.
std::string appPath(const Bundle& bundle) {
    return bundle.executablePath().string();
}

std::unique_ptr<XdgAutostartService>
loginItemService(const Bundle& bundle, std::shared_ptr<const Environment> environment) {
    AutostartProgram program;
    program.identifier = bundleIdentifier(bundle);
    program.name = ShellTexts::displayName(bundle);
    program.executable = bundle.executablePath();
    program.resourceFolder = bundle.resourceFolder();
    return std::make_unique<XdgAutostartService>(std::move(program), std::move(environment));
}

// What the program's children get: its own environment, with the program's muxer in
// USBMUXD_SOCKET_ADDRESS when it runs one.
std::vector<std::string> toolEnvironment(const Environment& environment,
                                         const PrivateMuxer* muxer) {
    auto entries = environment.entries();
    if (muxer != nullptr) {
        const std::string name = "USBMUXD_SOCKET_ADDRESS=";
        std::erase_if(entries, [&](const std::string& entry) { return entry.rfind(name, 0) == 0; });
        entries.push_back(name + muxer->address());
    }
    return entries;
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

// The arguments for the Qt application. Placement and stacking below other windows need X11;
// under Wayland the program asks for XWayland unless the user chose a platform.
std::vector<std::string> applicationArguments(int argc, char** argv,
                                              const Environment& environment) {
    std::vector<std::string> result(argv, argv + argc);
    if (environment.nonEmpty("WAYLAND_DISPLAY") && !environment.value("QT_QPA_PLATFORM")) {
        result.insert(result.end(), {"-platform", "xcb"});
    }
    return result;
}

int runWidget(int argc, char** argv, const std::vector<std::string>& arguments,
              std::shared_ptr<Bundle> bundle, std::shared_ptr<const Environment> environment,
              AmbrelDelegate::Setup setup, HeldQuitSignals& heldQuitSignals) {
    auto [claim, instance] = SingleInstance::claim(
        SingleInstance::lockPath(bundleIdentifier(*bundle).empty() ? std::string("tovrin")
                                                                   : bundleIdentifier(*bundle),
                                 *environment),
        handOverRequest(arguments));
    if (claim == SingleInstance::Claim::handedOver) {
        return 0;
    }

    QCoreApplication::setOrganizationName(QString::fromLatin1(SettingsFile::kOrganization));
    QCoreApplication::setOrganizationDomain(QStringLiteral("quenby.com"));
    QCoreApplication::setApplicationName(QString::fromLatin1(SettingsFile::kApplication));
    QCoreApplication::setApplicationVersion(QStringLiteral(TOVRIN_VERSION));
    auto qtArguments = applicationArguments(argc, argv, *environment);
    std::vector<char*> qtArgv;
    for (auto& argument : qtArguments) {
        qtArgv.push_back(argument.data());
    }
    qtArgv.push_back(nullptr);
    int qtArgc = static_cast<int>(qtArguments.size());
    QApplication application(qtArgc, qtArgv.data());

    SignalEvents signalEvents;
    const QuitSignals quitSignals(signalEvents);
    heldQuitSignals.release();
    AmbrelDelegate delegate(arguments, std::move(bundle), std::move(environment), std::move(setup));
    QObject::connect(&application, &QCoreApplication::aboutToQuit, &delegate,
                     [&delegate] { delegate.applicationWillTerminate(); });
    delegate.applicationDidFinishLaunching();
    if (instance) {
        instance->listen(signalEvents, [&delegate](const SingleInstance::Request& request) {
            delegate.laterLaunch(request);
        });
    }
    return QApplication::exec();
}

} // namespace

int main(int argc, char** argv) {
    const auto arguments = CommandLine::arguments(argc, argv);
    // Read once, before any other thread runs; everything below gets it from here.
    const std::shared_ptr<const Environment> environment = std::make_shared<ProcessEnvironment>();
    auto bundle = std::make_shared<ExecutableBundle>();
    const auto name = ShellTexts::displayName(*bundle);
    auto loginItems = loginItemService(*bundle, environment);
    const LoginItemIdentity loginIdentity{bundleIdentifier(*bundle), appPath(*bundle)};

    const auto support = XdgFolders(environment).applicationSupport();
    const auto dataFolder = support ? *support / "Ambrel" : std::filesystem::path();
    // The user's own muxer, as set before ours runs.
    const std::string userMuxerAddress =
        environment->nonEmpty("USBMUXD_SOCKET_ADDRESS").value_or("");
    // The program's own muxer, for the commands that talk to the phone and for the widget; the
    // phone tools find it through the environment their launcher gives them.
    // Made before the muxer, which tells it of phones that appear, and so gone after it.
    const auto arrivals = std::make_shared<ArrivalRelay>();
    std::unique_ptr<PrivateMuxer> muxer;
    std::shared_ptr<SpawnProcessLauncher> launcher;
    const auto connectionSetup = [&] {
        return connectionProbeSetup(*bundle, *environment, userMuxerAddress, dataFolder, launcher);
    };
    const auto monitorServices = [&](bool readsPhone) -> MonitorServicesFactory {
        return [&, readsPhone](std::shared_ptr<MainScheduler> scheduler) {
            return systemMonitorServices(std::move(scheduler), bundle, environment,
                                         readsPhone ? launcher : nullptr);
        };
    };
    const auto worker = std::make_shared<ThreadWorker>();

    // In the order they are asked: "--enable-login" wins over "--login-status", any one-shot
    // switch over running the widget.
    std::vector<std::unique_ptr<Command>> commands;
    commands.push_back(std::make_unique<EnableLoginCommand>(*loginItems, loginIdentity));
    commands.push_back(std::make_unique<LoginStatusCommand>(*loginItems, loginIdentity));
    commands.push_back(std::make_unique<HelpCommand>(name));
    // The package's full version: the bundle's short one ("1.1") is the About text's.
    commands.push_back(std::make_unique<VersionCommand>(name, TOVRIN_VERSION));
    commands.push_back(std::make_unique<BarCommand>(monitorServices(false), environment,
                                                    BarStateFile::location(*environment)));
    commands.push_back(std::make_unique<EnableWifiCommand>(connectionSetup, worker));
    commands.push_back(std::make_unique<DiagnoseCommand>(connectionSetup, worker));
    // Where the widget keeps its files: the data folder, else the temporary folder, as the
    // reading cache.
    const auto keptFolder = support ? dataFolder : XdgFolders(environment).temporary() / "Ambrel";
    commands.push_back(std::make_unique<HistoryCommand>(HistoryCommand::Sources{
        keptFolder / HistoryStore::kFileName, keptFolder / PhoneHealthFile::kFileName,
        [] {
            SysfsPowerSourceProvider power;
            return MacBatteryReader::read(power, LinuxHostInfo(), SystemClock().now()).health;
        },
        [] { return SystemClock().now(); }}));
    commands.push_back(
        std::make_unique<ReadingsCommand>(monitorServices(true), bundleToolDirectory(*bundle)));
    // Last: a switch that goes with a command asked for without it.
    commands.push_back(std::make_unique<CompanionSwitchCommand>());

    const auto requested = std::find_if(commands.begin(), commands.end(), [&](const auto& command) {
        return command->isRequested(arguments);
    });
    const Invocation invocation{arguments, argc, argv, print, printError};
    if (requested != commands.end() && !(*requested)->usesPhone()) {
        return (*requested)->run(invocation);
    }
    // Without a display Qt would abort; say what to do instead.
    if (requested == commands.end() && !environment->nonEmpty("DISPLAY") &&
        !environment->nonEmpty("WAYLAND_DISPLAY") && !environment->nonEmpty("QT_QPA_PLATFORM")) {
        printError(kNoDisplay);
        return kNoDisplayExitCode;
    }
    // The muxer is started before any other thread, and a quit asked meanwhile waits for the
    // clean quit (which takes the muxer's socket with it).
    HeldQuitSignals heldQuitSignals;
    muxer = startPrivateMuxer(*environment, dataFolder, arrivals.get());
    launcher = std::make_shared<SpawnProcessLauncher>(toolEnvironment(*environment, muxer.get()));
    if (requested != commands.end()) {
        heldQuitSignals.release();
        const int exitCode = (*requested)->run(invocation);
        launcher->shutDown();
        return exitCode;
    }
    AmbrelDelegate::Setup setup;
    // The one login service: the switches above were given the same.
    setup.loginItems = std::move(loginItems);
    setup.launcher = launcher;
    setup.connection = connectionSetup();
    setup.arrivals = arrivals;
    // With the user's own muxer in place of ours, its Listen tells of the phones plugged in.
    const auto userMuxerWatch =
        muxer ? nullptr : UsbArrivalWatch::start(userMuxerAddress, *arrivals);
    return runWidget(argc, argv, arguments, std::move(bundle), environment, std::move(setup),
                     heldQuitSignals);
}

} // namespace ambrel::AmbrelMain
