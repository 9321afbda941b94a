// The real program under real window managers: openbox on Xvfb, the pointer and keys driven
// through XTest (xdotool), and for what must hold on GNOME too, mutter (headless, with its
// Xwayland), its pointer driven through mutter itself. Each test has its own display, window
// manager and buses, all ended when the test ends, passed or not.

#include <gtest/gtest.h>

#include <QPoint>
#include <QPointF>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <optional>
#include <regex>
#include <sstream>

#include "tests/app/MutterHarness.h"
#include "tests/app/ProcessHarness.h"
#include "tests/app/XServerHarness.h"

namespace ambrel {
namespace {

using testing::ChildProcess;
using testing::EnvironmentChanges;
using testing::MutterPointer;
using testing::MutterSession;
using testing::PrivateBus;
using testing::TemporaryFolder;
using testing::WindowGeometry;
using testing::XvfbServer;
using namespace std::chrono_literals;

constexpr int kPanelWidth = 360;
constexpr int kPanelHeight = 170;
// Points on the card, from its top-left corner: the product name in the title, bare glass
// between the two gauges, this computer's gauge, and the options button at the header's end.
const QPointF kOnTitle(70, 20);
const QPointF kOnGlassBetweenGauges(180, 120);
const QPointF kOnGauge(60, 80);
const QPointF kOnMenuButton(kPanelWidth - 16 - 9, 20);
// The refresh button: 20 wide, 10 to the left of the 18-wide options button.
const QPointF kOnRefreshButton(kPanelWidth - 16 - 18 - 10 - 10, 20);

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

enum class WindowManager { openbox, mutter };

std::string nameOf(WindowManager windowManager) {
    return windowManager == WindowManager::openbox ? "openbox" : "mutter";
}

std::string testNameOf(const ::testing::TestParamInfo<WindowManager>& info) {
    return nameOf(info.param);
}

void PrintTo(WindowManager windowManager, std::ostream* out) {
    *out << nameOf(windowManager);
}

class WindowManagerXvfbTest : public ::testing::Test {
protected:
    WindowManagerXvfbTest() : executable(testing::makeBundle(folder.path() / "install")) {}

    virtual WindowManager windowManagerInUse() const { return WindowManager::openbox; }

    void SetUp() override {
        if (windowManagerInUse() == WindowManager::mutter) {
            mutter = std::make_unique<MutterSession>(folder.path() / "mutter");
            ASSERT_FALSE(mutter->display().empty())
                << "mutter did not start; its errors: " << mutter->errorOutput();
            screen = mutter->display();
            mutterPointer = std::make_unique<MutterPointer>(*mutter, folder.path());
            return;
        }
        server = std::make_unique<XvfbServer>();
        screen = server->display();
        ASSERT_FALSE(screen.empty()) << "Xvfb did not start";
        std::filesystem::create_directories(folder.path() / "wm");
        const auto managed = [this] {
            return contains(testing::windowProperty(display(), "root", "_NET_SUPPORTING_WM_CHECK"),
                            "window id");
        };
        // Started again should it end before it manages the screen.
        for (int attempt = 0; attempt < 3 && !managed(); ++attempt) {
            windowManager = std::make_unique<ChildProcess>(
                std::vector<std::string>{"/usr/bin/openbox", "--sm-disable"},
                EnvironmentChanges{{"DISPLAY", display()},
                                   {"HOME", (folder.path() / "wm").string()},
                                   {"XDG_CONFIG_HOME", (folder.path() / "wm").string()}});
            testing::eventually([&] { return managed() || !windowManager->isRunning(); },
                                testing::kPatience);
        }
        if (!managed()) {
            // Says whether openbox could not be started, ended (and how), or never took the screen.
            const auto ended = windowManager->waitForExit(0s);
            FAIL() << "openbox did not manage the screen after 3 starts; last one "
                   << (!windowManager->isStarted() ? std::string("could not be started")
                       : ended                     ? "ended with status " + std::to_string(*ended)
                                                   : std::string("still runs"))
                   << "; its errors: " << windowManager->errorOutput();
        }
    }

    const std::string& display() const { return screen; }

    EnvironmentChanges session() const {
        return testing::privateSession(
            folder.path() / "user",
            {{"DISPLAY", display()},
             {"QT_QPA_PLATFORM", std::nullopt},
             {"XDG_CURRENT_DESKTOP", std::nullopt},
             {"DBUS_SESSION_BUS_ADDRESS", sessionBus.value_or(testing::kNoBus)},
             {"DBUS_SYSTEM_BUS_ADDRESS", systemBus.value_or(testing::kNoBus)}});
    }

    std::filesystem::path settingsFile() const {
        return folder.path() / "user" / "config" / "Quenby" / "Tovrin.conf";
    }

    std::unique_ptr<ChildProcess> launch(const EnvironmentChanges& extra = {}) {
        auto environment = session();
        for (const auto& [name, value] : extra) {
            environment[name] = value;
        }
        auto process = std::make_unique<ChildProcess>(std::vector<std::string>{executable.string()},
                                                      environment);
        testing::eventually(
            [this] {
                panel = testing::managedWindowTitled(display(), displayName);
                return panel.has_value() && isViewable(*panel);
            },
            20s);
        return process;
    }

