#include <algorithm>
#include <filesystem>
#include <fstream>

#include <QAction>
#include <QApplication>
#include <QImage>
#include <QKeySequence>
#include <QMenu>
#include <QMouseEvent>
#include <QPainter>
#include <QTest>

#include <gtest/gtest.h>

#include <unistd.h>

#include "platform/qt/ColorSchemeWatcher.h"
#include "platform/qt/SingleInstance.h"
#include "shell/AutostartSettings.h"
#include "shell/DesktopPanel.h"
#include "shell/PreviewCapture.h"
#include "shell/StatusMenu.h"
#include "tests/app/FakeLoginItemService.h"
#include "tests/app/OffscreenApplication.h"
#include "tests/app/ProcessHarness.h"
#include "tests/fakes/FakeEnvironment.h"
#include "tests/fakes/TemporaryFolder.h"

namespace ambrel {
namespace {

using testing::FakeLoginItemService;

struct MenuHarness {
    MenuHarness() {
        testing::ensureOffscreenApplication();
        StatusMenu::Actions actions;
        actions.showPanel = [this] { ++shows; };
        actions.refresh = [this] { ++refreshes; };
        actions.quit = [this] { ++quits; };
        actions.openAutostartSettings = [this] { ++settingsOpened; };
        actions.presentAlert = [this](const QString& message, const QString& text) {
            alerts.emplace_back(message, text);
        };
        menu = std::make_unique<StatusMenu>(QStringLiteral("Tovrin"), service, actions);
    }

    QList<QAction*> actions() { return menu->menu().actions(); }
    void open() { Q_EMIT menu->menu().aboutToShow(); }

