// The connection window against the simulated iPhone, with the real helper and idevicepair:
// what it shows is read back from its widget tree.
#include "views/ConnectionWindow.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include <QApplication>
#include <QClipboard>
#include <QFontInfo>
#include <QFontMetricsF>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "platform/linux/SpawnProcessLauncher.h"
#include "platform/linux/ThreadWorker.h"
#include "platform/qt/QtMainScheduler.h"
#include "tests/diagnosis/FakeConnectionProbe.h"
#include "tests/fakes/TemporaryFolder.h"
#include "tests/simphone/SimulatedIphone.h"
#include "views/ActivitySpinner.h"
#include "views/Appearance.h"
#include "views/IPhoneSetupView.h"
#include "views/RoundedBox.h"
#include "views/SymbolMark.h"
#include "views/ToggleSwitch.h"
#include "views/ViewStyle.h"

namespace ambrel::testing {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

const std::string kSerial = "00008110001A2B3C4D5E6F70";
const std::string kUdid = "00008110-001A2B3C4D5E6F70";
// A phone exchange takes well under a second here; the limit only keeps a broken run short.
constexpr int kWaitMs = 30000;
// The simulated phone's line under its name.
constexpr const char* kDetailOnUsb = "iPhone 13 Pro \u00b7 iOS 17.5.1 \u00b7 on USB";
constexpr const char* kDetailOnWifi = "iPhone 13 Pro \u00b7 iOS 17.5.1 \u00b7 on Wi-Fi";

json usbPhone(const json& extra = json::object()) {
    json device = {{"udid", kSerial}, {"connection", "usb"}, {"DeviceName", "Ada’s iPhone"}};
    device.update(extra);
    return device;
}

class ConnectionWindowTest : public ::testing::Test {
protected:
    void TearDown() override {
        m_window.reset();
        m_phone.reset();
        ::unsetenv("USBMUXD_SOCKET_ADDRESS");
        ::unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    }

    void startPhone(const json& devices) {
        ASSERT_FALSE(m_folder.path().empty());
        m_phone = std::make_unique<SimulatedIphone>(m_folder.path(), json{{"devices", devices}});
        ASSERT_TRUE(m_phone->isReady()) << m_phone->failure();
    }

    void openWindow() {
        // The tools the window runs inherit this process's environment.
        const std::string socket =
            m_phone ? m_phone->socketAddress() : "UNIX:" + (m_folder.path() / "none.sock").string();
        ::setenv("USBMUXD_SOCKET_ADDRESS", socket.c_str(), 1);
        SystemConnectionProbe::Setup setup;
        setup.toolDirectory = fs::path(TOVRIN_BINARY_DIR) / "share/tovrin/Runtime/bin";
        setup.systemMuxerSocket = socket.substr(5);
        setup.launcher = m_launcher;
        m_window = std::make_unique<ConnectionWindow>(m_style, setup, m_background);
        m_window->show();
    }

    // Runs `action` and waits for the phone list to be shown again.
    void andWaitForPhones(const std::function<void()>& action) {
        QSignalSpy shown(m_window.get(), &ConnectionWindow::phonesShown);
        action();
        ASSERT_TRUE(shown.wait(kWaitMs));
        // A change is checked again once the phones are listed; that too ends.
        EXPECT_TRUE(QTest::qWaitFor([this] { return m_window->pendingWork() == 0; }, kWaitMs));
    }

    // Runs `action` and waits for the check's path to be shown.
    void andWaitForCheck(const std::function<void()>& action) {
        QSignalSpy shown(m_window.get(), &ConnectionWindow::checkShown);
        action();
        ASSERT_TRUE(shown.wait(kWaitMs));
    }

    // No system bus: avahi-daemon does not answer.
    void noSystemBus() {
        ::setenv("DBUS_SYSTEM_BUS_ADDRESS",
                 ("unix:path=" + (m_folder.path() / "no-bus").string()).c_str(), 1);
    }

    const ConnectionWindow::PhoneRow& onlyRow() const {
        EXPECT_EQ(m_window->phoneRows().size(), 1u);
        return m_window->phoneRows().front();
    }

    bool phoneWifiOn() const {
        return m_phone->stats()["devices"][kSerial]["setValue"].value(
                   "com.apple.mobile.wireless_lockdown/EnableWifiConnections", 0) > 0;
    }