    bool isViewable(unsigned long window) const {
        return contains(
            testing::runProcess(
                {"/usr/bin/xwininfo", "-display", display(), "-id", std::to_string(window)}, {})
                .out,
            "Map State: IsViewable");
    }

    std::optional<WindowGeometry> panelGeometry() const {
        return testing::windowGeometry(display(), *panel);
    }

    // A plain application window, opened now.
    unsigned long openNormalWindow(const std::string& title) {
        return openPlainWindow(title, "1100x400+0+0", "A normal window");
    }

    // A plain window of `title` at `geometry`, managed and shown; 0 (and a failure that says what
    // the screen held) when it does not come.
    unsigned long openPlainWindow(const std::string& title, const std::string& geometry,
                                  const std::string& text) {
        normalWindows.push_back(std::make_unique<ChildProcess>(
            std::vector<std::string>{"/usr/bin/xmessage", "-title", title, "-geometry", geometry,
                                     text},
            EnvironmentChanges{{"DISPLAY", display()}}));
        std::optional<unsigned long> window;
        const bool shown = testing::eventually(
            [&] {
                window = testing::managedWindowTitled(display(), title);
                return window.has_value() && isViewable(*window);
            },
            testing::kPatience);
        if (!shown) {
            ADD_FAILURE() << "the window \"" << title << "\" was "
                          << (window ? "managed but not shown" : "not managed")
                          << "; xmessage: " << normalWindows.back()->errorOutput() << "\n"
                          << screenReport();
            return 0;
        }
        return *window;
    }

    // What the screen holds, for a failure: the window manager's state, its client list and every
    // top-level window, and how long the server took to answer.
    std::string screenReport() const {
        std::ostringstream report;
        if (windowManager) {
            const auto ended = windowManager->waitForExit(0s);
            report << "openbox "
                   << (ended ? "ended with status " + std::to_string(*ended) : std::string("runs"))
                   << "; its errors: " << windowManager->errorOutput() << "\n";
        }
        const auto asked = std::chrono::steady_clock::now();
        report << "clients: " << testing::windowProperty(display(), "root", "_NET_CLIENT_LIST")
               << "\n";
        const auto answered = std::chrono::steady_clock::now();
        report << "the server answered in "
               << std::chrono::duration_cast<std::chrono::milliseconds>(answered - asked).count()
               << " ms\ntop-level windows:\n"
               << testing::runProcess(
                      {"/usr/bin/xwininfo", "-display", display(), "-root", "-children"}, {})
                      .out;
        return report.str();
    }

    // Why `launch` found no panel, for a failure.
    std::string whyNoPanel(ChildProcess& widget) const {
        const auto ended = widget.waitForExit(0s);
        return "the program " +
               (ended ? "ended with status " + std::to_string(*ended) : std::string("runs")) +
               "; its errors: " + widget.errorOutput() + "\n" + screenReport();
    }

    // Where `window` is in the stacking order, bottom first; -1 when not listed.
    int stackingIndex(unsigned long window) const {
        const auto order = testing::rootWindowList(display(), "_NET_CLIENT_LIST_STACKING");
        const auto found = std::find(order.begin(), order.end(), window);
        return found == order.end() ? -1 : static_cast<int>(found - order.begin());
    }

    std::optional<unsigned long> activeWindow() const {
        const auto windows = testing::rootWindowList(display(), "_NET_ACTIVE_WINDOW");
        return windows.empty() ? std::nullopt : std::optional(windows.front());
    }

    // The program's windows on screen: the panel, and its menu while open.
    std::size_t visibleProgramWindows() const {
        const auto out = testing::runProcess({"/usr/bin/xdotool", "search", "--onlyvisible",
                                              "--classname", "tovrin"},
                                             {{"DISPLAY", display()}})
                             .out;
        return static_cast<std::size_t>(std::count(out.begin(), out.end(), '\n'));
    }

    QPoint onPanel(const WindowGeometry& frame, const QPointF& point) const {
        return {frame.x + static_cast<int>(point.x()), frame.y + static_cast<int>(point.y())};
    }

    bool pointer(const std::vector<std::string>& arguments) const {
        return testing::xdotool(display(), arguments);
    }

    // The pointer as a person moves it: through XTest under openbox, through mutter under mutter.
    bool movePointer(QPoint to) const {
        if (mutterPointer) {
            return mutterPointer->moveTo(to.x(), to.y()) || pointerRefused();
        }
        return pointer({"mousemove", std::to_string(to.x()), std::to_string(to.y())});
    }

    bool pressButton() const {
        return mutterPointer ? mutterPointer->press() || pointerRefused()
                             : pointer({"mousedown", "1"});
    }

    bool releaseButton() const {
        return mutterPointer ? mutterPointer->release() || pointerRefused()
                             : pointer({"mouseup", "1"});
    }

    bool click(QPoint at) const { return movePointer(at) && pressButton() && releaseButton(); }

    // A click whose release comes before the program has seen the press: under openbox one
    // XTest request after the other; mutter's pointer takes them as two steps.
    bool quickClick(QPoint at) const {
        if (mutterPointer) {
            return click(at);
        }
        return pointer({"mousemove", std::to_string(at.x()), std::to_string(at.y()), "click", "1"});
    }

    bool pointerRefused() const {
        ADD_FAILURE() << "mutter did not take the pointer step: " << mutterPointer->lastAnswer();
        return false;
    }

