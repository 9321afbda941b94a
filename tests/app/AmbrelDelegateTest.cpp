#include "app/AmbrelDelegate.h"

#include <QAction>
#include <QApplication>
#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusPendingCallWatcher>
#include <QDBusVirtualObject>
#include <QLabel>
#include <QMenu>
#include <QScreen>
#include <QSettings>

#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include <unistd.h>

#include "monitor/BarState.h"
#include "platform/linux/SpawnProcessLauncher.h"
#include "shell/DesktopPanel.h"
#include "shell/PanelPlacement.h"
#include "shell/SettingsFile.h"
#include "tests/app/FakeLoginItemService.h"
#include "tests/app/OffscreenApplication.h"
#include "tests/app/ProcessHarness.h"
#include "tests/fakes/ChildProcess.h"
#include "tests/fakes/FakeEnvironment.h"
#include "tests/fakes/FakeSystem.h"
#include "views/AmbrelView.h"

namespace ambrel {
namespace {

// The desktop's notification service on the test's session bus, in this process: keeps what
// it is asked to show.
class NotificationServer final : public QDBusVirtualObject {
public:
    struct Shown {
        QString summary;
        QString body;
        QString icon;
        QVariantMap hints;
    };

    NotificationServer()
        : m_connection(QDBusConnection::connectToBus(QDBusConnection::SessionBus,
                                                     QStringLiteral("notification-server"))) {
        m_ready = m_connection.registerVirtualObject(
                      QStringLiteral("/org/freedesktop/Notifications"), this) &&
                  m_connection.registerService(QStringLiteral("org.freedesktop.Notifications"));
    }
    ~NotificationServer() override {
        m_connection.unregisterService(QStringLiteral("org.freedesktop.Notifications"));
        m_connection.unregisterObject(QStringLiteral("/org/freedesktop/Notifications"));
        QDBusConnection::disconnectFromBus(QStringLiteral("notification-server"));
    }

    bool isReady() const { return m_ready; }

    QString introspect(const QString&) const override { return {}; }

    bool handleMessage(const QDBusMessage& message, const QDBusConnection& connection) override {
        if (message.member() == QStringLiteral("Notify")) {
            const auto arguments = message.arguments();
            shown.push_back({arguments.value(3).toString(), arguments.value(4).toString(),
                             arguments.value(2).toString(),
                             qdbus_cast<QVariantMap>(arguments.value(6))});
            connection.send(message.createReply(QVariant::fromValue(uint(shown.size()))));
            return true;
        }
        if (message.member() == QStringLiteral("CloseNotification")) {
            closed.push_back(message.arguments().value(0).toUInt());
            connection.send(message.createReply());
            return true;
        }
        if (message.member() == QStringLiteral("GetCapabilities")) {
            connection.send(message.createReply(QStringList{QStringLiteral("body")}));
            return true;
        }
        return false;
    }

    // Answers once every message the program sent before it has been handled here: one bus
    // connection delivers in order.
    bool caughtUp() {
        const auto call = QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.Notifications"),
            QStringLiteral("/org/freedesktop/Notifications"),
            QStringLiteral("org.freedesktop.Notifications"), QStringLiteral("GetCapabilities"));
        QDBusPendingCallWatcher watcher(QDBusConnection::sessionBus().asyncCall(call));
        return testing::eventually(
            [&watcher] {
                QApplication::processEvents();
                return watcher.isFinished();
            },
            testing::kPatience);
    }

