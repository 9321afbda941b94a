// The real program's command line: the start-at-login switches and their JSON line and exit
// codes, --help and --version, and which arguments start the widget instead.

#include <csignal>

#include <gtest/gtest.h>

#include <QImage>

#include <nlohmann/json.hpp>

#include "platform/linux/DesktopEntry.h"
#include "tests/app/ProcessHarness.h"

namespace ambrel {
namespace {

using testing::ChildProcess;
using testing::EnvironmentChanges;
using testing::ProcessOutcome;
using testing::readText;
using testing::TemporaryFolder;
using testing::writeText;

std::string jsonPath(const std::filesystem::path& path) {
    std::string escaped;
    for (const char c : path.string()) {
        if (c == '/') {
            escaped += '\\';
        }
        escaped += c;
    }
    return escaped;
}

class TovrinCommandTest : public ::testing::Test {
protected:
    TovrinCommandTest() : executable(testing::makeBundle(folder.path() / "install")) {}

    // A session with no display and no bus at all: the commands must not need either. The
    // temporary folder is set apart from the copied program, which therefore counts as
    // installed.
    EnvironmentChanges environment() const {
        return testing::privateSession(folder.path(),
                                       {{"DISPLAY", std::nullopt},
                                        {"QT_QPA_PLATFORM", std::nullopt},
                                        {"DBUS_SESSION_BUS_ADDRESS", testing::kNoBus},
                                        {"DBUS_SYSTEM_BUS_ADDRESS", testing::kNoBus}});
    }

    ProcessOutcome run(std::vector<std::string> arguments,
                       std::filesystem::path program = {}) const {
        arguments.insert(arguments.begin(), (program.empty() ? executable : program).string());
        return testing::runProcess(arguments, environment());
    }

    std::filesystem::path entry() const {
        return folder.path() / "config" / "autostart" / "com.quenby.Tovrin.desktop";
    }

    std::string line(const char* status, bool enabled) const {
        return "{\"appPath\":\"" + jsonPath(executable) +
               "\",\"bundleIdentifier\":\"com.quenby.Tovrin\",\"enabled\":" +
               (enabled ? "true" : "false") + ",\"status\":\"" + status + "\"}\n";
    }

    // Starts the widget offscreen and tells whether it is still running a moment later, having
    // printed nothing.
    void expectWidgetStarts(const std::vector<std::string>& arguments) const {
        std::vector<std::string> command{executable.string()};
        command.insert(command.end(), arguments.begin(), arguments.end());
        auto environmentWithGui = environment();
        environmentWithGui["QT_QPA_PLATFORM"] = "offscreen";
        ChildProcess widget(command, environmentWithGui);
        EXPECT_FALSE(widget.waitForExit(std::chrono::milliseconds(1500)).has_value())
            << "ended instead of running the widget: " << widget.errorOutput();
        widget.stop();
        EXPECT_FALSE(std::filesystem::exists(entry()));
    }