    // Presses the left button at `from` and moves the pointer by `by`, a little at a time until
    // the window manager has taken the move over, then the rest of the way; releases there.
    // Returns the panel's frame once it stopped moving.
    std::optional<WindowGeometry> drag(QPoint from, QPoint by) const {
        const auto before = panelGeometry();
        movePointer(from);
        pressButton();
        int step = 0;
        const bool started = testing::eventually(
            [&] {
                ++step;
                movePointer(from + QPoint(step, step));
                const auto now = panelGeometry();
                return now && before && (now->x != before->x || now->y != before->y);
            },
            10s);
        const QPoint to = from + by;
        movePointer(to);
        std::optional<WindowGeometry> settled;
        testing::eventually(
            [&] {
                const auto now = panelGeometry();
                const bool same = now && settled && now->x == settled->x && now->y == settled->y;
                settled = now;
                return same && std::abs(now->x - (before->x + by.x())) <= step + 1;
            },
            10s);
        releaseButton();
        if (!started) {
            return std::nullopt;
        }
        return panelGeometry();
    }

    // Whether a program (an open menu) holds the display's keyboard.
    bool keyboardIsHeld() const {
        return testing::runProcess({(std::filesystem::path(TOVRIN_BINARY_DIR) / "tests" /
                                     "tovrin_test_keyboard_grab")
                                        .string()},
                                   {{"DISPLAY", display()}})
                   .exitCode == 0;
    }

    // "Hide widget" from the card's options menu, with the keyboard once the menu is open.
    bool hideFromCardMenu() const {
        const auto frame = panelGeometry();
        if (!frame) {
            return false;
        }
        if (!click(onPanel(*frame, kOnMenuButton))) {
            return false;
        }
        if (!testing::eventually([&] { return visibleProgramWindows() == 2u; },
                                 testing::kPatience)) {
            ADD_FAILURE() << "the options menu did not open";
            return false;
        }
        // The menu is on screen a moment before it holds the keyboard; keys typed in between go
        // to the window that has the focus.
        if (!testing::eventually([&] { return keyboardIsHeld(); }, testing::kPatience)) {
            ADD_FAILURE() << "the options menu did not take the keyboard";
            return false;
        }
        // Refresh, set up, Battery History, (the byline is not selectable), Hide.
        pointer({"key", "Down", "Down", "Down", "Down", "Return"});
        if (!testing::eventually([&] { return !isViewable(*panel); }, testing::kPatience)) {
            ADD_FAILURE() << "after the keys the program showed " << visibleProgramWindows()
                          << " windows and " << (keyboardIsHeld() ? "held" : "did not hold")
                          << " the keyboard\n"
                          << screenReport();
            return false;
        }
        return true;
    }

    // Hides the panel from the card's menu and opens another window, which takes the focus:
    // `normal` is that window.
    void hideAndFocusAnotherWindow(unsigned long& normal) {
        ASSERT_TRUE(hideFromCardMenu()) << "Hide widget did not hide the panel";
        normal = openNormalWindow("Active window");
        ASSERT_NE(normal, 0u);
        ASSERT_TRUE(
            testing::eventually([&] { return activeWindow() == normal; }, testing::kPatience));
    }

    // The hidden panel, shown again, comes back at `frame` and leaves the focus on `normal`.
    void expectShownInPlaceWithoutFocus(const WindowGeometry& frame, unsigned long normal) const {
        ASSERT_TRUE(testing::eventually([&] { return isViewable(*panel); }, testing::kPatience));
        const auto shown = panelGeometry();
        ASSERT_TRUE(shown);
        EXPECT_EQ(shown->x, frame.x);
        EXPECT_EQ(shown->y, frame.y);
        EXPECT_EQ(activeWindow(), normal) << "showing the panel took the focus";
    }

    // Puts the fake phone tools in the program's tool folder, answering as `scenario` says and
    // logging each run (one JSON line) to the returned file; pass launchWithFakeTools() to
    // launch().
    std::filesystem::path useFakeTools(const std::string& scenario) {
        const auto tools = folder.path() / "install" / "share" / "tovrin" / "Runtime" / "bin";
        const std::filesystem::path fixtures =
            std::filesystem::path(TOVRIN_FIXTURES_DIR) / "fake-tools";
        for (const char* tool : {"idevice_id", "ideviceinfo"}) {
            std::filesystem::create_symlink(fixtures / tool, tools / tool);
        }
        testing::writeText(folder.path() / "scenario.json", scenario);
        return folder.path() / "calls.log";
    }

    EnvironmentChanges launchWithFakeTools() const {
        return {{"TOVRIN_FAKE_SCENARIO", (folder.path() / "scenario.json").string()},
                {"TOVRIN_FAKE_LOG", (folder.path() / "calls.log").string()}};
    }

    bool frameSaved(const WindowGeometry& frame) const {
        return testing::eventually(
            [&] {
                return contains(testing::readText(settingsFile()),
                                "AmbrelPosition=@Rect(" + std::to_string(frame.x) + " " +
                                    std::to_string(frame.y) + " 360 170)");
            },
            30s);
    }