    TemporaryFolder m_folder;
    std::unique_ptr<SimulatedIphone> m_phone;
    std::shared_ptr<SpawnProcessLauncher> m_launcher = std::make_shared<SpawnProcessLauncher>();
    Appearance m_appearance{*QCoreApplication::instance()};
    const ViewStyle m_style{m_appearance, ViewFonts(), "Tovrin"};
    const ConnectionWindow::Background m_background{std::make_shared<ThreadWorker>(),
                                                    std::make_shared<QtMainScheduler>()};
    std::unique_ptr<ConnectionWindow> m_window;
};

std::vector<std::string> stepTitles(const ConnectionWindow& window) {
    std::vector<std::string> titles;
    for (const auto& step : window.stepLines()) {
        titles.push_back(step.title->text().toStdString());
    }
    return titles;
}

TEST_F(ConnectionWindowTest, ShowsATrustedPhoneOnUsbWithItsWifiSetting) {
    startPhone(json::array({usbPhone({{"wifiConnections", true}})}));
    openWindow();
    andWaitForPhones([this] { m_window->refresh(); });
    const auto& row = onlyRow();
    EXPECT_EQ(row.udid, kUdid);
    EXPECT_EQ(row.name->text(), QString::fromUtf8("Ada’s iPhone"));
    EXPECT_EQ(row.detail->text(), QString::fromUtf8(kDetailOnUsb));
    EXPECT_EQ(row.trust->text(), QStringLiteral("Trusts this computer"));
    EXPECT_EQ(row.trustMark->symbol(), QStringLiteral("check-circle-fill"));
    EXPECT_EQ(row.trustMark->role(), ColorRole::green);
    EXPECT_EQ(row.pairButton, nullptr);
    EXPECT_EQ(row.showOnWifi->accessibleName(), QStringLiteral("Show this iPhone when on Wi-Fi"));
    EXPECT_TRUE(row.showOnWifi->isChecked());
    EXPECT_TRUE(row.showOnWifi->isEnabled());
    EXPECT_FALSE(row.wifiNote->isVisible());
    EXPECT_FALSE(m_window->statusLabel()->isVisible());
}

TEST_F(ConnectionWindowTest, PairThenTheSwitchTurnsWifiConnectionsOnAtOnce) {
    startPhone(json::array({usbPhone({{"fault", "missing_pair_record"}})}));
    openWindow();
    andWaitForPhones([this] { m_window->refresh(); });
    {
        const auto& row = onlyRow();
        EXPECT_EQ(row.trust->text(), QString::fromUtf8("Doesn\u2019t trust this computer yet"));
        EXPECT_EQ(row.trustMark->role(), ColorRole::orange);
        ASSERT_NE(row.pairButton, nullptr);
        EXPECT_EQ(row.pairButton->text(), QStringLiteral("Pair"));
        EXPECT_FALSE(row.showOnWifi->isEnabled());
        QPushButton* pair = row.pairButton;
        andWaitForPhones([pair] { QTest::mouseClick(pair, Qt::LeftButton); });
    }
    EXPECT_EQ(m_window->statusLabel()->text(), QStringLiteral("This computer is now trusted."));
    EXPECT_EQ(m_phone->stats()["devices"][kSerial]["requests"].value("Pair", 0), 1);
    {
        const auto& row = onlyRow();
        EXPECT_EQ(row.trust->text(), QStringLiteral("Trusts this computer"));
        EXPECT_EQ(row.pairButton, nullptr);
        ASSERT_TRUE(row.showOnWifi->isEnabled());
        EXPECT_FALSE(row.showOnWifi->isChecked());
        // One click, no Apply: the switch waits for the phone with a spinner.
        ToggleSwitch* toggle = row.showOnWifi;
        ActivitySpinner* spinner = row.wifiSpinner;
        andWaitForPhones([toggle, spinner] {
            QTest::mouseClick(toggle, Qt::LeftButton);
            EXPECT_TRUE(spinner->isVisible());
            EXPECT_TRUE(spinner->isAnimating());
            EXPECT_FALSE(toggle->isEnabled());
        });
    }
    EXPECT_EQ(onlyRow().wifiNote->text(), QStringLiteral("Wi-Fi connections are now on."));
    EXPECT_TRUE(onlyRow().wifiNote->isVisible());
    EXPECT_TRUE(onlyRow().showOnWifi->isChecked());
    EXPECT_TRUE(onlyRow().showOnWifi->isEnabled());
    EXPECT_FALSE(onlyRow().wifiSpinner->isVisible());
    EXPECT_TRUE(phoneWifiOn());
}

TEST_F(ConnectionWindowTest, ARefusedChangeSaysWhatToDo) {
    startPhone(json::array({usbPhone({{"wifiSetReply", "MCProtected"}})}));
    openWindow();
    andWaitForPhones([this] { m_window->refresh(); });
    ToggleSwitch* toggle = onlyRow().showOnWifi;
    andWaitForPhones([toggle] { QTest::mouseClick(toggle, Qt::LeftButton); });
    EXPECT_EQ(onlyRow().wifiNote->text(),
              QStringLiteral("Unlock your iPhone and check again (it answered MCProtected)."));
    EXPECT_FALSE(onlyRow().showOnWifi->isChecked());
}

TEST_F(ConnectionWindowTest, ALockedPhoneIsToBeUnlockedNotPaired) {
    startPhone(json::array({usbPhone({{"fault", "locked"}})}));
    openWindow();
    andWaitForPhones([this] { m_window->refresh(); });
    EXPECT_EQ(onlyRow().trust->text(), QStringLiteral("Locked: unlock it, then check again"));
    EXPECT_EQ(onlyRow().trustMark->role(), ColorRole::orange);
    EXPECT_EQ(onlyRow().pairButton, nullptr);
    EXPECT_FALSE(onlyRow().showOnWifi->isEnabled());
}

TEST_F(ConnectionWindowTest, APhoneOnlyOnWifiIsShownButNotChangeable) {
    // Found on the network, so its Wi-Fi connections are on: it answers there.
    startPhone(json::array({usbPhone({{"connection", "network"}, {"wifiConnections", true}})}));
    openWindow();
    andWaitForPhones([this] { m_window->refresh(); });
    EXPECT_EQ(onlyRow().detail->text(), QString::fromUtf8(kDetailOnWifi));
    EXPECT_FALSE(onlyRow().showOnWifi->isEnabled());
    EXPECT_FALSE(onlyRow().showOnWifi->toolTip().isEmpty());
}

TEST_F(ConnectionWindowTest, TwoPhonesHaveARowEachTheCardsFirst) {
    const std::string other = "00008110000A0B0C0D0E0F11";
    startPhone(
        json::array({usbPhone(), usbPhone({{"udid", other}, {"DeviceName", "Bo’s iPhone"}})}));
    openWindow();
    m_window->setCardPhone("00008110-000A0B0C0D0E0F11");
    andWaitForPhones([this] { m_window->refresh(); });
    ASSERT_EQ(m_window->phoneRows().size(), 2u);
    EXPECT_EQ(m_window->phoneRows()[0].name->text(), QString::fromUtf8("Bo’s iPhone"));
    EXPECT_EQ(m_window->phoneRows()[1].name->text(), QString::fromUtf8("Ada’s iPhone"));
}

TEST_F(ConnectionWindowTest, NoPhoneSaysToConnectOne) {
    startPhone(json::array());
    openWindow();
    andWaitForPhones([this] { m_window->refresh(); });
    EXPECT_TRUE(m_window->phoneRows().empty());
    EXPECT_EQ(m_window->statusLabel()->text(),
              QStringLiteral("No iPhone found. Connect yours with a USB cable and unlock it."));
}

TEST_F(ConnectionWindowTest, NoMuxerSaysHowToStartIt) {
    openWindow();
    andWaitForPhones([this] { m_window->refresh(); });
    EXPECT_TRUE(m_window->phoneRows().empty());
    EXPECT_EQ(m_window->statusLabel()->text(),
              QStringLiteral("Start usbmuxd by plugging your iPhone in, then check again."));
}

TEST_F(ConnectionWindowTest, TheCheckIsAShortPathToTheFirstThingToDo) {
    startPhone(json::array({usbPhone()}));
    noSystemBus();
    openWindow();
    andWaitForPhones([this] { m_window->refresh(); });
    andWaitForCheck([this] { QTest::mouseClick(m_window->checkButton(), Qt::LeftButton); });
    EXPECT_EQ(stepTitles(*m_window),
              (std::vector<std::string>{"Phone tools installed", "USB service running",
                                        "iPhone connected by cable", "iPhone trusts this computer",
                                        "Wi-Fi connections on"}));
    const auto& steps = m_window->stepLines();
    EXPECT_EQ(steps[0].mark->symbol(), QStringLiteral("check-circle-fill"));
    EXPECT_EQ(steps[0].mark->role(), ColorRole::green);
    // Read over the cable all the same: a problem to fix, not a dead end.
    EXPECT_EQ(steps[4].mark->symbol(), QStringLiteral("exclamation-circle-fill"));
    EXPECT_EQ(steps[4].mark->role(), ColorRole::orange);
    EXPECT_EQ(steps[0].title->parentWidget()->accessibleName(),
              QStringLiteral("Done: Phone tools installed"));
    EXPECT_EQ(steps[4].title->parentWidget()->accessibleName(),
              QStringLiteral("Needs you: Wi-Fi connections on"));
    EXPECT_EQ(m_window->summaryLabel()->text(),
              QStringLiteral("Your iPhone can be read over USB. To read it over Wi-Fi too, fix the "
                             "step below."));
    ASSERT_NE(m_window->problemBox(), nullptr);
    EXPECT_EQ(m_window->problemText()->text(),
              QStringLiteral("Wi-Fi connections are off for this iPhone."));
    EXPECT_EQ(m_window->adviceText()->text(),
              QStringLiteral("Turn them on while the iPhone is on the cable."));
    EXPECT_EQ(m_window->commandField(), nullptr);
    ASSERT_NE(m_window->foldedLabel(), nullptr);
    EXPECT_EQ(m_window->foldedLabel()->text(), QStringLiteral("5 more checks wait for this one"));

    // What the window can do itself is its primary action: Enter does it.
    QPushButton* turnOn = m_window->actionButton();
    ASSERT_NE(turnOn, nullptr);
    EXPECT_EQ(turnOn->text(), QStringLiteral("Turn On"));
    EXPECT_TRUE(turnOn->isDefault());
    EXPECT_FALSE(m_window->checkButton()->isDefault());
    andWaitForCheck([this] { QTest::keyClick(m_window.get(), Qt::Key_Return); });
    EXPECT_TRUE(phoneWifiOn());
    EXPECT_TRUE(onlyRow().showOnWifi->isChecked());
    // Checked again by itself: the Wi-Fi step is done and the next one is the problem.
    EXPECT_EQ(m_window->stepLines()[4].mark->symbol(), QStringLiteral("check-circle-fill"));
    EXPECT_EQ(stepTitles(*m_window).back(), "Network discovery on");
}

// Whether most of the strongly coloured pixels `widget` draws are close to `colour`.
bool drawnIn(QWidget* widget, const QColor& colour) {
    const QImage image = widget->grab().toImage();
    int coloured = 0;
    int matching = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QColor pixel = image.pixelColor(x, y);
            if (pixel.saturation() < 80 || pixel.alpha() < 200) {
                continue;
            }
            ++coloured;
            matching += std::abs(pixel.hue() - colour.hue()) <= 12 ? 1 : 0;
        }
    }
    return coloured > 10 && matching * 10 >= coloured * 8;
}

