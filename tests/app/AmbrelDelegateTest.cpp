#include "app/AmbrelDelegate.h"

#include <QAction>
#include <QApplication>
#include <QLabel>
#include <QMenu>
#include <QScreen>
#include <QSettings>

#include <gtest/gtest.h>

#include <unistd.h>

#include "monitor/BarState.h"
#include "platform/linux/SpawnProcessLauncher.h"
#include "shell/DesktopPanel.h"
#include "shell/PanelPlacement.h"
#include "shell/SettingsFile.h"
#include "tests/app/FakeLoginItemService.h"
#include "tests/app/OffscreenApplication.h"
#include "tests/app/ProcessHarness.h"
#include "tests/fakes/FakeEnvironment.h"
#include "tests/fakes/FakeSystem.h"
#include "views/AmbrelView.h"

namespace ambrel {
namespace {

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