    TemporaryFolder folder;
    std::unique_ptr<XvfbServer> server;
    std::unique_ptr<MutterSession> mutter;
    std::unique_ptr<MutterPointer> mutterPointer;
    std::string screen;
    std::unique_ptr<ChildProcess> windowManager;
    std::vector<std::unique_ptr<ChildProcess>> normalWindows;
    std::optional<std::string> systemBus;
    std::optional<std::string> sessionBus;
    std::string displayName = "Tovrin";
    std::filesystem::path executable;
    std::optional<unsigned long> panel;
};

TEST_F(WindowManagerXvfbTest, PanelStaysBelowALaterWindowAndAClickDoesNotRaiseIt) {
    auto widget = launch();
    ASSERT_TRUE(panel) << whyNoPanel(*widget);
    const auto normal = openNormalWindow("Later window");
    ASSERT_NE(normal, 0u);
    EXPECT_LT(stackingIndex(*panel), stackingIndex(normal));

    const auto frame = panelGeometry();
    ASSERT_TRUE(frame);
    const QPoint glass = onPanel(*frame, kOnGlassBetweenGauges);
    // Where the two overlap, the later window is on top; click on a part of the card in view.
    ASSERT_GT(glass.x(), 1100);
    pointer({"mousemove", std::to_string(glass.x()), std::to_string(glass.y()), "click", "1"});
    // Nothing to wait for but time: the order must hold a while after the click.
    EXPECT_FALSE(
        testing::eventually([&] { return stackingIndex(*panel) > stackingIndex(normal); }, 1500ms));
    EXPECT_LT(stackingIndex(*panel), stackingIndex(normal));
}

TEST_F(WindowManagerXvfbTest, PanelIsShownOnEveryWorkspace) {
    auto widget = launch();
    ASSERT_TRUE(panel) << whyNoPanel(*widget);
    for (const char* workspace : {"1", "2", "0"}) {
        ASSERT_TRUE(pointer({"set_desktop", workspace}));
        EXPECT_TRUE(testing::eventually(
            [&] {
                return contains(testing::windowProperty(display(), "root", "_NET_CURRENT_DESKTOP"),
                                std::string("= ") + workspace);
            },
            30s));
        EXPECT_TRUE(testing::eventually([&] { return isViewable(*panel); }, testing::kPatience))
            << "not shown on workspace " << workspace;
    }
}

TEST_F(WindowManagerXvfbTest, DraggingTheTitleOrTheBodyMovesThePanelAndSavesItsFrame) {
    auto widget = launch();
    ASSERT_TRUE(panel) << whyNoPanel(*widget);
    auto frame = panelGeometry();
    ASSERT_TRUE(frame);
    ASSERT_EQ(frame->x, 1056);
    ASSERT_EQ(frame->y, 24);

    struct Grip {
        const char* name;
        QPointF point;
        QPoint by;
    };
    for (const Grip& grip : {Grip{"title", kOnTitle, QPoint(-400, 250)},
                             Grip{"glass", kOnGlassBetweenGauges, QPoint(-300, 200)},
                             Grip{"gauge", kOnGauge, QPoint(250, -150)}}) {
        const auto before = *frame;
        const auto after = drag(onPanel(before, grip.point), grip.by);
        ASSERT_TRUE(after) << "a press on the " << grip.name << " did not move the panel";
        // The window manager takes the move over a few pixels after the press.
        EXPECT_NEAR(after->x - before.x, grip.by.x(), 30) << grip.name;
        EXPECT_NEAR(after->y - before.y, grip.by.y(), 30) << grip.name;
        EXPECT_EQ(after->width, kPanelWidth);
        EXPECT_EQ(after->height, kPanelHeight);
        EXPECT_TRUE(frameSaved(*after)) << grip.name << ": " << testing::readText(settingsFile());
        frame = after;
    }
    EXPECT_TRUE(widget->isRunning());
}

TEST_F(WindowManagerXvfbTest, PressOnTheOptionsButtonOpensTheMenuAndDoesNotMove) {
    auto widget = launch();
    ASSERT_TRUE(panel) << whyNoPanel(*widget);
    const auto frame = panelGeometry();
    ASSERT_TRUE(frame);
    ASSERT_EQ(visibleProgramWindows(), 1u);
    const QPoint button = onPanel(*frame, kOnMenuButton);
    pointer(
        {"mousemove", std::to_string(button.x()), std::to_string(button.y()), "mousedown", "1"});
    EXPECT_TRUE(
        testing::eventually([&] { return visibleProgramWindows() == 2u; }, testing::kPatience))
        << "the options menu did not open";
    pointer({"mousemove", std::to_string(button.x() - 150), std::to_string(button.y() + 200)});
    pointer({"mousemove", std::to_string(button.x() - 300), std::to_string(button.y() + 300)});
    const auto now = panelGeometry();
    ASSERT_TRUE(now);
    EXPECT_EQ(now->x, frame->x);
    EXPECT_EQ(now->y, frame->y);
    pointer({"mouseup", "1", "key", "Escape"});
}

// What must hold on GNOME as well as under a plain window manager: the card never takes the
// keyboard from the window that has it, and its first click moves it.
class UnderEachWindowManager : public WindowManagerXvfbTest,
                               public ::testing::WithParamInterface<WindowManager> {
protected:
    WindowManager windowManagerInUse() const override { return GetParam(); }

    // From now on, every window the window manager makes active, in order.
    void watchTheActiveWindow() {
        activeWindowWatch = std::make_unique<ChildProcess>(
            std::vector<std::string>{"/usr/bin/xprop", "-display", display(), "-spy", "-root",
                                     "_NET_ACTIVE_WINDOW"},
            EnvironmentChanges{});
        // xprop tells the window active now before it waits for changes.
        ASSERT_TRUE(testing::eventually([this] { return !activeWindowsSeen().empty(); },
                                        testing::kPatience))
            << "xprop did not start watching: " << activeWindowWatch->errorOutput();
    }

    std::vector<unsigned long> activeWindowsSeen() const {
        std::vector<unsigned long> windows;
        const std::string text = activeWindowWatch->standardOutput();
        const std::regex id("0x[0-9a-f]+");
        for (auto it = std::sregex_iterator(text.begin(), text.end(), id);
             it != std::sregex_iterator(); ++it) {
            windows.push_back(std::stoul(it->str(), nullptr, 16));
        }
        return windows;
    }

    // A second plain window, away from the card and from the first one.
    unsigned long openOtherWindow() {
        return openPlainWindow("Other window", "300x200+200+560", "Another window");
    }

    // Clicks `window` and waits until it is active. The window manager handles input in the
    // order it comes, so by then it has handled everything done before, and the watch holds
    // every window that was active in between.
    void clickAndWaitUntilActive(unsigned long window) {
        const auto frame = testing::windowGeometry(display(), window);
        ASSERT_TRUE(frame);
        ASSERT_TRUE(click(QPoint(frame->x + frame->width / 2, frame->y + frame->height / 2)));
        ASSERT_TRUE(
            testing::eventually([&] { return activeWindow() == window; }, testing::kPatience))
            << "a click on a plain window did not make it active";
    }

    // Ends the watch with a click on `other`: the panel must not have been active at any time.
    void expectThePanelWasNeverActive(unsigned long other) {
        ASSERT_NO_FATAL_FAILURE(clickAndWaitUntilActive(other));
        const auto seen = activeWindowsSeen();
        ASSERT_FALSE(seen.empty());
        EXPECT_EQ(std::count(seen.begin(), seen.end(), *panel), 0)
            << "the panel was made the active window";
        EXPECT_EQ(seen.back(), other);
    }

    std::unique_ptr<ChildProcess> activeWindowWatch;
};

INSTANTIATE_TEST_SUITE_P(WindowManagers, UnderEachWindowManager,
                         ::testing::Values(WindowManager::openbox, WindowManager::mutter),
                         testNameOf);

TEST_P(UnderEachWindowManager, TheFirstLaunchLeavesTheKeyboardWithTheWindowThatHasIt) {
    const auto other = openOtherWindow();
    ASSERT_NE(other, 0u);
    const auto normal = openNormalWindow("Active window");
    ASSERT_NE(normal, 0u);
    ASSERT_TRUE(testing::eventually([&] { return activeWindow() == normal; }, testing::kPatience));
    ASSERT_NO_FATAL_FAILURE(watchTheActiveWindow());

    auto widget = launch();
    ASSERT_TRUE(panel) << whyNoPanel(*widget);
    EXPECT_EQ(activeWindow(), normal) << "the panel took the focus when it appeared";
    ASSERT_NO_FATAL_FAILURE(expectThePanelWasNeverActive(other));
    EXPECT_TRUE(widget->isRunning());
}

TEST_P(UnderEachWindowManager, AClickOnTheCardLeavesTheKeyboardWhereItWas) {
    auto widget = launch();
    ASSERT_TRUE(panel) << whyNoPanel(*widget);
    const auto normal = openNormalWindow("Active window");
    ASSERT_NE(normal, 0u);
    const auto other = openOtherWindow();
    ASSERT_NE(other, 0u);
    // A click gives the first window the keyboard back: clicks reach the window manager.
    ASSERT_NO_FATAL_FAILURE(clickAndWaitUntilActive(normal));
    ASSERT_NO_FATAL_FAILURE(watchTheActiveWindow());

    const auto frame = panelGeometry();
    ASSERT_TRUE(frame);
    for (const QPointF& point : {kOnGlassBetweenGauges, kOnGauge, kOnTitle}) {
        const QPoint at = onPanel(*frame, point);
        // Where the two overlap, the first window is on top; click a part of the card in view.
        ASSERT_GT(at.x(), 1100);
        ASSERT_TRUE(click(at));
    }
    EXPECT_EQ(panelGeometry()->x, frame->x) << "a click moved the panel";
    ASSERT_NO_FATAL_FAILURE(expectThePanelWasNeverActive(other));
    EXPECT_TRUE(widget->isRunning());
}

TEST_P(UnderEachWindowManager, AQuickClickOnTheCardLeavesItWhereItIs) {
    auto widget = launch();
    ASSERT_TRUE(panel) << whyNoPanel(*widget);
    const auto other = openOtherWindow();
    ASSERT_NE(other, 0u);
    const auto frame = panelGeometry();
    ASSERT_TRUE(frame);
    ASSERT_TRUE(quickClick(onPanel(*frame, kOnGlassBetweenGauges)));
    // A window manager still moving the card would carry it along to the other window and take
    // the click there as the end of the move, leaving that window inactive.
    const auto target = testing::windowGeometry(display(), other);
    ASSERT_TRUE(target);
    ASSERT_TRUE(click(QPoint(target->x + target->width / 2, target->y + target->height / 2)));
    EXPECT_TRUE(testing::eventually([&] { return activeWindow() == other; }, testing::kPatience))
        << "a click on a plain window after a quick click on the card did not make it active";
    const auto after = panelGeometry();
    ASSERT_TRUE(after);
    EXPECT_EQ(QPoint(after->x, after->y), QPoint(frame->x, frame->y))
        << "the card went on moving with the pointer after a quick click";
    EXPECT_TRUE(widget->isRunning());
}

TEST_P(UnderEachWindowManager, AFirstClickDragMovesThePanelAndLeavesTheFocusAlone) {
    auto widget = launch();
    ASSERT_TRUE(panel) << whyNoPanel(*widget);
    const auto other = openOtherWindow();
    ASSERT_NE(other, 0u);
    const auto normal = openNormalWindow("Active window");
    ASSERT_NE(normal, 0u);
    ASSERT_TRUE(testing::eventually([&] { return activeWindow() == normal; }, testing::kPatience));
    ASSERT_NO_FATAL_FAILURE(watchTheActiveWindow());
    const auto frame = panelGeometry();
    ASSERT_TRUE(frame);
    const QPoint glass = onPanel(*frame, kOnGlassBetweenGauges);
    ASSERT_GT(glass.x(), 1100) << "the press must land on a part of the card in view";

    // The very first press on the card, with another window active, drags it.
    const auto after = drag(glass, QPoint(-200, 300));
    ASSERT_TRUE(after) << "the first press did not move the panel";
    EXPECT_NEAR(after->y - frame->y, 300, 30);
    EXPECT_EQ(activeWindow(), normal) << "dragging the panel took the focus";
    ASSERT_NO_FATAL_FAILURE(expectThePanelWasNeverActive(other));
    EXPECT_TRUE(widget->isRunning());
}

TEST_P(UnderEachWindowManager, HiddenFromTheCardAndShownAgainItComesBackInPlaceWithoutFocus) {
    auto widget = launch();
    ASSERT_TRUE(panel) << whyNoPanel(*widget);
    const auto frame = panelGeometry();
    ASSERT_TRUE(frame);
    const auto other = openOtherWindow();
    ASSERT_NE(other, 0u);

    unsigned long normal = 0;
    ASSERT_NO_FATAL_FAILURE(hideAndFocusAnotherWindow(normal));
    ASSERT_NO_FATAL_FAILURE(watchTheActiveWindow());

    // Launching the program again shows the panel.
    const auto again = testing::runProcess({executable.string()}, session(), testing::kPatience);
    EXPECT_EQ(again.exitCode, 0);
    ASSERT_NO_FATAL_FAILURE(expectShownInPlaceWithoutFocus(*frame, normal));
    EXPECT_LT(stackingIndex(*panel), stackingIndex(normal));
    ASSERT_NO_FATAL_FAILURE(expectThePanelWasNeverActive(other));
}

// The phone tools' runs going on now: their process numbers.
std::vector<int> fakeToolRuns(const std::filesystem::path& tools) {
    std::vector<int> runs;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const std::string name = entry.path().filename().string();
        if (name.find_first_not_of("0123456789") != std::string::npos) {
            continue;
        }
        // A process may end while its command line is read.
        try {
            if (contains(testing::readText(entry.path() / "cmdline"), tools.string())) {
                runs.push_back(std::stoi(name));
            }
        } catch (const std::exception&) {
        }
    }
    return runs;
}

TEST_P(UnderEachWindowManager, APressOnTheRefreshButtonWhileItChecksMovesNothing) {
    // The first list hangs until the program gives up on it, so the card checks for a while;
    // the next ones answer at once.
    const auto log = useFakeTools(R"({"rules": [
        {"tool": "idevice_id", "answers": [{"delay": 600}, {"stdout": ""}]},
        {"tool": "*", "args": "*", "status": 1}]})");
    const auto tools = folder.path() / "install" / "share" / "tovrin" / "Runtime" / "bin";
    const auto listRuns = [&log] {
        const std::string text = testing::readText(log);
        return std::count(text.begin(), text.end(), '\n');
    };
    auto widget = launch(launchWithFakeTools());
    ASSERT_TRUE(panel) << whyNoPanel(*widget);
    const auto frame = panelGeometry();
    ASSERT_TRUE(frame);

    // A list is running: the refresh button spins and takes no press.
    std::vector<int> running;
    ASSERT_TRUE(testing::eventually(
        [&] {
            running = fakeToolRuns(tools);
            return !running.empty();
        },
        testing::kPatience))
        << "the card did not start a check";
    const QPoint button = onPanel(*frame, kOnRefreshButton);
    ASSERT_TRUE(movePointer(button));
    ASSERT_TRUE(pressButton());
    for (int step = 1; step <= 6; ++step) {
        ASSERT_TRUE(movePointer(button + QPoint(-40 * step, 40 * step)));
    }
    ASSERT_TRUE(releaseButton());
    // The same run still going: the button was spinning from the press to the release.
    const auto stillRunning = fakeToolRuns(tools);
    ASSERT_TRUE(std::find(stillRunning.begin(), stillRunning.end(), running.front()) !=
                stillRunning.end())
        << "the check ended before the release; the press proves nothing";
    const auto now = panelGeometry();
    ASSERT_TRUE(now);
    EXPECT_EQ(now->x, frame->x) << "a press on the spinning refresh button moved the panel";
    EXPECT_EQ(now->y, frame->y) << "a press on the spinning refresh button moved the panel";
    EXPECT_EQ(visibleProgramWindows(), 1u) << "a press on the refresh button opened a menu";

    // Once the check is over, a click at the same place checks again: it was the button.
    ASSERT_TRUE(
        testing::eventually([&] { return fakeToolRuns(tools).empty(); }, testing::kPatience));
    const auto before = listRuns();
    EXPECT_TRUE(testing::eventually(
        [&] {
            click(button);
            return testing::eventually([&] { return listRuns() > before; }, 1s);
        },
        testing::kPatience))
        << testing::readText(log);
    const auto after = panelGeometry();
    ASSERT_TRUE(after);
    EXPECT_EQ(after->x, frame->x);
    EXPECT_TRUE(widget->isRunning());
}