TEST_F(ConnectionWindowTest, StepSymbolsAreDrawnInTheGaugesColoursInBothLooks) {
    startPhone(json::array({usbPhone()}));
    noSystemBus();
    openWindow();
    andWaitForCheck([this] { m_window->runCheck(); });
    ASSERT_EQ(m_window->stepLines().size(), 5u);
    for (const auto look : {Look::light, Look::dark}) {
        m_appearance.setForcedLook(look);
        EXPECT_TRUE(
            drawnIn(m_window->stepLines().front().mark, Appearance::color(ColorRole::green, look)));
        EXPECT_TRUE(
            drawnIn(m_window->stepLines().back().mark, Appearance::color(ColorRole::orange, look)));
    }
    m_appearance.setForcedLook(std::nullopt);
}

TEST_F(ConnectionWindowTest, TheKeyboardGoesThroughTheSwitchAndTheButtons) {
    startPhone(json::array({usbPhone()}));
    noSystemBus();
    openWindow();
    andWaitForPhones([this] { m_window->refresh(); });
    andWaitForCheck([this] { m_window->runCheck(); });
    m_window->activateWindow();
    ASSERT_TRUE(QTest::qWaitForWindowActive(m_window.get()));
    std::vector<QWidget*> reached;
    for (int press = 0; press < 8; ++press) {
        QWidget* focused = QApplication::focusWidget();
        if (focused != nullptr &&
            std::find(reached.begin(), reached.end(), focused) == reached.end()) {
            reached.push_back(focused);
        }
        QTest::keyClick(QApplication::focusWidget() ? QApplication::focusWidget()
                                                    : static_cast<QWidget*>(m_window.get()),
                        Qt::Key_Tab);
    }
    for (QWidget* widget :
         std::initializer_list<QWidget*>{onlyRow().showOnWifi, m_window->actionButton(),
                                         m_window->refreshButton(), m_window->checkButton()}) {
        EXPECT_NE(std::find(reached.begin(), reached.end(), widget), reached.end())
            << widget->metaObject()->className();
    }
    // Space on the switch flips it, as a click does.
    onlyRow().showOnWifi->setFocus();
    ToggleSwitch* toggle = onlyRow().showOnWifi;
    andWaitForPhones([toggle] { QTest::keyClick(toggle, Qt::Key_Space); });
    EXPECT_TRUE(onlyRow().showOnWifi->isChecked());
    EXPECT_TRUE(phoneWifiOn());
}

