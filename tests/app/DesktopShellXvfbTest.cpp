// The real program on a real X server: Xvfb on a display it picks itself, 1440 x 900. The
// window hints are read back with xprop, positions and stacking with xwininfo.

#include <gtest/gtest.h>

#include <QImage>

#include <csignal>
#include <optional>
#include <regex>
#include <sstream>

#include <unistd.h>

#include "app/AmbrelDelegate.h"
#include "tests/app/ProcessHarness.h"
#include "tests/app/XServerHarness.h"

namespace ambrel {
namespace {

using testing::ChildProcess;
using testing::EnvironmentChanges;
using testing::TemporaryFolder;
using testing::XvfbServer;
using namespace std::chrono_literals;

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

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
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

// The panel stands at (x, y) at its fixed size.
void expectPanelAt(const PanelWindow& panel, int x, int y) {
    EXPECT_EQ(panel.x, x);
    EXPECT_EQ(panel.y, y);
    EXPECT_EQ(panel.width, 360);
    EXPECT_EQ(panel.height, 170);
}

class DesktopShellXvfbTest : public ::testing::Test {
protected:
    DesktopShellXvfbTest() : executable(testing::makeBundle(folder.path() / "install")) {}

    void SetUp() override { ASSERT_FALSE(server.display().empty()) << "Xvfb did not start"; }

    // One user's session on the test's display; `name` keeps sessions apart.
    EnvironmentChanges session(const std::string& name = "user") const {
        return testing::privateSession(folder.path() / name,
                                       {{"DISPLAY", server.display()},
                                        {"QT_QPA_PLATFORM", std::nullopt},
                                        {"XDG_CURRENT_DESKTOP", std::nullopt},
                                        {"DBUS_SESSION_BUS_ADDRESS", testing::kNoBus},
                                        {"DBUS_SYSTEM_BUS_ADDRESS", testing::kNoBus}});
    }

    std::filesystem::path settingsFile(const std::string& name = "user") const {
        return folder.path() / name / "config" / "Quenby" / "Tovrin.conf";
    }

    std::unique_ptr<ChildProcess> launch(const std::vector<std::string>& arguments = {},
                                         const std::string& name = "user") const {
        std::vector<std::string> command{executable.string()};
        command.insert(command.end(), arguments.begin(), arguments.end());
        return std::make_unique<ChildProcess>(command, session(name));
    }