std::filesystem::path helper(const char* name) {
    return std::filesystem::path(TOVRIN_BINARY_DIR) / "tests" / name;
}

// logind's stand-in on a private system bus; wake() announces a sleep and the wake after it.
class Login1StandIn {
public:
    explicit Login1StandIn(const std::filesystem::path& folder)
        : m_bus(folder, "system"), m_trigger(folder / "wake") {
        if (!m_bus.isReady()) {
            return;
        }
        m_process = std::make_unique<ChildProcess>(
            std::vector<std::string>{helper("tovrin_test_login1").string(), m_trigger.string()},
            EnvironmentChanges{{"DBUS_SYSTEM_BUS_ADDRESS", m_bus.address()}});
        m_ready = testing::eventually(
            [this] { return std::filesystem::exists(m_trigger.string() + ".ready"); },
            testing::kPatience);
    }

    bool isReady() const { return m_ready; }
    std::string address() const { return m_bus.address(); }
    void wake() const { testing::writeText(m_trigger, ""); }

private:
    PrivateBus m_bus;
    std::filesystem::path m_trigger;
    std::unique_ptr<ChildProcess> m_process;
    bool m_ready = false;
};

TEST_F(WindowManagerXvfbTest, WakeFromSleepRunsOneFullRefresh) {
    Login1StandIn bus(folder.path() / "system-bus");
    ASSERT_TRUE(bus.isReady()) << "the logind stand-in did not start";
    systemBus = bus.address();

    const auto log = useFakeTools(R"({"rules": [{"tool": "idevice_id", "stdout": ""},
                                               {"tool": "*", "args": "*", "status": 1}]})");
    // How many runs of idevice_id had `argument` as their one argument.
    const auto runs = [&log](const char* argument) {
        std::ifstream stream(log);
        int count = 0;
        for (std::string line; std::getline(stream, line);) {
            if (!line.empty() && nlohmann::json::parse(line).value("args", nlohmann::json()) ==
                                     nlohmann::json::array({argument})) {
                ++count;
            }
        }
        return count;
    };
    // A whole read with no phone about: the Wi-Fi list, then the cable list.
    const auto reads = [&runs] { return std::pair(runs("-n"), runs("-l")); };

    auto widget = launch(launchWithFakeTools());
    ASSERT_TRUE(panel) << whyNoPanel(*widget);
    ASSERT_TRUE(testing::eventually([&] { return reads() == std::pair(1, 1); }, testing::kPatience))
        << testing::readText(log) << widget->errorOutput();
    // The read at start is over, and the next one is minutes away.
    EXPECT_FALSE(testing::eventually([&] { return reads() != std::pair(1, 1); }, 1500ms))
        << testing::readText(log);

    bus.wake();
    EXPECT_TRUE(testing::eventually([&] { return reads() == std::pair(2, 2); }, testing::kPatience))
        << testing::readText(log);
    EXPECT_FALSE(testing::eventually([&] { return reads() != std::pair(2, 2); }, 1500ms))
        << "one wake, one refresh: " << testing::readText(log);
    EXPECT_TRUE(widget->isRunning());
}