TEST_F(ConnectionWindowTest, ACommandToTypeCanBeCopied) {
    startPhone(json::array({usbPhone({{"wifiConnections", true}})}));
    noSystemBus();
    openWindow();
    andWaitForCheck([this] { m_window->runCheck(); });
    EXPECT_EQ(stepTitles(*m_window).back(), "Network discovery on");
    ASSERT_NE(m_window->commandField(), nullptr);
    EXPECT_TRUE(m_window->commandField()->isReadOnly());
    EXPECT_TRUE(m_window->problemText()->text().startsWith(QStringLiteral("Network discovery")));
    const QString command = m_window->commandField()->text();
    EXPECT_TRUE(command == QStringLiteral("sudo systemctl enable --now avahi-daemon") ||
                command == QStringLiteral("sudo apt-get install avahi-daemon"))
        << command.toStdString();
    // Fixed width: a narrow letter takes the room of a wide one.
    const QFontMetricsF metrics(m_window->commandField()->font());
    EXPECT_EQ(metrics.horizontalAdvance(QLatin1Char('i')),
              metrics.horizontalAdvance(QLatin1Char('M')))
        << QFontInfo(m_window->commandField()->font()).family().toStdString();
    // Nothing the window can do itself: Check Again stays the primary action.
    EXPECT_EQ(m_window->actionButton(), nullptr);
    EXPECT_TRUE(m_window->checkButton()->isDefault());
    QTest::mouseClick(m_window->copyButton(), Qt::LeftButton);
    EXPECT_EQ(QGuiApplication::clipboard()->text(), command);
    EXPECT_EQ(m_window->copyButton()->text(), QStringLiteral("Copied"));
}