    // Waits for `count` panels to be mapped and returns them.
    std::vector<PanelWindow> waitForPanels(std::size_t count = 1) const {
        std::vector<PanelWindow> windows;
        testing::eventually(
            [&] {
                windows = panelWindows(server.display());
                return windows.size() >= count;
            },
            testing::kPatience);
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

    // The window is listed from its creation on; the hints follow before it is mapped.
    std::string state;
    testing::eventually(
        [&] {
            state = property(server.display(), id, "_NET_WM_STATE");
            return contains(state, "_NET_WM_STATE_BELOW");
        },
        testing::kPatience);
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

    // Never takes keyboard focus: WM_HINTS input is false, no WM_TAKE_FOCUS, and a user time of
    // 0 when mapped tells the window manager not to activate it.
    const auto hints = property(server.display(), id, "WM_HINTS");
    EXPECT_NE(hints.find("Client accepts input or input focus: False"), std::string::npos) << hints;
    const auto protocols = property(server.display(), id, "WM_PROTOCOLS");
    EXPECT_EQ(protocols.find("WM_TAKE_FOCUS"), std::string::npos) << protocols;
    const auto userTime = property(server.display(), id, "_NET_WM_USER_TIME");
    EXPECT_NE(userTime.find("= 0"), std::string::npos) << userTime;
    EXPECT_TRUE(widget->isRunning());
}

TEST_F(DesktopShellXvfbTest, FirstRunSitsTopRightAndIsRemembered) {
    auto widget = launch();
    const auto panels = waitForPanels();
    ASSERT_EQ(panels.size(), 1u) << widget->errorOutput();
    expectPanelAt(panels.front(), 1056, 24);
    EXPECT_TRUE(testing::eventually(
        [this] {
            return testing::readText(settingsFile())
                       .find("AmbrelPosition=@Rect(1056 24 360 170)") != std::string::npos;
        },
        testing::kPatience))
        << testing::readText(settingsFile());
}

TEST_F(DesktopShellXvfbTest, SavedFrameOfAnotherSizeComesBackAtPanelSize) {
    testing::writeText(settingsFile(), "[General]\nAmbrelPosition=@Rect(100 200 400 200)\n");
    auto widget = launch();
    const auto panels = waitForPanels();
    ASSERT_EQ(panels.size(), 1u) << widget->errorOutput();
    expectPanelAt(panels.front(), 100, 200);
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

TEST_F(DesktopShellXvfbTest, CaptureAppearsAfterItsDelayAndTheProgramStays) {
    const auto png = folder.path() / "card.png";
    const auto started = std::chrono::steady_clock::now();
    auto widget = launch({"--capture-preview", png.string()});
    ASSERT_TRUE(
        testing::eventually([&png] { return std::filesystem::exists(png); }, testing::kPatience))
        << widget->errorOutput();
    // Measured from before the launch, so the panel was shown later still.
    EXPECT_GE(std::chrono::steady_clock::now() - started, AmbrelDelegate::kCaptureDelay);
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
        testing::kPatience));
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
        testing::runProcess({executable.string()}, session("anna"), testing::kPatience);
    EXPECT_EQ(again.exitCode, 0);
    EXPECT_FALSE(again.timedOut);
    EXPECT_TRUE(
        testing::eventually([&] { return stackedLast() == first->pid(); }, testing::kPatience))
        << "the first panel did not come forward: " << first->errorOutput();
    EXPECT_EQ(panelWindows(server.display()).size(), 2u) << "no third panel";
    EXPECT_TRUE(first->isRunning());
}

TEST_F(DesktopShellXvfbTest, CaptureAskedOfTheRunningCopyIsTakenInTheAskedLook) {
    auto running = launch({"--preview-light"});
    ASSERT_EQ(waitForPanels(1).size(), 1u) << running->errorOutput();
    const auto dark = folder.path() / "dark.png";
    const auto asIs = folder.path() / "as-is.png";

    const auto started = std::chrono::steady_clock::now();
    const auto darkLaunch = testing::runProcess(
        {executable.string(), "--capture-preview", dark.string(), "--preview-dark"}, session(),
        testing::kPatience);
    EXPECT_EQ(darkLaunch.exitCode, 0);
    const auto asIsLaunch = testing::runProcess(
        {executable.string(), "--capture-preview", asIs.string()}, session(), testing::kPatience);
    EXPECT_EQ(asIsLaunch.exitCode, 0);
    ASSERT_TRUE(testing::eventually(
        [&] { return std::filesystem::exists(dark) && std::filesystem::exists(asIs); },
        testing::kPatience))
        << running->errorOutput();
    // Taken as at launch: no sooner than four seconds after the request.
    EXPECT_GE(std::chrono::steady_clock::now() - started, AmbrelDelegate::kCaptureDelay);

    const QImage darkImage(QString::fromStdString(dark.string()));
    const QImage asIsImage(QString::fromStdString(asIs.string()));
    EXPECT_EQ(darkImage.size(), QSize(360, 170));
    EXPECT_LT(meanLuminance(darkImage), 90);
    EXPECT_GT(meanLuminance(asIsImage), 170) << "the running copy went back to its own look";
    EXPECT_TRUE(running->isRunning());
    EXPECT_EQ(panelWindows(server.display()).size(), 1u) << "no second panel";
}

// No window manager to hand the move to: the panel follows the pointer itself.
TEST_F(DesktopShellXvfbTest, WithoutAWindowManagerDraggingTheBodyMovesThePanel) {
    auto widget = launch({"--report-first-paint"});
    ASSERT_EQ(waitForPanels(1).size(), 1u) << widget->errorOutput();
    // The window is listed before it is shown: a press before its first paint would go nowhere.
    ASSERT_TRUE(testing::eventually([&] { return contains(widget->errorOutput(), "first-paint "); },
                                    testing::kPatience))
        << widget->errorOutput();
    const auto& display = server.display();
    // Bare glass between the two gauges of the panel at 1056, 24.
    const int fromX = 1056 + 180;
    const int fromY = 24 + 120;
    ASSERT_TRUE(testing::xdotool(
        display, {"mousemove", std::to_string(fromX), std::to_string(fromY), "mousedown", "1"}));
    // Step by step until the panel follows, then to the end of the drag.
    int step = 0;
    EXPECT_TRUE(testing::eventually(
        [&] {
            ++step;
            testing::xdotool(
                display, {"mousemove", std::to_string(fromX - step), std::to_string(fromY + step)});
            const auto panels = panelWindows(display);
            return !panels.empty() && panels.front().x != 1056;
        },
        testing::kPatience));
    testing::xdotool(display, {"mousemove", std::to_string(fromX - 500),
                               std::to_string(fromY + 300), "mouseup", "1"});
    std::vector<PanelWindow> panels;
    EXPECT_TRUE(testing::eventually(
        [&] {
            panels = panelWindows(display);
            return !panels.empty() && panels.front().x == 1056 - 500 &&
                   panels.front().y == 24 + 300;
        },
        testing::kPatience));
    EXPECT_TRUE(testing::eventually(
        [this] {
            return contains(testing::readText(settingsFile()),
                            "AmbrelPosition=@Rect(556 324 360 170)");
        },
        testing::kPatience))
        << testing::readText(settingsFile());
}

// Xvfb's screen cannot be resized, so this display is Xephyr's, nested in an Xvfb.
TEST_F(DesktopShellXvfbTest, ShrunkScreenBringsThePanelBackInside) {
    XvfbServer host;
    ASSERT_FALSE(host.display().empty());
    testing::XephyrServer screen(host.display(), 1440, 900);
    ASSERT_FALSE(screen.display().empty()) << "Xephyr did not start";
    testing::writeText(settingsFile(), "[General]\nAmbrelPosition=@Rect(1000 650 360 170)\n");
    auto environment = session();
    environment["DISPLAY"] = screen.display();
    ChildProcess widget({executable.string()}, environment);
    std::vector<PanelWindow> panels;
    ASSERT_TRUE(testing::eventually(
        [&] {
            panels = panelWindows(screen.display());
            return !panels.empty() && panels.front().x == 1000;
        },
        testing::kPatience))
        << widget.errorOutput();
    ASSERT_EQ(panels.front().x, 1000);
    ASSERT_EQ(panels.front().y, 650);

    const auto shrink =
        testing::runProcess({"/usr/bin/xrandr", "-s", "1024x768"}, {{"DISPLAY", screen.display()}});
    ASSERT_TRUE(
        contains(testing::runProcess({"/usr/bin/xdpyinfo"}, {{"DISPLAY", screen.display()}}).out,
                 "1024x768 pixels"))
        << shrink.err;
    // 8 in from the new right and bottom edges.
    EXPECT_TRUE(testing::eventually(
        [&] {
            panels = panelWindows(screen.display());
            return !panels.empty() && panels.front().x == 1024 - 8 - 360 &&
                   panels.front().y == 768 - 8 - 170;
        },
        testing::kPatience))
        << (panels.empty()
                ? std::string("no panel")
                : std::to_string(panels.front().x) + "," + std::to_string(panels.front().y));
    EXPECT_TRUE(widget.isRunning());
}

} // namespace
} // namespace ambrel