// Runs gdbus against the item on `address`; its printed answer.
std::string gdbusCall(const std::string& address, const std::string& destination,
                      const std::string& path, const std::vector<std::string>& method) {
    std::vector<std::string> command{"/usr/bin/gdbus", "call",   "--address",
                                     address,          "--dest", destination,
                                     "--object-path",  path,     "--method"};
    command.insert(command.end(), method.begin(), method.end());
    const auto result =
        testing::runProcess(command, testing::EnvironmentChanges{}, testing::kPatience);
    return result.out + result.err;
}

// The menu entries as the tray host reads them: id and properties text of each.
std::vector<std::pair<std::string, std::string>> trayMenuEntries(const std::string& layout) {
    std::vector<std::pair<std::string, std::string>> entries;
    const std::regex entry(R"(<\((\d+), \{([^}]*)\})");
    for (auto it = std::sregex_iterator(layout.begin(), layout.end(), entry);
         it != std::sregex_iterator(); ++it) {
        entries.emplace_back((*it)[1].str(), (*it)[2].str());
    }
    return entries;
}

// A menu label as the tray host shows it: "_" marks the next character as the mnemonic, "__" is
// an underscore.
std::string shownLabel(const std::string& label) {
    std::string shown;
    for (std::size_t i = 0; i < label.size(); ++i) {
        if (label[i] == '_' && i + 1 < label.size()) {
            ++i;
        }
        shown += label[i];
    }
    return shown;
}