TEST_F(ConnectionWindowTest, EscapeClosesTheWindow) {
    startPhone(json::array({usbPhone()}));
    openWindow();
    ASSERT_TRUE(m_window->isVisible());
    QTest::keyClick(m_window.get(), Qt::Key_Escape);
    EXPECT_FALSE(m_window->isVisible());
}

TEST_F(ConnectionWindowTest, AnAnswerForAClosedWindowIsDropped) {
    startPhone(json::array({usbPhone()}));
    openWindow();
    m_window->refresh();
    m_window.reset();
    // The helper's answers arrive on the event loop after the window went; nothing may touch
    // it. The phone was asked, so there was an answer to drop.
    EXPECT_TRUE(QTest::qWaitFor(
        [this] { return m_phone->stats()["devices"][kSerial].value("connections", 0) > 0; },
        kWaitMs));
    // Time for the answers to come back and be dropped (a touch of the gone window would
    // crash the test under the sanitizers).
    QTest::qWait(500);
}

TEST_F(ConnectionWindowTest, OpenFinderOnTheSetupSheetOpensTheWindowWithThePhone) {
    startPhone(json::array({usbPhone()}));
    ::setenv("USBMUXD_SOCKET_ADDRESS", m_phone->socketAddress().c_str(), 1);
    SystemConnectionProbe::Setup setup;
    setup.toolDirectory = fs::path(TOVRIN_BINARY_DIR) / "share/tovrin/Runtime/bin";
    setup.launcher = m_launcher;
    IPhoneSetupView sheet(
        m_style, [] {}, connectionWindowOpener(m_style, setup, m_background));
    sheet.show();
    QTest::mouseClick(sheet.openFinderButton(), Qt::LeftButton);
    const auto windows = sheet.findChildren<ConnectionWindow*>();
    ASSERT_EQ(windows.size(), 1);
    ConnectionWindow* window = windows.front();
    EXPECT_TRUE(window->isVisible());
    EXPECT_TRUE(sheet.isVisible());
    QSignalSpy shown(window, &ConnectionWindow::phonesShown);
    ASSERT_TRUE(shown.wait(kWaitMs));
    ASSERT_EQ(window->phoneRows().size(), 1u);
    EXPECT_EQ(window->phoneRows().front().name->text(), QString::fromUtf8("Ada’s iPhone"));
    // A second click brings the same window forward.
    QTest::mouseClick(sheet.openFinderButton(), Qt::LeftButton);
    EXPECT_EQ(sheet.findChildren<ConnectionWindow*>().size(), 1);
    ASSERT_TRUE(shown.wait(kWaitMs));
    window->close();
    sheet.reject();
}