    std::vector<Shown> shown;
    std::vector<uint> closed;

private:
    QDBusConnection m_connection;
    bool m_ready = false;
};

// A tray host on the test's session bus, for as long as it lives.
std::unique_ptr<testing::ChildProcess>
startTrayHost(const std::filesystem::path& folder, const testing::EnvironmentChanges& extra = {}) {
    return std::make_unique<testing::ChildProcess>(
        std::vector<std::string>{
            (std::filesystem::path(TOVRIN_BINARY_DIR) / "tests" / "tovrin_test_tray_watcher")
                .string(),
            (folder / "tray-items").string()},
        extra);
}

// The card's menu as it always is, and with the tray menu's settings when there is no tray.
const std::vector<std::string> kCardsEntries{"Refresh batteries",
                                             "iPhone setup && connection",
                                             "Battery History\u2026",
                                             "-",
                                             "By Quenby",
                                             "-",
                                             "Hide widget",
                                             "Quit Tovrin"};

std::vector<std::string> cardsEntriesWithSettings() {
    auto entries = kCardsEntries;
    for (const char* entry : {"-", "Start at Login", "Low Battery Alerts", "About Tovrin"}) {
        entries.emplace_back(entry);
    }
    return entries;
}

// A whole normal run in this process, offscreen, with every per-user folder in a temporary one
// and no bus to reach.
class AmbrelDelegateTest : public ::testing::Test {
protected:
    void SetUp() override {
        qputenv("XDG_CONFIG_HOME", QByteArray::fromStdString((folder.path() / "config").string()));
        qputenv("XDG_DATA_HOME", QByteArray::fromStdString((folder.path() / "data").string()));
        qputenv("XDG_RUNTIME_DIR", QByteArray::fromStdString((folder.path() / "run").string()));
        qputenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=/nonexistent/tovrin-test-bus");
        testing::ensureOffscreenApplication();
        QCoreApplication::setOrganizationName(QStringLiteral("QuenbyTest"));
        QCoreApplication::setApplicationName(QStringLiteral("TovrinDelegateTest"));
        bundle = std::make_shared<testing::FakeBundle>();
        bundle->resources = folder.path() / "share" / "tovrin";
    }

    std::unique_ptr<AmbrelDelegate> makeDelegate(std::vector<std::string> arguments = {}) {
        arguments.insert(arguments.begin(), "tovrin");
        auto environment = std::make_shared<testing::FakeEnvironment>();
        for (const char* name : {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "XDG_RUNTIME_DIR"}) {
            environment->set(name, qEnvironmentVariable(name).toStdString());
        }
        AmbrelDelegate::Setup setup;
        setup.loginItems = std::make_unique<testing::FakeLoginItemService>();
        setup.launcher = std::make_shared<SpawnProcessLauncher>();
        return std::make_unique<AmbrelDelegate>(arguments, bundle, std::move(environment),
                                                std::move(setup));
    }