TEST_F(WindowManagerXvfbTest, WithoutATrayTheCardWorksAndTheItemComesWithTheHost) {
    PrivateBus bus(folder.path() / "session-bus", "session");
    ASSERT_TRUE(bus.isReady());
    sessionBus = bus.address();
    displayName = "Bits & Bobs";
    testing::writeText(folder.path() / "install" / "share" / "tovrin" / "Info",
                       R"({"CFBundleDisplayName": "Bits & Bobs",
                           "CFBundleIdentifier": "com.quenby.Tovrin",
                           "CFBundleShortVersionString": "1.1"})");
    // As installed: the symbolic tray icon is in a data folder tray hosts search.
    auto widget = launch({{"XDG_DATA_DIRS", std::string(TOVRIN_BINARY_DIR) + "/share:/usr/share"}});
    ASSERT_TRUE(panel) << whyNoPanel(*widget);
    const auto frame = panelGeometry();
    ASSERT_TRUE(frame);

    // No tray: the card still hides, and a second launch shows it again.
    ASSERT_TRUE(hideFromCardMenu());
    EXPECT_EQ(testing::runProcess({executable.string()}, session(), testing::kPatience).exitCode,
              0);
    ASSERT_TRUE(testing::eventually([&] { return isViewable(*panel); }, testing::kPatience));
    EXPECT_TRUE(widget->isRunning());

    // A tray host shows up: the item registers with it by itself.
    const auto registrations = folder.path() / "tray-items";
    ChildProcess watcher({helper("tovrin_test_tray_watcher").string(), registrations.string()},
                         {{"DBUS_SESSION_BUS_ADDRESS", bus.address()}});
    std::string item;
    ASSERT_TRUE(testing::eventually(
        [&] {
            const auto text = testing::readText(registrations);
            item = text.substr(0, text.find(' '));
            return !item.empty();
        },
        15s))
        << widget->errorOutput();

    const auto title =
        gdbusCall(bus.address(), item, "/StatusNotifierItem",
                  {"org.freedesktop.DBus.Properties.Get", "org.kde.StatusNotifierItem", "Title"});
    EXPECT_TRUE(contains(title, "<'Bits & Bobs'>")) << title;
    const auto toolTip =
        gdbusCall(bus.address(), item, "/StatusNotifierItem",
                  {"org.freedesktop.DBus.Properties.Get", "org.kde.StatusNotifierItem", "ToolTip"});
    EXPECT_TRUE(contains(toolTip, "Bits & Bobs \u2014 Mac and iPhone batteries")) << toolTip;
    // The mark by its symbolic theme name, which hosts tint for their panel (the drawn mark goes
    // along as the item's pixmap).
    const auto iconName = gdbusCall(
        bus.address(), item, "/StatusNotifierItem",
        {"org.freedesktop.DBus.Properties.Get", "org.kde.StatusNotifierItem", "IconName"});
    EXPECT_TRUE(contains(iconName, "<'com.quenby.Tovrin-symbolic'>")) << iconName;
    const auto pixmaps = gdbusCall(
        bus.address(), item, "/StatusNotifierItem",
        {"org.freedesktop.DBus.Properties.Get", "org.kde.StatusNotifierItem", "IconPixmap"});
    EXPECT_TRUE(contains(pixmaps, "(18, 18,")) << pixmaps.substr(0, 200);

    gdbusCall(bus.address(), item, "/MenuBar", {"com.canonical.dbusmenu.AboutToShow", "0"});
    const auto layout = gdbusCall(bus.address(), item, "/MenuBar",
                                  {"com.canonical.dbusmenu.GetLayout", "--", "0", "-1", "@as []"});
    std::string showId;
    std::vector<std::string> labels;
    for (const auto& [id, properties] : trayMenuEntries(layout)) {
        const std::regex label(R"('label': <'([^']*)'>)");
        std::smatch match;
        if (std::regex_search(properties, match, label)) {
            labels.push_back(shownLabel(match[1]));
            if (labels.back() == "Show Bits & Bobs") {
                showId = id;
            }
            // The host is told of the two keys, to show them beside their entries.
            if (labels.back() == "Refresh Batteries") {
                EXPECT_TRUE(contains(properties, "'shortcut': <[['Control', 'R']]>")) << properties;
            } else if (labels.back() == "Quit Bits & Bobs") {
                EXPECT_TRUE(contains(properties, "'shortcut': <[['Control', 'Q']]>")) << properties;
            } else {
                EXPECT_FALSE(contains(properties, "'shortcut'")) << properties;
            }
        }
    }
    EXPECT_EQ(labels, (std::vector<std::string>{"Show Bits & Bobs", "Refresh Batteries",
                                                "Battery History\u2026", "Start at Login",
                                                "Low Battery Alerts", "About Bits & Bobs",
                                                "Quit Bits & Bobs"}))
        << layout;
    ASSERT_FALSE(showId.empty()) << layout;

    // Hidden from the card, shown from the tray menu: back in place, focus left alone.
    unsigned long normal = 0;
    ASSERT_NO_FATAL_FAILURE(hideAndFocusAnotherWindow(normal));
    gdbusCall(bus.address(), item, "/MenuBar",
              {"com.canonical.dbusmenu.Event", showId, "clicked", "<0>", "0"});
    expectShownInPlaceWithoutFocus(*frame, normal);
}

} // namespace
} // namespace ambrel
