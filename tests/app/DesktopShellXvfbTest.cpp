// The real program on a real X server: Xvfb on a display it picks itself, 1440 x 900. The
// window hints are read back with xprop, positions and stacking with xwininfo.

#include <gtest/gtest.h>

#include <QImage>

#include <csignal>
#include <optional>
#include <regex>
#include <sstream>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "app/AmbrelDelegate.h"
#include "tests/app/ProcessHarness.h"

extern char** environ;

namespace ambrel {
namespace {

using testing::Environment;
using testing::RunningProcess;
using testing::TemporaryFolder;

// An Xvfb of its own for each test; the server tells its display number once it is ready.
class XvfbServer {
public:
    XvfbServer() {
        int ready[2];
        if (::pipe2(ready, O_CLOEXEC) != 0) {
            return;
        }
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_adddup2(&actions, ready[1], 3);
        std::vector<std::string> arguments{"/usr/bin/Xvfb", "-displayfd", "3",  "-screen", "0",
                                           "1440x900x24",   "-nolisten",  "tcp"};
        std::vector<char*> argv;
        for (auto& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        if (posix_spawn(&m_pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) {
            m_pid = -1;
        }
        posix_spawn_file_actions_destroy(&actions);
        ::close(ready[1]);
        std::string number;
        pollfd wait{ready[0], POLLIN, 0};
        while (m_pid > 0 && ::poll(&wait, 1, 10000) > 0) {
            char c = 0;
            if (::read(ready[0], &c, 1) != 1 || c == '\n') {
                break;
            }
            number += c;
        }
        ::close(ready[0]);
        if (!number.empty()) {
            m_display = ":" + number;
        }
    }

    ~XvfbServer() {
        if (m_pid > 0) {
            ::kill(m_pid, SIGTERM);
            int status = 0;
            ::waitpid(m_pid, &status, 0);
        }
    }

    const std::string& display() const { return m_display; }

private:
    pid_t m_pid = -1;
    std::string m_display;
};

struct PanelWindow {
    std::string id;
    int width = 0;
    int height = 0;
    int x = 0;
    int y = 0;
};

// Top-level windows named like the panel, in the order xwininfo lists the root's children.
std::vector<PanelWindow> panelWindows(const std::string& display) {
    const auto result =
        testing::runProcess({"/usr/bin/xwininfo", "-display", display, "-root", "-children"}, {});
    std::vector<PanelWindow> windows;
    const std::regex line(
        R"re(\s*(0x[0-9a-f]+) "Tovrin": \([^)]*\)\s+(\d+)x(\d+)\+(-?\d+)\+(-?\d+))re");
    std::istringstream lines(result.out);
    std::string text;
    while (std::getline(lines, text)) {
        std::smatch match;
        if (std::regex_search(text, match, line)) {
            PanelWindow window{match[1], std::stoi(match[2]), std::stoi(match[3]),
                               std::stoi(match[4]), std::stoi(match[5])};
            if (window.width > 1) {
                windows.push_back(window);
            }
        }
    }
    return windows;
}

std::string property(const std::string& display, const std::string& window, const char* name) {
    return testing::runProcess({"/usr/bin/xprop", "-display", display, "-id", window, name}, {})
        .out;
}

std::optional<pid_t> windowProcess(const std::string& display, const std::string& window) {
    const auto text = property(display, window, "_NET_WM_PID");
    const auto equals = text.find(" = ");
    if (equals == std::string::npos) {
        return std::nullopt;
    }
    return static_cast<pid_t>(std::stol(text.substr(equals + 3)));
}

double meanLuminance(const QImage& image) {
    double sum = 0;
    int count = 0;
    const QImage argb = image.convertToFormat(QImage::Format_ARGB32);
    for (int y = 0; y < argb.height(); ++y) {
        for (int x = 0; x < argb.width(); ++x) {
            const QRgb pixel = argb.pixel(x, y);
            if (qAlpha(pixel) < 200) {
                continue;
            }
            sum += 0.2126 * qRed(pixel) + 0.7152 * qGreen(pixel) + 0.0722 * qBlue(pixel);
            ++count;
        }
    }
    return count == 0 ? -1 : sum / count;
}

class DesktopShellXvfbTest : public ::testing::Test {
protected:
    DesktopShellXvfbTest() : executable(testing::makeBundle(folder.path() / "install")) {}

    void SetUp() override { ASSERT_FALSE(server.display().empty()) << "Xvfb did not start"; }

    // One user's session on the test's display; `name` keeps sessions apart.
    Environment session(const std::string& name = "user") const {
        const auto root = folder.path() / name;
        std::filesystem::create_directories(root / "run");
        std::filesystem::create_directories(root / "tmp");
        std::filesystem::permissions(root / "run", std::filesystem::perms::owner_all);
        return {{"DISPLAY", server.display()},
                {"HOME", (root / "home").string()},
                {"XDG_CONFIG_HOME", (root / "config").string()},
                {"XDG_DATA_HOME", (root / "data").string()},
                {"XDG_RUNTIME_DIR", (root / "run").string()},
                {"TMPDIR", (root / "tmp").string()},
                {"WAYLAND_DISPLAY", ""},
                {"QT_QPA_PLATFORM", ""},
                {"XDG_CURRENT_DESKTOP", ""},
                {"DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/tovrin-test-bus"},
                {"DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/tovrin-test-bus"}};
    }

    std::filesystem::path settingsFile(const std::string& name = "user") const {
        return folder.path() / name / "config" / "Quenby" / "Tovrin.conf";
    }

    std::unique_ptr<RunningProcess> launch(const std::vector<std::string>& arguments = {},
                                           const std::string& name = "user") const {
        std::vector<std::string> command{executable.string()};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return std::make_unique<RunningProcess>(command, session(name));
    }

    // Waits for `count` panels to be mapped and returns them.
    std::vector<PanelWindow> waitForPanels(std::size_t count = 1) const {
        std::vector<PanelWindow> windows;
        testing::eventually(
            [&] {
                windows = panelWindows(server.display());
                return windows.size() >= count;
            },
            std::chrono::seconds(15));
        return windows;
    }

    TemporaryFolder folder;
    XvfbServer server;
    std::filesystem::path executable;
};

TEST_F(DesktopShellXvfbTest, PanelCarriesTheDesktopPanelHints) {
    auto widget = launch();
    const auto panels = waitForPanels();
    ASSERT_EQ(panels.size(), 1u) << widget->errorOutput();
    const auto& id = panels.front().id;

    const auto state = property(server.display(), id, "_NET_WM_STATE");
    EXPECT_NE(state.find("_NET_WM_STATE_BELOW"), std::string::npos) << state;
    EXPECT_NE(state.find("_NET_WM_STATE_STICKY"), std::string::npos) << state;
    EXPECT_NE(state.find("_NET_WM_STATE_SKIP_TASKBAR"), std::string::npos) << state;
    EXPECT_NE(state.find("_NET_WM_STATE_SKIP_PAGER"), std::string::npos) << state;
    EXPECT_EQ(state.find("_NET_WM_STATE_ABOVE"), std::string::npos) << state;

    EXPECT_NE(property(server.display(), id, "_NET_WM_DESKTOP").find("= 4294967295"),
              std::string::npos);
    // Motif hints: flags has the decorations bit (0x2) and the decorations are none.
    const auto motif = property(server.display(), id, "_MOTIF_WM_HINTS");
    const std::regex fields(R"(= (0x[0-9a-f]+), (0x[0-9a-f]+), (0x[0-9a-f]+))");
    std::smatch match;
    ASSERT_TRUE(std::regex_search(motif, match, fields)) << motif;
    EXPECT_TRUE(std::stoul(match[1], nullptr, 16) & 0x2u) << motif;
    EXPECT_EQ(std::stoul(match[3], nullptr, 16), 0u) << motif;

    // Takes keyboard focus: WM_HINTS input stays true.
    const auto hints = property(server.display(), id, "WM_HINTS");
    EXPECT_NE(hints.find("Client accepts input or input focus: True"), std::string::npos) << hints;
    EXPECT_TRUE(widget->isRunning());
}

TEST_F(DesktopShellXvfbTest, FirstRunSitsTopRightAndIsRemembered) {
    auto widget = launch();
    const auto panels = waitForPanels();
    ASSERT_EQ(panels.size(), 1u) << widget->errorOutput();
    EXPECT_EQ(panels.front().width, 360);
    EXPECT_EQ(panels.front().height, 170);
    EXPECT_EQ(panels.front().x, 1056);
    EXPECT_EQ(panels.front().y, 24);
    EXPECT_TRUE(testing::eventually(
        [this] {
            return testing::readText(settingsFile())
                       .find("AmbrelPosition=@Rect(1056 24 360 170)") != std::string::npos;
        },
        std::chrono::seconds(5)))
        << testing::readText(settingsFile());
}

TEST_F(DesktopShellXvfbTest, SavedFrameOfAnotherSizeComesBackAtPanelSize) {
    testing::writeText(settingsFile(), "[General]\nAmbrelPosition=@Rect(100 200 400 200)\n");
    auto widget = launch();
    const auto panels = waitForPanels();
    ASSERT_EQ(panels.size(), 1u) << widget->errorOutput();
    EXPECT_EQ(panels.front().x, 100);
    EXPECT_EQ(panels.front().y, 200);
    EXPECT_EQ(panels.front().width, 360);
    EXPECT_EQ(panels.front().height, 170);
}

TEST_F(DesktopShellXvfbTest, SavedFrameOffEveryScreenComesBackOnTheMainScreen) {
    testing::writeText(settingsFile(), "[General]\nAmbrelPosition=@Rect(3000 2000 360 170)\n");
    auto widget = launch();
    const auto panels = waitForPanels();
    ASSERT_EQ(panels.size(), 1u) << widget->errorOutput();
    // 8 in from the right and bottom edges of 1440 x 900.
    EXPECT_EQ(panels.front().x, 1440 - 8 - 360);
    EXPECT_EQ(panels.front().y, 900 - 8 - 170);
}

TEST_F(DesktopShellXvfbTest, CaptureAppearsAfterAboutFourSecondsAndTheProgramStays) {
    const auto png = folder.path() / "card.png";
    const auto started = std::chrono::steady_clock::now();
    auto widget = launch({"--capture-preview", png.string()});
    ASSERT_TRUE(testing::eventually([&png] { return std::filesystem::exists(png); },
                                    std::chrono::seconds(15)))
        << widget->errorOutput();
    const auto elapsed = std::chrono::steady_clock::now() - started;
    // Measured from before the launch, so the panel was shown later still.
    EXPECT_GE(elapsed, AmbrelDelegate::kCaptureDelay);
    EXPECT_LE(elapsed, std::chrono::seconds(9));
    const QImage image(QString::fromStdString(png.string()));
    EXPECT_EQ(image.size(), QSize(360, 170));
    EXPECT_EQ(image.pixelColor(0, 0).alpha(), 0) << "the corner outside the glass is clear";
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_TRUE(widget->isRunning());
    EXPECT_EQ(panelWindows(server.display()).size(), 1u);
}

TEST_F(DesktopShellXvfbTest, LightAndDarkCapturesDiffer) {
    const auto light = folder.path() / "light.png";
    const auto dark = folder.path() / "dark.png";
    const auto both = folder.path() / "both.png";
    // Three sessions at once, each its own copy of the program.
    auto lightWidget = launch({"--preview-light", "--capture-preview", light.string()}, "light");
    auto darkWidget = launch({"--capture-preview", dark.string(), "--preview-dark"}, "dark");
    auto bothWidget =
        launch({"--preview-dark", "--preview-light", "--capture-preview", both.string()}, "both");
    ASSERT_TRUE(testing::eventually(
        [&] {
            return std::filesystem::exists(light) && std::filesystem::exists(dark) &&
                   std::filesystem::exists(both);
        },
        std::chrono::seconds(20)));
    const double lightLuminance = meanLuminance(QImage(QString::fromStdString(light.string())));
    const double darkLuminance = meanLuminance(QImage(QString::fromStdString(dark.string())));
    const double bothLuminance = meanLuminance(QImage(QString::fromStdString(both.string())));
    EXPECT_GT(lightLuminance, 170);
    EXPECT_LT(darkLuminance, 90);
    EXPECT_NEAR(bothLuminance, darkLuminance, 3) << "dark wins when both are given";
}

TEST_F(DesktopShellXvfbTest, SecondLaunchBringsTheFirstPanelForwardAndEnds) {
    auto first = launch({}, "anna");
    ASSERT_EQ(waitForPanels(1).size(), 1u) << first->errorOutput();
    // Another session's panel on the same display, mapped later, so on top of the first.
    auto other = launch({}, "bob");
    auto panels = waitForPanels(2);
    ASSERT_EQ(panels.size(), 2u);
    const auto stackedLast = [&] {
        const auto windows = panelWindows(server.display());
        return windows.empty() ? std::nullopt : windowProcess(server.display(), windows.front().id);
    };
    const auto topBefore = stackedLast();
    ASSERT_TRUE(topBefore.has_value());
    EXPECT_EQ(*topBefore, other->pid());

    const auto again =
        testing::runProcess({executable.string()}, session("anna"), std::chrono::seconds(10));
    EXPECT_EQ(again.exitCode, 0);
    EXPECT_FALSE(again.timedOut);
    EXPECT_TRUE(
        testing::eventually([&] { return stackedLast() == first->pid(); }, std::chrono::seconds(5)))
        << "the first panel did not come forward: " << first->errorOutput();
    EXPECT_EQ(panelWindows(server.display()).size(), 2u) << "no third panel";
    EXPECT_TRUE(first->isRunning());
}

} // namespace
} // namespace ambrel
