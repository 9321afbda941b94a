// The real program under a real window manager: Xvfb with openbox, the pointer and keys driven
// through XTest (xdotool). Each test has its own display, window manager and buses, all ended
// when the test ends, passed or not.

#include <gtest/gtest.h>

#include <QPoint>
#include <QPointF>

#include <nlohmann/json.hpp>

#include <algorithm>
#include <fstream>
#include <optional>
#include <regex>

#include "tests/app/ProcessHarness.h"
#include "tests/app/XServerHarness.h"

namespace ambrel {
namespace {

using testing::ChildProcess;
using testing::EnvironmentChanges;
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

bool contains(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

class WindowManagerXvfbTest : public ::testing::Test {
protected:
    WindowManagerXvfbTest() : executable(testing::makeBundle(folder.path() / "install")) {}

    void SetUp() override {
        ASSERT_FALSE(server.display().empty()) << "Xvfb did not start";
        std::filesystem::create_directories(folder.path() / "wm");
        const auto managed = [this] {
            return contains(
                testing::windowProperty(server.display(), "root", "_NET_SUPPORTING_WM_CHECK"),
                "window id");
        };
        // Started again should it end before it manages the screen.
        for (int attempt = 0; attempt < 3 && !managed(); ++attempt) {
            windowManager = std::make_unique<ChildProcess>(
                std::vector<std::string>{"/usr/bin/openbox", "--sm-disable"},
                EnvironmentChanges{{"DISPLAY", server.display()},
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

    EnvironmentChanges session() const {
        return testing::privateSession(
            folder.path() / "user",
            {{"DISPLAY", server.display()},
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
                panel = testing::managedWindowTitled(server.display(), displayName);
                return panel.has_value() && isViewable(*panel);
            },
            20s);
        return process;
    }

    bool isViewable(unsigned long window) const {
        return contains(testing::runProcess({"/usr/bin/xwininfo", "-display", server.display(),
                                             "-id", std::to_string(window)},
                                            {})
                            .out,
                        "Map State: IsViewable");
    }

    std::optional<WindowGeometry> panelGeometry() const {
        return testing::windowGeometry(server.display(), *panel);
    }

    // A plain application window, opened now.
    unsigned long openNormalWindow(const std::string& title) {
        normalWindows.push_back(std::make_unique<ChildProcess>(
            std::vector<std::string>{"/usr/bin/xmessage", "-title", title, "-geometry",
                                     "1100x400+0+0", "A normal window"},
            EnvironmentChanges{{"DISPLAY", server.display()}}));
        std::optional<unsigned long> window;
        testing::eventually(
            [&] {
                window = testing::managedWindowTitled(server.display(), title);
                return window.has_value();
            },
            15s);
        return window.value_or(0);
    }

    // Where `window` is in the stacking order, bottom first; -1 when not listed.
    int stackingIndex(unsigned long window) const {
        const auto order = testing::rootWindowList(server.display(), "_NET_CLIENT_LIST_STACKING");
        const auto found = std::find(order.begin(), order.end(), window);
        return found == order.end() ? -1 : static_cast<int>(found - order.begin());
    }

    std::optional<unsigned long> activeWindow() const {
        const auto windows = testing::rootWindowList(server.display(), "_NET_ACTIVE_WINDOW");
        return windows.empty() ? std::nullopt : std::optional(windows.front());
    }

    // The program's windows on screen: the panel, and its menu while open.
    std::size_t visibleProgramWindows() const {
        const auto out = testing::runProcess({"/usr/bin/xdotool", "search", "--onlyvisible",
                                              "--classname", "tovrin"},
                                             {{"DISPLAY", server.display()}})
                             .out;
        return static_cast<std::size_t>(std::count(out.begin(), out.end(), '\n'));
    }

    QPoint onPanel(const WindowGeometry& frame, const QPointF& point) const {
        return {frame.x + static_cast<int>(point.x()), frame.y + static_cast<int>(point.y())};
    }

    bool pointer(const std::vector<std::string>& arguments) const {
        return testing::xdotool(server.display(), arguments);
    }

    // Presses the left button at `from` and moves the pointer by `by`, a little at a time until
    // the window manager has taken the move over, then the rest of the way; releases there.
    // Returns the panel's frame once it stopped moving.
    std::optional<WindowGeometry> drag(QPoint from, QPoint by) const {
        const auto before = panelGeometry();
        pointer({"mousemove", std::to_string(from.x()), std::to_string(from.y())});
        pointer({"mousedown", "1"});
        int step = 0;
        const bool started = testing::eventually(
            [&] {
                ++step;
                pointer({"mousemove", std::to_string(from.x() + step),
                         std::to_string(from.y() + step)});
                const auto now = panelGeometry();
                return now && before && (now->x != before->x || now->y != before->y);
            },
            10s);
        const QPoint to = from + by;
        pointer({"mousemove", std::to_string(to.x()), std::to_string(to.y())});
        std::optional<WindowGeometry> settled;
        testing::eventually(
            [&] {
                const auto now = panelGeometry();
                const bool same = now && settled && now->x == settled->x && now->y == settled->y;
                settled = now;
                return same && std::abs(now->x - (before->x + by.x())) <= step + 1;
            },
            10s);
        pointer({"mouseup", "1"});
        if (!started) {
            return std::nullopt;
        }
        return panelGeometry();
    }

    // "Hide widget" from the card's options menu, with the keyboard once the menu is open.
    bool hideFromCardMenu() const {
        const auto frame = panelGeometry();
        if (!frame) {
            return false;
        }
        const QPoint button = onPanel(*frame, kOnMenuButton);
        pointer(
            {"mousemove", std::to_string(button.x()), std::to_string(button.y()), "click", "1"});
        if (!testing::eventually([&] { return visibleProgramWindows() == 2u; },
                                 testing::kPatience)) {
            return false;
        }
        // Refresh, set up, Battery History, (the byline is not selectable), Hide.
        pointer({"key", "Down", "Down", "Down", "Down", "Return"});
        return testing::eventually([&] { return !isViewable(*panel); }, testing::kPatience);
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
    XvfbServer server;
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
    ASSERT_TRUE(panel) << widget->errorOutput();
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

TEST_F(WindowManagerXvfbTest, TheFirstLaunchLeavesTheKeyboardWithTheWindowThatHasIt) {
    const auto normal = openNormalWindow("Active window");
    ASSERT_NE(normal, 0u);
    ASSERT_TRUE(testing::eventually([&] { return activeWindow() == normal; }, testing::kPatience));
    auto widget = launch();
    ASSERT_TRUE(panel) << widget->errorOutput();
    // The window manager decides on focus as it maps a window; the panel is mapped now.
    EXPECT_EQ(activeWindow(), normal) << "the panel took the focus when it appeared";
    EXPECT_TRUE(widget->isRunning());
}

TEST_F(WindowManagerXvfbTest, AFirstClickDragMovesThePanelAndLeavesTheFocusAlone) {
    auto widget = launch();
    ASSERT_TRUE(panel) << widget->errorOutput();
    const auto normal = openNormalWindow("Active window");
    ASSERT_NE(normal, 0u);
    ASSERT_TRUE(testing::eventually([&] { return activeWindow() == normal; }, testing::kPatience));
    const auto frame = panelGeometry();
    ASSERT_TRUE(frame);
    const QPoint glass = onPanel(*frame, kOnGlassBetweenGauges);
    ASSERT_GT(glass.x(), 1100) << "the press must land on a part of the card in view";

    // The very first press on the card, with another window active, drags it.
    const auto after = drag(glass, QPoint(-200, 300));
    ASSERT_TRUE(after) << "the first press did not move the panel";
    EXPECT_NEAR(after->y - frame->y, 300, 30);
    EXPECT_EQ(activeWindow(), normal) << "dragging the panel took the focus";

    EXPECT_TRUE(widget->isRunning());
}

TEST_F(WindowManagerXvfbTest, PanelIsShownOnEveryWorkspace) {
    auto widget = launch();
    ASSERT_TRUE(panel) << widget->errorOutput();
    for (const char* workspace : {"1", "2", "0"}) {
        ASSERT_TRUE(pointer({"set_desktop", workspace}));
        EXPECT_TRUE(testing::eventually(
            [&] {
                return contains(
                    testing::windowProperty(server.display(), "root", "_NET_CURRENT_DESKTOP"),
                    std::string("= ") + workspace);
            },
            30s));
        EXPECT_TRUE(testing::eventually([&] { return isViewable(*panel); }, testing::kPatience))
            << "not shown on workspace " << workspace;
    }
}

TEST_F(WindowManagerXvfbTest, DraggingTheTitleOrTheBodyMovesThePanelAndSavesItsFrame) {
    auto widget = launch();
    ASSERT_TRUE(panel) << widget->errorOutput();
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
    ASSERT_TRUE(panel) << widget->errorOutput();
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

TEST_F(WindowManagerXvfbTest, HiddenFromTheCardAndShownAgainItComesBackInPlaceWithoutFocus) {
    auto widget = launch();
    ASSERT_TRUE(panel) << widget->errorOutput();
    const auto frame = panelGeometry();
    ASSERT_TRUE(frame);

    unsigned long normal = 0;
    ASSERT_NO_FATAL_FAILURE(hideAndFocusAnotherWindow(normal));

    // Launching the program again shows the panel.
    const auto again = testing::runProcess({executable.string()}, session(), testing::kPatience);
    EXPECT_EQ(again.exitCode, 0);
    ASSERT_NO_FATAL_FAILURE(expectShownInPlaceWithoutFocus(*frame, normal));
    EXPECT_LT(stackingIndex(*panel), stackingIndex(normal));
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

    const auto tools = folder.path() / "install" / "share" / "tovrin" / "Runtime" / "bin";
    const std::filesystem::path fixtures =
        std::filesystem::path(TOVRIN_FIXTURES_DIR) / "fake-tools";
    for (const char* tool : {"idevice_id", "ideviceinfo"}) {
        std::filesystem::create_symlink(fixtures / tool, tools / tool);
    }
    const auto scenario = folder.path() / "scenario.json";
    const auto log = folder.path() / "calls.log";
    testing::writeText(scenario, R"({"rules": [{"tool": "idevice_id", "stdout": ""},
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

    auto widget =
        launch({{"TOVRIN_FAKE_SCENARIO", scenario.string()}, {"TOVRIN_FAKE_LOG", log.string()}});
    ASSERT_TRUE(panel) << widget->errorOutput();
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
    ASSERT_TRUE(panel) << widget->errorOutput();
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