    FakeLoginItemService service;
    std::unique_ptr<StatusMenu> menu;
    int shows = 0;
    int refreshes = 0;
    int quits = 0;
    int settingsOpened = 0;
    std::vector<std::pair<QString, QString>> alerts;
};

TEST(StatusMenuTest, EntriesInOrderWithAlertsAfterStartAtLogin) {
    MenuHarness harness;
    const auto actions = harness.actions();
    ASSERT_EQ(actions.size(), 8);
    EXPECT_EQ(actions[0]->text(), QStringLiteral("Show Tovrin"));
    EXPECT_EQ(actions[1]->text(), QStringLiteral("Refresh Batteries"));
    EXPECT_TRUE(actions[2]->isSeparator());
    EXPECT_EQ(actions[3]->text(), QStringLiteral("Start at Login"));
    EXPECT_EQ(actions[4]->text(), QStringLiteral("Low Battery Alerts"));
    EXPECT_TRUE(actions[5]->isSeparator());
    EXPECT_EQ(actions[6]->text(), QStringLiteral("About Tovrin"));
    EXPECT_EQ(actions[7]->text(), QStringLiteral("Quit Tovrin"));
}

TEST(StatusMenuTest, TheHistoryItemFollowsRefreshWhenTheProgramOffersIt) {
    testing::ensureOffscreenApplication();
    FakeLoginItemService service;
    int opened = 0;
    StatusMenu::Actions actions;
    actions.openHistory = [&opened] { ++opened; };
    StatusMenu menu(QStringLiteral("Tovrin"), service, actions);
    const auto entries = menu.menu().actions();
    ASSERT_EQ(entries.size(), 9);
    EXPECT_EQ(entries[0]->text(), QStringLiteral("Show Tovrin"));
    EXPECT_EQ(entries[1]->text(), QStringLiteral("Refresh Batteries"));
    EXPECT_EQ(entries[2]->text(), QString::fromUtf8("Battery History\u2026"));
    EXPECT_TRUE(entries[3]->isSeparator());
    EXPECT_EQ(entries[4]->text(), QStringLiteral("Start at Login"));
    EXPECT_EQ(entries[8]->text(), QStringLiteral("Quit Tovrin"));
    entries[2]->trigger();
    EXPECT_EQ(opened, 1);
}

TEST(StatusMenuTest, LowBatteryAlertsIsACheckboxOnByDefault) {
    MenuHarness harness;
    QAction* alerts = harness.menu->alertsAction();
    EXPECT_EQ(alerts, harness.actions()[4]);
    EXPECT_TRUE(alerts->isCheckable());
    EXPECT_TRUE(alerts->isChecked());
    EXPECT_TRUE(alerts->shortcut().isEmpty());
    std::vector<bool> changes;
    harness.menu->setLowBatteryAlerts(false, [&changes](bool on) { changes.push_back(on); });
    EXPECT_FALSE(alerts->isChecked());
    alerts->trigger();
    alerts->trigger();
    EXPECT_EQ(changes, (std::vector<bool>{true, false}));
    EXPECT_FALSE(alerts->isChecked());
}

TEST(StatusMenuTest, RefreshAndQuitAloneTakeKeys) {
    MenuHarness harness;
    const auto actions = harness.actions();
    for (int index = 0; index < actions.size(); ++index) {
        SCOPED_TRACE(actions[index]->text().toStdString());
        const QKeySequence expected = index == 1   ? QKeySequence(Qt::CTRL | Qt::Key_R)
                                      : index == 7 ? QKeySequence(Qt::CTRL | Qt::Key_Q)
                                                   : QKeySequence();
        EXPECT_EQ(actions[index]->shortcut(), expected);
    }
    EXPECT_EQ(actions[1]->shortcut().toString(QKeySequence::NativeText), QStringLiteral("Ctrl+R"));
    EXPECT_EQ(harness.menu->menu().accessibleName(), QStringLiteral("Tovrin"));
}

// Keys reach the open menu as the window system delivers them.
void pressInOpenMenu(QMenu& menu, Qt::Key key, Qt::KeyboardModifiers modifiers) {
    menu.popup(QPoint(100, 100));
    ASSERT_TRUE(testing::eventually(
        [&menu] {
            QCoreApplication::processEvents();
            return menu.isVisible() && menu.windowHandle() != nullptr;
        },
        testing::kPatience));
    QTest::keyClick(menu.windowHandle(), key, modifiers);
    QCoreApplication::processEvents();
}

TEST(StatusMenuTest, CtrlRAndCtrlQWorkWhileTheMenuIsOpen) {
    MenuHarness harness;
    QMenu& menu = harness.menu->menu();
    ASSERT_NO_FATAL_FAILURE(pressInOpenMenu(menu, Qt::Key_R, Qt::ControlModifier));
    EXPECT_EQ(harness.refreshes, 1);
    EXPECT_EQ(harness.quits, 0);
    EXPECT_FALSE(menu.isVisible());

    ASSERT_NO_FATAL_FAILURE(pressInOpenMenu(menu, Qt::Key_Q, Qt::ControlModifier));
    EXPECT_EQ(harness.refreshes, 1);
    EXPECT_EQ(harness.quits, 1);
    EXPECT_FALSE(menu.isVisible());

    // Without Ctrl the letter does nothing of the kind.
    ASSERT_NO_FATAL_FAILURE(pressInOpenMenu(menu, Qt::Key_Q, Qt::NoModifier));
    EXPECT_EQ(harness.quits, 1);
    menu.close();
    EXPECT_EQ(harness.shows, 0);
}

TEST(StatusMenuTest, AmpersandInTheNameIsShownAsItIs) {
    testing::ensureOffscreenApplication();
    FakeLoginItemService service;
    StatusMenu menu(QStringLiteral("Bits & Bobs"), service, StatusMenu::Actions{});
    const auto actions = menu.menu().actions();
    ASSERT_EQ(actions.size(), 8);
    // Qt draws "&&" as one "&"; a lone "&" would underline the next letter instead.
    EXPECT_EQ(actions[0]->text(), QStringLiteral("Show Bits && Bobs"));
    EXPECT_EQ(actions[6]->text(), QStringLiteral("About Bits && Bobs"));
    EXPECT_EQ(actions[7]->text(), QStringLiteral("Quit Bits && Bobs"));
}

TEST(StatusMenuTest, EntriesCallTheirActions) {
    MenuHarness harness;
    const auto actions = harness.actions();
    actions[0]->trigger();
    actions[1]->trigger();
    actions[7]->trigger();
    EXPECT_EQ(harness.shows, 1);
    EXPECT_EQ(harness.refreshes, 1);
    EXPECT_EQ(harness.quits, 1);
}

TEST(StatusMenuTest, ToolTipNamesTheProgram) {
    MenuHarness harness;
    EXPECT_EQ(harness.menu->tray().toolTip(),
              QString::fromUtf8("Tovrin \u2014 Mac and iPhone batteries"));
    EXPECT_FALSE(harness.menu->tray().icon().isNull());
}

TEST(StatusMenuTest, TrayMarkFollowsTheLook) {
    const auto mark = [](QSystemTrayIcon& tray) {
        return tray.icon().pixmap(QSize(18, 18)).toImage();
    };
    MenuHarness light;
    const QImage lightMark = mark(light.menu->tray());
    // A look set before the tray item exists is the one it is made with.
    MenuHarness dark;
    dark.menu->setDark(true);
    const QImage darkMark = mark(dark.menu->tray());
    ASSERT_FALSE(lightMark.isNull());
    EXPECT_NE(lightMark, darkMark);
    light.menu->setDark(true);
    EXPECT_EQ(mark(light.menu->tray()), darkMark);
    light.menu->setDark(false);
    EXPECT_EQ(mark(light.menu->tray()), lightMark);
}

TEST(StatusMenuTest, OpeningTheMenuReadsTheStatusEachTime) {
    MenuHarness harness;
    QAction* login = harness.menu->loginAction();
    harness.service.current = LoginItemStatus::enabled;
    harness.open();
    EXPECT_TRUE(login->isChecked());
    EXPECT_EQ(login->text(), QStringLiteral("Start at Login"));

    harness.service.current = LoginItemStatus::requiresApproval;
    harness.open();
    EXPECT_FALSE(login->isChecked());
    EXPECT_EQ(login->text(), QStringLiteral("Start at Login (Needs Approval)"));

    harness.service.current = LoginItemStatus::notFound;
    harness.open();
    EXPECT_FALSE(login->isChecked());
    EXPECT_EQ(login->text(), QStringLiteral("Start at Login"));
}

TEST(StatusMenuTest, ChoosingStartAtLoginWhenEnabledUnregisters) {
    MenuHarness harness;
    harness.service.current = LoginItemStatus::enabled;
    harness.open();
    harness.menu->loginAction()->trigger();
    EXPECT_EQ(harness.service.unregisterCalls, 1);
    EXPECT_EQ(harness.service.registerCalls, 0);
    EXPECT_FALSE(harness.menu->loginAction()->isChecked());
    EXPECT_TRUE(harness.alerts.empty());
}

TEST(StatusMenuTest, ChoosingStartAtLoginWhenOffRegisters) {
    MenuHarness harness;
    harness.open();
    harness.menu->loginAction()->trigger();
    EXPECT_EQ(harness.service.registerCalls, 1);
    EXPECT_TRUE(harness.menu->loginAction()->isChecked());
    EXPECT_TRUE(harness.alerts.empty());
}

TEST(StatusMenuTest, NeedsApprovalOpensTheDesktopsSettingsInstead) {
    MenuHarness harness;
    harness.service.current = LoginItemStatus::requiresApproval;
    harness.open();
    harness.menu->loginAction()->trigger();
    EXPECT_EQ(harness.settingsOpened, 1);
    EXPECT_EQ(harness.service.registerCalls, 0);
    EXPECT_EQ(harness.service.unregisterCalls, 0);
    EXPECT_TRUE(harness.alerts.empty());
}

TEST(StatusMenuTest, NotFoundTriesToRegisterAndShowsTheReason) {
    MenuHarness harness;
    harness.service.current = LoginItemStatus::notFound;
    harness.service.registerFailure =
        LoginItemError{"Tovrin runs from the temporary folder /tmp.", "d", 1};
    harness.open();
    harness.menu->loginAction()->trigger();
    EXPECT_EQ(harness.service.registerCalls, 1);
    ASSERT_EQ(harness.alerts.size(), 1u);
    EXPECT_EQ(harness.alerts[0].first, QString::fromUtf8("Couldn\u2019t change Start at Login"));
    EXPECT_EQ(harness.alerts[0].second,
              QStringLiteral("Tovrin runs from the temporary folder /tmp."));
    EXPECT_FALSE(harness.menu->loginAction()->isChecked());
}

TEST(StatusMenuTest, UnregisterFailureShowsTheReason) {
    MenuHarness harness;
    harness.service.current = LoginItemStatus::enabled;
    harness.service.unregisterFailure = LoginItemError{"Permission denied", "POSIXErrorDomain", 13};
    harness.menu->toggleLogin();
    ASSERT_EQ(harness.alerts.size(), 1u);
    EXPECT_EQ(harness.alerts[0].second, QStringLiteral("Permission denied"));
    EXPECT_TRUE(harness.menu->loginAction()->isChecked());
}

TEST(StatusMenuTest, AboutShowsTheNameAndTheAboutText) {
    MenuHarness harness;
    harness.actions()[6]->trigger();
    ASSERT_EQ(harness.alerts.size(), 1u);
    EXPECT_EQ(harness.alerts[0].first, QStringLiteral("Tovrin"));
    EXPECT_TRUE(
        harness.alerts[0].second.startsWith(QString::fromUtf8("By Quenby \u00b7 Version 1.1\n")));
    EXPECT_TRUE(harness.alerts[0].second.contains(QStringLiteral("Drag the Tovrin heading")));
}

TEST(StatusMenuTest, WithoutATrayHostNothingBreaks) {
    MenuHarness harness;
    EXPECT_FALSE(QSystemTrayIcon::isSystemTrayAvailable());
    harness.menu->showTrayItem();
    harness.menu->setDark(true);
    harness.actions()[1]->trigger();
    EXPECT_EQ(harness.refreshes, 1);
}

TEST(DesktopPanelTest, FramelessTranslucentFixedSizeBelowOthers) {
    testing::ensureOffscreenApplication();
    DesktopPanel panel(QStringLiteral("Tovrin"));
    EXPECT_EQ(panel.windowTitle(), QStringLiteral("Tovrin"));
    EXPECT_TRUE(panel.windowFlags() & Qt::FramelessWindowHint);
    EXPECT_TRUE(panel.windowFlags() & Qt::WindowStaysOnBottomHint);
    EXPECT_TRUE(panel.windowFlags() & Qt::NoDropShadowWindowHint);
    EXPECT_TRUE(panel.windowFlags() & Qt::WindowDoesNotAcceptFocus);
    EXPECT_TRUE(panel.testAttribute(Qt::WA_ShowWithoutActivating));
    EXPECT_TRUE(panel.testAttribute(Qt::WA_TranslucentBackground));
    EXPECT_EQ(panel.size(), QSize(360, 170));
    EXPECT_EQ(panel.minimumSize(), QSize(360, 170));
    EXPECT_EQ(panel.maximumSize(), QSize(360, 170));
}

TEST(DesktopPanelTest, ContentFillsThePanelAndMovesAreReported) {
    testing::ensureOffscreenApplication();
    DesktopPanel panel(QStringLiteral("Tovrin"));
    auto* content = new QWidget;
    panel.setContent(content);
    EXPECT_EQ(content->parentWidget(), &panel);
    EXPECT_EQ(content->geometry(), QRect(0, 0, 360, 170));
    std::vector<bool> moves;
    panel.setMovedHandler([&moves](bool settled) { moves.push_back(settled); });
    panel.move(100, 120);
    panel.bringToFront();
    QApplication::processEvents();
    ASSERT_GE(moves.size(), 1u);
    // No button is held: a move that is over as it happens.
    EXPECT_TRUE(moves.back());
    EXPECT_TRUE(panel.isVisible());
    const auto before = moves.size();
    panel.move(300, 320);
    QApplication::processEvents();
    EXPECT_GT(moves.size(), before);
    EXPECT_EQ(panel.pos(), QPoint(300, 320));
}

// The panel's window as the window system delivers to it.
void sendToWindow(DesktopPanel& panel, QEvent::Type type, QPointF at) {
    QMouseEvent event(type, at, panel.mapToGlobal(at), Qt::LeftButton,
                      type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::LeftButton,
                      Qt::NoModifier);
    QCoreApplication::sendEvent(panel.windowHandle(), &event);
}

TEST(DesktopPanelTest, ADragsMovesSettleWhenItEnds) {
    testing::ensureOffscreenApplication();
    DesktopPanel panel(QStringLiteral("Tovrin"));
    panel.bringToFront();
    QApplication::processEvents();
    ASSERT_NE(panel.windowHandle(), nullptr);
    std::vector<bool> moves;
    panel.setMovedHandler([&moves](bool settled) { moves.push_back(settled); });

    // A drag of the program's own: moves while the button is down, settled at its release.
    sendToWindow(panel, QEvent::MouseButtonPress, QPointF(50, 50));
    panel.move(200, 210);
    panel.move(220, 230);
    QApplication::processEvents();
    ASSERT_GE(moves.size(), 2u);
    EXPECT_EQ(std::count(moves.begin(), moves.end(), true), 0);
    sendToWindow(panel, QEvent::MouseButtonRelease, QPointF(50, 50));
    ASSERT_FALSE(moves.empty());
    EXPECT_TRUE(moves.back());
    EXPECT_EQ(std::count(moves.begin(), moves.end(), true), 1);

    // A window manager's move: a release at once, the moves, and the pointer back at the end.
    moves.clear();
    sendToWindow(panel, QEvent::MouseButtonPress, QPointF(50, 50));
    sendToWindow(panel, QEvent::MouseButtonRelease, QPointF(50, 50));
    EXPECT_TRUE(moves.empty());
    panel.move(400, 410);
    QApplication::processEvents();
    ASSERT_EQ(moves.size(), 1u);
    EXPECT_FALSE(moves.back());
    QEnterEvent enter(QPointF(50, 50), QPointF(50, 50), panel.mapToGlobal(QPointF(50, 50)));
    QCoreApplication::sendEvent(panel.windowHandle(), &enter);
    ASSERT_EQ(moves.size(), 2u);
    EXPECT_TRUE(moves.back());
    // Its last configure, after the pointer came back, is over as it happens.
    panel.move(410, 420);
    QApplication::processEvents();
    ASSERT_EQ(moves.size(), 3u);
    EXPECT_TRUE(moves.back());
}

// A stand-in card for capture checks: solid colour over a known rectangle, clear elsewhere.
class SolidCard final : public QWidget {
public:
    explicit SolidCard(QColor color) : m_color(color) {}

protected:
    void paintEvent(QPaintEvent*) override {
        QPainter painter(this);
        painter.fillRect(QRect(20, 20, 100, 50), m_color);
    }

private:
    QColor m_color;
};

TEST(PreviewCaptureTest, HiddenPanelIsRenderedAtTheRatio) {
    testing::ensureOffscreenApplication();
    testing::TemporaryFolder folder;
    DesktopPanel panel(QStringLiteral("Tovrin"));
    panel.setContent(new SolidCard(QColor(200, 10, 10)));
    ASSERT_FALSE(panel.isVisible());
    const auto path = folder.path() / "card.png";
    ASSERT_TRUE(PreviewCapture::capture(&panel, 2.0, QString::fromStdString(path.string())));
    const QImage image(QString::fromStdString(path.string()));
    ASSERT_FALSE(image.isNull());
    EXPECT_EQ(image.size(), QSize(720, 340));
    EXPECT_EQ(image.pixelColor(60, 60), QColor(200, 10, 10));
    EXPECT_EQ(image.pixelColor(10, 10).alpha(), 0) << "outside the card stays transparent";
    EXPECT_EQ(image.pixelColor(700, 300).alpha(), 0);
}

TEST(PreviewCaptureTest, ReplacesAnExistingFile) {
    testing::ensureOffscreenApplication();
    testing::TemporaryFolder folder;
    const auto path = folder.path() / "card.png";
    testing::writeText(path, "old");
    QWidget content;
    content.resize(360, 170);
    ASSERT_TRUE(PreviewCapture::capture(&content, 1.0, QString::fromStdString(path.string())));
    EXPECT_EQ(QImage(QString::fromStdString(path.string())).size(), QSize(360, 170));
}

TEST(PreviewCaptureTest, FailuresAreQuiet) {
    testing::ensureOffscreenApplication();
    testing::TemporaryFolder folder;
    QWidget content;
    content.resize(360, 170);
    EXPECT_FALSE(PreviewCapture::capture(nullptr, 1.0, QStringLiteral("x.png")));
    EXPECT_FALSE(PreviewCapture::capture(&content, 1.0, QString()));
    const auto unwritable = folder.path() / "missing-folder" / "card.png";
    EXPECT_FALSE(
        PreviewCapture::capture(&content, 1.0, QString::fromStdString(unwritable.string())));
    EXPECT_FALSE(std::filesystem::exists(unwritable));
}

TEST(AutostartSettingsTest, ProgramsAreLookedUpOnTheGivenSearchPath) {
    const testing::TemporaryFolder folder;
    const auto bin = folder.path() / "bin";
    std::filesystem::create_directories(bin);
    std::ofstream(bin / "gnome-session-properties") << "#!/bin/sh\n";
    std::filesystem::permissions(bin / "gnome-session-properties",
                                 std::filesystem::perms::owner_all);
    std::ofstream(bin / "systemsettings") << "not a program\n";
    std::filesystem::permissions(bin / "systemsettings", std::filesystem::perms::owner_read);

    const auto onPath = AutostartSettings::programsOn("/nonexistent:" + bin.string());
    EXPECT_TRUE(onPath("gnome-session-properties"));
    EXPECT_FALSE(onPath("systemsettings"));
    EXPECT_FALSE(onPath("kcmshell6"));
    // Nothing is found without a search path, whatever this process's own PATH holds.
    EXPECT_FALSE(AutostartSettings::programsOn("")("sh"));
    EXPECT_TRUE(AutostartSettings::programsOn("/bin:/usr/bin")("sh"));
}

TEST(AutostartSettingsTest, PlasmaOpensItsAutostartModule) {
    const auto installed = [](const std::string& name) { return name == "systemsettings"; };
    EXPECT_EQ(AutostartSettings::command("KDE", installed, "/home/a/.config/autostart"),
              (std::vector<std::string>{"systemsettings", "kcm_autostart"}));
    const auto older = [](const std::string& name) { return name == "kcmshell5"; };
    EXPECT_EQ(AutostartSettings::command("ubuntu:KDE", older, "/x"),
              (std::vector<std::string>{"kcmshell5", "kcm_autostart"}));
}

TEST(AutostartSettingsTest, GnomeStartupApplicationsWhenInstalled) {
    const auto installed = [](const std::string& name) {
        return name == "gnome-session-properties" || name == "systemsettings";
    };
    EXPECT_EQ(AutostartSettings::command("ubuntu:GNOME", installed, "/x"),
              (std::vector<std::string>{"gnome-session-properties"}));
}

TEST(AutostartSettingsTest, OtherwiseTheFolderInTheFileManager) {
    const auto nothing = [](const std::string&) { return false; };
    EXPECT_EQ(AutostartSettings::command("KDE", nothing, "/home/a b/.config/autostart"),
              (std::vector<std::string>{"xdg-open", "/home/a b/.config/autostart"}));
    EXPECT_EQ(AutostartSettings::command("", nothing, "/x"),
              (std::vector<std::string>{"xdg-open", "/x"}));
    // "KDEish" is not KDE.
    const auto plasma = [](const std::string& name) { return name == "systemsettings"; };
    EXPECT_EQ(AutostartSettings::command("KDEish", plasma, "/x").front(), "xdg-open");
}

TEST(ColorSchemeWatcherTest, PortalValuesMapToLooks) {
    EXPECT_EQ(ColorSchemeWatcher::prefersDark(1), std::optional<bool>(true));
    EXPECT_EQ(ColorSchemeWatcher::prefersDark(2), std::optional<bool>(false));
    EXPECT_FALSE(ColorSchemeWatcher::prefersDark(0).has_value());
    EXPECT_FALSE(ColorSchemeWatcher::prefersDark(7).has_value());
}

TEST(ColorSchemeWatcherTest, NoBusLeavesTheLookAlone) {
    testing::ensureOffscreenApplication();
    int told = 0;
    ColorSchemeWatcher watcher([&told](std::optional<bool>) { ++told; });
    QApplication::processEvents();
    EXPECT_EQ(told, 0);
}

TEST(SingleInstanceTest, SecondClaimHandsOverAndTheFirstIsTold) {
    testing::ensureOffscreenApplication();
    testing::TemporaryFolder folder;
    const auto lock = folder.path() / "tovrin.lock";
    auto [firstClaim, first] = SingleInstance::claim(lock);
    ASSERT_EQ(firstClaim, SingleInstance::Claim::first);
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(testing::readText(lock), std::to_string(::getpid()) + "\n");

    int requests = 0;
    SignalEvents events;
    first->listen(events, [&requests](const SingleInstance::Request& request) {
        EXPECT_TRUE(request.empty());
        ++requests;
    });
    // A second open of the file is a second lock holder, even in the same process.
    auto [secondClaim, second] = SingleInstance::claim(lock);
    EXPECT_EQ(secondClaim, SingleInstance::Claim::handedOver);
    EXPECT_EQ(second, nullptr);
    EXPECT_TRUE(testing::eventually(
        [&requests] {
            QApplication::processEvents();
            return requests == 1;
        },
        std::chrono::seconds(5)));
}

TEST(SingleInstanceTest, LaterLaunchHandsItsRequestOver) {
    testing::ensureOffscreenApplication();
    testing::TemporaryFolder folder;
    const auto lock = folder.path() / "tovrin.lock";
    // Left by a launch whose copy ended before reading it: not acted on.
    testing::writeText(folder.path() / "tovrin.lock.1.request", std::string("old\0", 4));
    auto [firstClaim, first] = SingleInstance::claim(lock);
    ASSERT_EQ(firstClaim, SingleInstance::Claim::first);
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "tovrin.lock.1.request"));