TEST_F(ConnectionWindowTest, TheOpenerListsThePhoneTheCardShowsFirstAndChecksAtOnce) {
    const std::string other = "00008110000A0B0C0D0E0F11";
    startPhone(
        json::array({usbPhone(), usbPhone({{"udid", other}, {"DeviceName", "Bo’s iPhone"}})}));
    ::setenv("USBMUXD_SOCKET_ADDRESS", m_phone->socketAddress().c_str(), 1);
    noSystemBus();
    SystemConnectionProbe::Setup setup;
    setup.toolDirectory = fs::path(TOVRIN_BINARY_DIR) / "share/tovrin/Runtime/bin";
    setup.systemMuxerSocket = m_phone->socketAddress().substr(5);
    setup.launcher = m_launcher;
    QWidget parent;
    const auto open = connectionWindowOpener(
        m_style, setup, m_background, [] { return std::string("00008110-000A0B0C0D0E0F11"); });
    open(&parent);
    const auto windows = parent.findChildren<ConnectionWindow*>();
    ASSERT_EQ(windows.size(), 1);
    ConnectionWindow* window = windows.front();
    QSignalSpy phones(window, &ConnectionWindow::phonesShown);
    QSignalSpy checked(window, &ConnectionWindow::checkShown);
    ASSERT_TRUE(phones.wait(kWaitMs));
    ASSERT_EQ(window->phoneRows().size(), 2u);
    EXPECT_EQ(window->phoneRows()[0].name->text(), QString::fromUtf8("Bo’s iPhone"));
    // The check runs as the window opens, without a click.
    ASSERT_TRUE(checked.count() > 0 || checked.wait(kWaitMs));
    EXPECT_FALSE(window->stepLines().empty());
    window->close();
}

// Not a check: writes the window in four states and both looks when TOVRIN_CAPTURE_DIR names
// a folder. The check's reports come from the real check against a probe set for each state (the
// network's steps need an avahi-daemon this test does not run).
TEST_F(ConnectionWindowTest, CaptureFourStatesLightAndDark) {
    const char* folder = std::getenv("TOVRIN_CAPTURE_DIR");
    if (folder == nullptr) {
        GTEST_SKIP() << "TOVRIN_CAPTURE_DIR is not set";
    }
    struct State {
        const char* name;
        json phone;
        std::function<void(FakeConnectionProbe&)> spoil;
    };
    const std::vector<State> states{
        {"well", usbPhone({{"wifiConnections", true}}), [](FakeConnectionProbe&) {}},
        {"locked", usbPhone({{"wifiConnections", true}, {"fault", "locked"}}),
         [](FakeConnectionProbe& probe) {
             probe.usbError = LockdownError{LockdownFailure::lockdownError, "PasswordProtected"};
         }},
        {"wifi-off", usbPhone(),
         [](FakeConnectionProbe& probe) {
             probe.phone.wifiConnections = false;
             probe.adverts.clear();
         }},
        {"avahi-stopped", usbPhone({{"wifiConnections", true}}),
         [](FakeConnectionProbe& probe) { probe.avahi = false; }},
    };
    for (const auto& state : states) {
        m_window.reset();
        m_phone.reset();
        startPhone(json::array({state.phone}));
        openWindow();
        andWaitForPhones([this] { m_window->refresh(); });
        FakeConnectionProbe probe;
        probe.phone.name = "Ada’s iPhone";
        state.spoil(probe);
        m_window->showReport(ConnectionCheck::run(probe, CheckPlace::connectionWindow));
        for (const auto look : {Look::light, Look::dark}) {
            m_appearance.setForcedLook(look);
            QTest::qWait(100);
            const auto path =
                fs::path(folder) / (std::string("connection-") + state.name +
                                    (look == Look::light ? "-light.png" : "-dark.png"));
            EXPECT_TRUE(m_window->grab().save(QString::fromStdString(path.string())));
        }
        m_appearance.setForcedLook(std::nullopt);
    }
}

} // namespace
} // namespace ambrel::testing