    TemporaryFolder folder;
    std::filesystem::path executable;
};

TEST_F(TovrinCommandTest, ACompanionSwitchAloneSaysWhichCommandItGoesWith) {
    const struct {
        std::vector<std::string> arguments;
        const char* said;
    } cases[] = {
        {{"--text"},
         "tovrin: --text goes with --diagnose, as in: tovrin --diagnose --text\n"
         "Try 'tovrin --help'.\n"},
        {{"--follow"},
         "tovrin: --follow goes with --bar, as in: tovrin --bar waybar --follow\n"
         "Try 'tovrin --help'.\n"},
        {{"--json", "--preview-dark"},
         "tovrin: --json goes with --history, as in: tovrin --history --json\n"
         "Try 'tovrin --help'.\n"},
        {{"--since", "10d"},
         "tovrin: --since goes with --history, as in: tovrin --history --since 10d\n"
         "Try 'tovrin --help'.\n"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.arguments.front());
        const auto result = run(each.arguments);
        EXPECT_EQ(result.exitCode, 2);
        EXPECT_EQ(result.err, each.said);
        EXPECT_EQ(result.out, "");
    }
}

TEST_F(TovrinCommandTest, AMissingOrWrongValueNamesTheSwitchAndWhatItTakes) {
    const struct {
        std::vector<std::string> arguments;
        const char* said;
    } cases[] = {
        {{"--bar"}, "tovrin: --bar needs one of waybar, polybar, i3blocks\n"},
        {{"--bar", "lemonbar"}, "tovrin: --bar needs one of waybar, polybar, i3blocks\n"},
        {{"--history", "--since", "a while"},
         "tovrin: --since takes a span such as 24h or 10d, at most 30 days.\n"},
        {{"--enable-wifi", "bogus"},
         "tovrin: --enable-wifi takes an iPhone's identifier (UDID), such as "
         "00008110-001A2B3C4D5E6F70, or nothing for the iPhone on USB; got 'bogus'\n"},
        {{"--enable-wifi", "00008110-001A2B3C4D5E6F7"},
         "tovrin: --enable-wifi takes an iPhone's identifier (UDID), such as "
         "00008110-001A2B3C4D5E6F70, or nothing for the iPhone on USB; got "
         "'00008110-001A2B3C4D5E6F7'\n"},
    };
    for (const auto& each : cases) {
        SCOPED_TRACE(each.arguments.back());
        const auto result = run(each.arguments);
        EXPECT_EQ(result.exitCode, 2);
        EXPECT_EQ(result.signal, 0);
        EXPECT_EQ(result.err, std::string(each.said) + "Try 'tovrin --help'.\n");
        EXPECT_EQ(result.out, "");
    }
}

TEST_F(TovrinCommandTest, DashHIsHelp) {
    const auto result = run({"-h"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, run({"--help"}).out);
    EXPECT_EQ(result.out.rfind("Usage: tovrin", 0), 0u);
}

TEST_F(TovrinCommandTest, WithoutADisplayTheWidgetSaysWhatToDoInsteadOfAborting) {
    const auto result = run({});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_EQ(result.signal, 0);
    EXPECT_EQ(result.err.rfind("tovrin: there is no display to show the card on", 0), 0u)
        << result.err;
    EXPECT_NE(result.err.find("tovrin --readings"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(entry()));
}

TEST_F(TovrinCommandTest, StatusNotRegistered) {
    const auto result = run({"--login-status"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, line("notRegistered", false));
    EXPECT_EQ(result.err, "");
}

TEST_F(TovrinCommandTest, EnableRegistersThenReportsEnabled) {
    const auto enabled = run({"--enable-login"});
    EXPECT_EQ(enabled.exitCode, 0);
    EXPECT_EQ(enabled.out, line("enabled", true));
    const auto fields = DesktopEntry::parseMainGroup(readText(entry()));
    EXPECT_EQ(fields.at("Exec"), executable.string());

    const auto status = run({"--login-status"});
    EXPECT_EQ(status.exitCode, 0);
    EXPECT_EQ(status.out, line("enabled", true));
}

TEST_F(TovrinCommandTest, EnableWhenEnabledLeavesTheEntryAlone) {
    ASSERT_EQ(run({"--enable-login"}).exitCode, 0);
    // A rewrite would drop this line.
    writeText(entry(), readText(entry()) + "# kept\n");
    const auto again = run({"--enable-login"});
    EXPECT_EQ(again.exitCode, 0);
    EXPECT_EQ(again.out, line("enabled", true));
    EXPECT_NE(readText(entry()).find("# kept\n"), std::string::npos);
}

TEST_F(TovrinCommandTest, EntrySwitchedOffByTheDesktopRequiresApproval) {
    const std::string text = "[Desktop Entry]\nType=Application\nExec=" + executable.string() +
                             "\nX-GNOME-Autostart-enabled=false\n";
    writeText(entry(), text);
    const auto status = run({"--login-status"});
    EXPECT_EQ(status.exitCode, 0);
    EXPECT_EQ(status.out, line("requiresApproval", false));

    const auto enable = run({"--enable-login"});
    EXPECT_EQ(enable.exitCode, 2);
    const auto report = nlohmann::json::parse(enable.out);
    EXPECT_EQ(report["status"], "requiresApproval");
    EXPECT_EQ(report["enabled"], false);
    EXPECT_EQ(report["errorDomain"], "AmbrelLoginItemErrorDomain");
    EXPECT_EQ(report["errorCode"], 2);
    EXPECT_TRUE(report["error"].is_string());
    EXPECT_EQ(readText(entry()), text) << "the desktop's switch is the user's";
}

TEST_F(TovrinCommandTest, HiddenEntryRequiresApproval) {
    writeText(entry(), "[Desktop Entry]\nHidden=true\n");
    EXPECT_EQ(run({"--login-status"}).out, line("requiresApproval", false));
    EXPECT_EQ(run({"--enable-login"}).exitCode, 2);
}

TEST_F(TovrinCommandTest, CopyInTheTemporaryFolderIsNotFound) {
    auto temporaryEnvironment = environment();
    temporaryEnvironment["TMPDIR"] = folder.path().string();
    const auto status =
        testing::runProcess({executable.string(), "--login-status"}, temporaryEnvironment);
    EXPECT_EQ(status.exitCode, 0);
    EXPECT_EQ(status.out, line("notFound", false));

    const auto enable =
        testing::runProcess({executable.string(), "--enable-login"}, temporaryEnvironment);
    EXPECT_EQ(enable.exitCode, 1);
    const auto report = nlohmann::json::parse(enable.out);
    EXPECT_EQ(report["status"], "notFound");
    EXPECT_EQ(report["errorDomain"], "AmbrelLoginItemErrorDomain");
    EXPECT_EQ(report["errorCode"], 1);
    EXPECT_NE(report["error"].get<std::string>().find("temporary folder"), std::string::npos);
    EXPECT_NE(enable.out.find("\\/"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(entry()));
}

TEST_F(TovrinCommandTest, BuiltProgramInItsBuildTreeIsNotFound) {
    const auto result = run({"--enable-login"}, testing::builtProgram());
    EXPECT_EQ(result.exitCode, 1);
    const auto report = nlohmann::json::parse(result.out);
    EXPECT_EQ(report["status"], "notFound");
    EXPECT_NE(report["error"].get<std::string>().find("build folder"), std::string::npos);
}

TEST_F(TovrinCommandTest, BothSwitchesBehaveAsEnable) {
    const auto result = run({"--login-status", "--enable-login"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, line("enabled", true));
    EXPECT_TRUE(std::filesystem::exists(entry()));
}

TEST_F(TovrinCommandTest, SwitchPositionDoesNotMatter) {
    const auto result = run({"--preview-dark", "--login-status", "--capture-preview", "x.png"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, line("notRegistered", false));
    EXPECT_FALSE(std::filesystem::exists("x.png"));
}

TEST_F(TovrinCommandTest, PathWithAwkwardCharactersRegistersAndReportsIt) {
    const auto awkward = folder.path() / "My Apps \"Q\" $HOME `x` 100% back\\slash";
    const auto program = testing::makeBundle(awkward);
    const auto result = run({"--enable-login"}, program);
    EXPECT_EQ(result.exitCode, 0) << result.out;
    const auto report = nlohmann::json::parse(result.out);
    EXPECT_EQ(report["appPath"], program.string());
    EXPECT_EQ(report["status"], "enabled");
    EXPECT_EQ(result.out.find('/'), result.out.find("\\/") + 1) << "every slash is escaped";
    const auto fields = DesktopEntry::parseMainGroup(readText(entry()));
    EXPECT_EQ(fields.at("Exec"), DesktopEntry::execValue(program));
    EXPECT_EQ(run({"--login-status"}, program).out.find("\"status\":\"enabled\"") !=
                  std::string::npos,
              true);
}

TEST_F(TovrinCommandTest, HelpPrintsUsageAndExitsZero) {
    const auto result = run({"--help"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out.rfind("Usage: tovrin", 0), 0u);
    EXPECT_NE(result.out.find("--enable-login"), std::string::npos);
}

TEST_F(TovrinCommandTest, VersionPrintsThePackagesVersion) {
    const auto result = run({"--version"});
    EXPECT_EQ(result.exitCode, 0);
    EXPECT_EQ(result.out, "Tovrin 1.1.0\n");
}

TEST_F(TovrinCommandTest, VersionIsThePackagesWhateverTheBundleSays) {
    writeText(folder.path() / "install" / "share" / "tovrin" / "Info",
              R"({"CFBundleShortVersionString": "9.9"})");
    EXPECT_EQ(run({"--version"}).out, "Tovrin 1.1.0\n");
}

TEST_F(TovrinCommandTest, MissingIdentifierIsReportedEmpty) {
    writeText(folder.path() / "install" / "share" / "tovrin" / "Info", "{}");
    const auto report = nlohmann::json::parse(run({"--login-status"}).out);
    EXPECT_EQ(report["bundleIdentifier"], "");
}

TEST_F(TovrinCommandTest, OtherCaseStartsTheWidget) {
    expectWidgetStarts({"--Enable-Login"});
}

TEST_F(TovrinCommandTest, ValueAttachedStartsTheWidget) {
    expectWidgetStarts({"--login-status=1"});
}

TEST_F(TovrinCommandTest, UnknownArgumentStartsTheWidget) {
    expectWidgetStarts({"--frobnicate", "LOGIN-STATUS"});
}

TEST_F(TovrinCommandTest, NoArgumentStartsTheWidget) {
    expectWidgetStarts({});
}

TEST_F(TovrinCommandTest, CaptureWorksOnTheOffscreenPlatform) {
    auto offscreen = environment();
    offscreen["QT_QPA_PLATFORM"] = "offscreen";
    const auto png = folder.path() / "offscreen.png";
    ChildProcess widget({executable.string(), "--capture-preview", png.string()}, offscreen);
    EXPECT_TRUE(
        testing::eventually([&png] { return std::filesystem::exists(png); }, testing::kPatience));
    EXPECT_TRUE(widget.isRunning()) << "the program keeps running after a capture";
    const QImage image(QString::fromStdString(png.string()));
    EXPECT_EQ(image.size(), QSize(360, 170));
}

TEST_F(TovrinCommandTest, TerminateSignalQuitsInOrderAndSavesThePosition) {
    auto offscreen = environment();
    offscreen["QT_QPA_PLATFORM"] = "offscreen";
    const auto settings = folder.path() / "config" / "Quenby" / "Tovrin.conf";
    ChildProcess widget({executable.string()}, offscreen);
    ASSERT_FALSE(widget.waitForExit(std::chrono::milliseconds(1500)).has_value())
        << widget.errorOutput();
    std::filesystem::remove(settings);
    ASSERT_EQ(::kill(widget.pid(), SIGTERM), 0);
    // A session logging out sends SIGTERM: the program ends normally, through its quit sequence.
    EXPECT_EQ(widget.waitForExit(testing::kPatience), 0) << widget.errorOutput();
    ASSERT_TRUE(std::filesystem::exists(settings));
    EXPECT_NE(readText(settings).find("AmbrelPosition"), std::string::npos);
}

} // namespace
} // namespace ambrel