    std::vector<SingleInstance::Request> requests;
    SignalEvents events;
    first->listen(events, [&requests](const SingleInstance::Request& request) {
        requests.push_back(request);
    });
    const SingleInstance::Request asked{"tovrin", "--capture-preview", "/a b/c\nd.png",
                                        "--preview-dark"};
    auto [secondClaim, second] = SingleInstance::claim(lock, asked);
    EXPECT_EQ(secondClaim, SingleInstance::Claim::handedOver);
    ASSERT_TRUE(testing::eventually(
        [&requests] {
            QApplication::processEvents();
            return !requests.empty();
        },
        std::chrono::seconds(5)));
    ASSERT_EQ(requests.size(), 1u);
    EXPECT_EQ(requests.front(), asked);
    std::size_t left = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator(folder.path())) {
        ++left;
    }
    EXPECT_EQ(left, 1u) << "only the lock stays";
}

TEST(SingleInstanceTest, LockIsFreeOnceTheHolderIsGone) {
    testing::TemporaryFolder folder;
    const auto lock = folder.path() / "tovrin.lock";
    {
        auto [claim, holder] = SingleInstance::claim(lock);
        ASSERT_EQ(claim, SingleInstance::Claim::first);
    }
    auto [again, holder] = SingleInstance::claim(lock);
    EXPECT_EQ(again, SingleInstance::Claim::first);
}

TEST(SingleInstanceTest, UnusableLockLetsTheProgramRun) {
    testing::TemporaryFolder folder;
    auto [claim, holder] = SingleInstance::claim(folder.path() / "no-such-folder" / "x.lock");
    EXPECT_EQ(claim, SingleInstance::Claim::first);
    EXPECT_EQ(holder, nullptr);
}

TEST(SingleInstanceTest, LockNamesTheUserAndTheDisplay) {
    const testing::FakeEnvironment environment{{"DISPLAY", ":3"}};
    const auto path =
        SingleInstance::lockPath("com.quenby.Tovrin", environment).filename().string();
    EXPECT_NE(path.find("com.quenby.Tovrin-" + std::to_string(::geteuid())), std::string::npos);
    EXPECT_EQ(path.find('/'), std::string::npos);
    EXPECT_EQ(path.find(':'), std::string::npos);
}

} // namespace
} // namespace ambrel