    testing::TemporaryFolder folder;
    std::shared_ptr<testing::FakeBundle> bundle;
};

TEST_F(AmbrelDelegateTest, LaunchShowsTheCardTopRightAndRemembersIt) {
    auto delegate = makeDelegate();
    delegate->applicationDidFinishLaunching();
    QApplication::processEvents();
    DesktopPanel* panel = delegate->panel();
    ASSERT_NE(panel, nullptr);
    EXPECT_TRUE(panel->isVisible());
    EXPECT_EQ(panel->windowTitle(), QStringLiteral("Tovrin"));
    EXPECT_EQ(panel->size(), QSize(360, 170));
    EXPECT_NE(dynamic_cast<AmbrelView*>(panel->content()), nullptr);
    const QRect area = QGuiApplication::primaryScreen()->availableGeometry();
    EXPECT_EQ(panel->pos(), PanelPlacement::firstPlacementOrigin(area));

    delegate->applicationWillTerminate();
    const QSettings settings(QString::fromLatin1(SettingsFile::kOrganization),
                             QString::fromLatin1(SettingsFile::kApplication));
    EXPECT_EQ(settings.value(QStringLiteral("AmbrelPosition")).toRect(),
              QRect(PanelPlacement::firstPlacementOrigin(area), QSize(360, 170)));
    delegate.reset();
}

TEST_F(AmbrelDelegateTest, AMoveThatIsOverIsWrittenToDiskAtOnce) {
    auto delegate = makeDelegate();
    delegate->applicationDidFinishLaunching();
    QApplication::processEvents();
    DesktopPanel* panel = delegate->panel();
    ASSERT_NE(panel, nullptr);
    const auto file = folder.path() / "config" / SettingsFile::kOrganization /
                      (std::string(SettingsFile::kApplication) + ".conf");
    // The panel's placement at start was written; a move after the gap that follows is a new
    // one.
    std::this_thread::sleep_for(AmbrelDelegate::kSettledWriteGap);
    QApplication::processEvents();
    // Moved with no button held, as the window manager's last configure of a drag: on disk
    // when the move has been handled, before the one-second write of a drag's steps could come.
    panel->move(200, 300);
    QApplication::processEvents();
    EXPECT_NE(testing::readText(file).find("AmbrelPosition=@Rect(200 300 360 170)"),
              std::string::npos)
        << testing::readText(file);
    delegate.reset();
}

TEST_F(AmbrelDelegateTest, AWindowManagersMoveStepByStepIsNotWrittenAtEveryStep) {
    auto delegate = makeDelegate();
    delegate->applicationDidFinishLaunching();
    QApplication::processEvents();
    DesktopPanel* panel = delegate->panel();
    ASSERT_NE(panel, nullptr);
    const auto file = folder.path() / "config" / SettingsFile::kOrganization /
                      (std::string(SettingsFile::kApplication) + ".conf");
    const auto written = [&](const char* rect) {
        return testing::readText(file).find(std::string("AmbrelPosition=@Rect(") + rect) !=
               std::string::npos;
    };
    std::this_thread::sleep_for(AmbrelDelegate::kSettledWriteGap);
    QApplication::processEvents();
    // Moves with no button held, one after another, as a window manager moving the panel from
    // the keyboard makes them: each one ends a move.
    panel->move(200, 300);
    QApplication::processEvents();
    ASSERT_TRUE(written("200 300 360 170)")) << testing::readText(file);
    const auto first = std::chrono::steady_clock::now();
    panel->move(210, 310);
    panel->move(220, 320);
    QApplication::processEvents();
    // The last step is on disk once the gap after the first write is over, not before.
    ASSERT_TRUE(testing::eventually(
        [&] {
            QApplication::processEvents();
            return written("220 320 360 170)");
        },
        testing::kPatience))
        << testing::readText(file);
    EXPECT_GE(std::chrono::steady_clock::now() - first, AmbrelDelegate::kSettledWriteGap);
    delegate.reset();
}

TEST_F(AmbrelDelegateTest, SharesItsStateWithBarsWhileItRuns) {
    const auto stateFile = folder.path() / "run" / "tovrin" / "state.json";
    auto delegate = makeDelegate();
    delegate->applicationDidFinishLaunching();
    QApplication::processEvents();
    const auto state = BarStateFile::loadFromRunningWidget(stateFile);
    ASSERT_TRUE(state);
    EXPECT_EQ(state->writer, ::getpid());
    delegate.reset();
    EXPECT_FALSE(std::filesystem::exists(stateFile));
}

TEST_F(AmbrelDelegateTest, HiddenPanelComesBackWhereItWas) {
    auto delegate = makeDelegate();
    delegate->applicationDidFinishLaunching();
    DesktopPanel* panel = delegate->panel();
    panel->move(40, 50);
    panel->hide();
    QApplication::processEvents();
    delegate->showPanel();
    QApplication::processEvents();
    EXPECT_TRUE(panel->isVisible());
    EXPECT_EQ(panel->pos(), QPoint(40, 50));
}

TEST_F(AmbrelDelegateTest, TheCardsMenuOpensTheBatteryHistory) {
    auto delegate = makeDelegate();
    delegate->applicationDidFinishLaunching();
    QApplication::processEvents();
    auto* card = dynamic_cast<AmbrelView*>(delegate->panel()->content());
    ASSERT_NE(card, nullptr);
    auto* item = card->optionsMenu()->findChild<QAction*>(QStringLiteral("historyAction"));
    ASSERT_NE(item, nullptr);
    item->trigger();
    // The file is read off the main thread (at a low priority); the window shows when that is
    // done and its result has reached the main loop.
    QWidget* window = nullptr;
    testing::eventually(
        [&] {
            QApplication::processEvents();
            for (QWidget* top : QApplication::topLevelWidgets()) {
                if (top->objectName() == QStringLiteral("batteryHistoryWindow") &&
                    top->isVisible()) {
                    window = top;
                }
            }
            return window != nullptr;
        },
        testing::kPatience);
    ASSERT_NE(window, nullptr);
    EXPECT_EQ(window->windowTitle(), QStringLiteral("Battery History"));
    // Nothing recorded yet in this test's own data folder: the window says so.
    bool said = false;
    for (const auto* label : window->findChildren<QLabel*>()) {
        said = said || (label->isVisible() &&
                        label->text().startsWith(QStringLiteral("No battery history yet")));
    }
    EXPECT_TRUE(said);
    delegate.reset();
}

// The card's options menu, entry by entry: text, or "-" for a separator; hidden ones left out.
std::vector<std::string> shownEntries(QMenu& menu) {
    std::vector<std::string> entries;
    for (const QAction* action : menu.actions()) {
        if (action->isVisible()) {
            entries.push_back(action->isSeparator() ? "-" : action->text().toStdString());
        }
    }
    return entries;
}

TEST_F(AmbrelDelegateTest, WithoutATrayTheCardsMenuAlsoHoldsTheTrayMenusSettings) {
    testing::PrivateBus bus(folder.path() / "session-bus", "session");
    ASSERT_TRUE(bus.isReady());
    qputenv("DBUS_SESSION_BUS_ADDRESS", QByteArray::fromStdString(bus.address()));
    auto delegate = makeDelegate();
    delegate->applicationDidFinishLaunching();
    auto* card = dynamic_cast<AmbrelView*>(delegate->panel()->content());
    ASSERT_NE(card, nullptr);
    QMenu& menu = *card->optionsMenu();
    const auto& theCards = kCardsEntries;
    const auto withSettings = cardsEntriesWithSettings();
    EXPECT_EQ(shownEntries(menu), withSettings);

    // The entries work as the tray menu's: the alerts' mark goes both ways.
    auto* alerts = menu.findChild<QAction*>(QStringLiteral("lowBatteryAlertsAction"));
    ASSERT_NE(alerts, nullptr);
    EXPECT_TRUE(alerts->isChecked());
    alerts->trigger();
    EXPECT_FALSE(alerts->isChecked());
    const auto remembered = [](bool otherwise) {
        return QSettings(QString::fromLatin1(SettingsFile::kOrganization),
                         QString::fromLatin1(SettingsFile::kApplication))
            .value(QStringLiteral("LowBatteryAlerts"), otherwise)
            .toBool();
    };
    EXPECT_FALSE(remembered(true));
    alerts->trigger();
    EXPECT_TRUE(alerts->isChecked());
    EXPECT_TRUE(remembered(false));

    // A tray comes: the card's menu is its own again; the tray goes: the settings are back.
    auto host = startTrayHost(folder.path());
    ASSERT_TRUE(testing::eventually(
        [&] {
            QApplication::processEvents();
            return shownEntries(menu) == theCards;
        },
        testing::kPatience))
        << host->errorOutput();
    host->stop();
    ASSERT_TRUE(testing::eventually(
        [&] {
            QApplication::processEvents();
            return shownEntries(menu) == withSettings;
        },
        testing::kPatience));
    delegate.reset();
}

TEST_F(AmbrelDelegateTest, ATrayThatIsSlowToAnswerDoesNotHoldUpTheStart) {
    testing::PrivateBus bus(folder.path() / "session-bus", "session");
    ASSERT_TRUE(bus.isReady());
    qputenv("DBUS_SESSION_BUS_ADDRESS", QByteArray::fromStdString(bus.address()));
    const auto answer = folder.path() / "answer-now";
    auto host = startTrayHost(folder.path(), {{"TOVRIN_TEST_TRAY_HOLD", answer.string()}});
    ASSERT_TRUE(testing::eventually(
        [&] { return std::filesystem::exists(folder.path() / "tray-items.ready"); },
        testing::kPatience))
        << host->errorOutput();

    auto delegate = makeDelegate();
    delegate->applicationDidFinishLaunching();
    auto* card = dynamic_cast<AmbrelView*>(delegate->panel()->content());
    ASSERT_NE(card, nullptr);
    // The tray is asked and has not answered: the card is up and works as without a tray.
    EXPECT_TRUE(delegate->panel()->isVisible());
    EXPECT_EQ(shownEntries(*card->optionsMenu()), cardsEntriesWithSettings());

    // Its answer, whenever it comes, is taken: a program that had waited for it and given up
    // would keep the settings in the card's menu.
    testing::writeText(answer, "");
    EXPECT_TRUE(testing::eventually(
        [&] {
            QApplication::processEvents();
            return shownEntries(*card->optionsMenu()) == kCardsEntries;
        },
        testing::kPatience))
        << host->errorOutput();
    delegate.reset();
}

TEST_F(AmbrelDelegateTest, HidingWithoutATraySaysHowToShowTheCardAgain) {
    testing::PrivateBus bus(folder.path() / "session-bus", "session");
    ASSERT_TRUE(bus.isReady());
    qputenv("DBUS_SESSION_BUS_ADDRESS", QByteArray::fromStdString(bus.address()));
    bundle->info["CFBundleIdentifier"] = "com.quenby.Tovrin";
    NotificationServer server;
    ASSERT_TRUE(server.isReady());
    auto delegate = makeDelegate();
    delegate->applicationDidFinishLaunching();
    auto* card = dynamic_cast<AmbrelView*>(delegate->panel()->content());
    ASSERT_NE(card, nullptr);
    auto* hide = card->optionsMenu()->findChild<QAction*>(QStringLiteral("hideAction"));
    ASSERT_NE(hide, nullptr);

    hide->trigger();
    EXPECT_FALSE(delegate->panel()->isVisible());
    ASSERT_TRUE(server.caughtUp());
    ASSERT_EQ(server.shown.size(), 1u);
    EXPECT_EQ(server.shown[0].summary, QStringLiteral("Tovrin is hidden"));
    EXPECT_EQ(server.shown[0].body,
              QStringLiteral("To bring the card back, open Tovrin once more (or run tovrin)."));
    EXPECT_EQ(server.shown[0].icon, QStringLiteral("com.quenby.Tovrin"));
    EXPECT_EQ(server.shown[0].hints.value(QStringLiteral("desktop-entry")).toString(),
              QStringLiteral("com.quenby.Tovrin"));

    // Shown again, the card takes its note away.
    EXPECT_TRUE(server.closed.empty());
    delegate->showPanel();
    // The note's number may still be on its way back when the card shows; it is closed once
    // it came.
    EXPECT_TRUE(testing::eventually(
        [&] {
            QApplication::processEvents();
            return !server.closed.empty();
        },
        testing::kPatience));
    ASSERT_TRUE(server.caughtUp());
    EXPECT_EQ(server.closed, std::vector<uint>{1u});

    // With a tray, its menu shows the card again, and hiding says nothing.
    auto host = startTrayHost(folder.path());
    auto* login = card->optionsMenu()->findChild<QAction*>(QStringLiteral("startAtLoginAction"));
    ASSERT_NE(login, nullptr);
    ASSERT_TRUE(testing::eventually(
        [&] {
            QApplication::processEvents();
            return !login->isVisible();
        },
        testing::kPatience));
    hide->trigger();
    EXPECT_FALSE(delegate->panel()->isVisible());
    ASSERT_TRUE(server.caughtUp());
    EXPECT_EQ(server.shown.size(), 1u);
    delegate.reset();
}

TEST_F(AmbrelDelegateTest, DisplayNameComesFromTheBundle) {
    bundle->info["CFBundleDisplayName"] = "Ambrel Beta";
    auto delegate = makeDelegate();
    delegate->applicationDidFinishLaunching();
    EXPECT_EQ(delegate->panel()->windowTitle(), QStringLiteral("Ambrel Beta"));
    // Tray hosts take the item's title from the application name.
    EXPECT_EQ(QCoreApplication::applicationName(), QStringLiteral("Ambrel Beta"));
    // The settings still go to the program's one file, whatever the display name.
    delegate->panel()->move(40, 50);
    delegate->applicationWillTerminate();
    EXPECT_TRUE(std::filesystem::exists(folder.path() / "config" / "Quenby" / "Tovrin.conf"));
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "config" / "Quenby" / "Ambrel Beta.conf"));
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "config" / "QuenbyTest"));
}

} // namespace
} // namespace ambrel
