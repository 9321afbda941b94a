// The connection window against the simulated iPhone, with the real helper and idevicepair:
// what it shows is read back from its widget tree.
#include "views/ConnectionWindow.h"

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include <QCheckBox>
#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "platform/linux/SpawnProcessLauncher.h"
#include "platform/linux/ThreadWorker.h"
#include "platform/qt/QtMainScheduler.h"
#include "tests/fakes/TemporaryFolder.h"
#include "tests/simphone/SimulatedIphone.h"
#include "views/Appearance.h"
#include "views/IPhoneSetupView.h"
#include "views/ViewStyle.h"

namespace ambrel::testing {
namespace {

namespace fs = std::filesystem;
using nlohmann::json;

const std::string kSerial = "00008110001A2B3C4D5E6F70";
const std::string kUdid = "00008110-001A2B3C4D5E6F70";
// A phone exchange takes well under a second here; the limit only keeps a broken run short.
constexpr int kWaitMs = 30000;

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
        EXPECT_EQ(m_window->pendingWork(), 0);
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

TEST_F(ConnectionWindowTest, ShowsATrustedPhoneOnUsbWithItsWifiSetting) {
    startPhone(json::array({usbPhone({{"wifiConnections", true}})}));
    openWindow();
    andWaitForPhones([this] { m_window->refresh(); });
    const auto& row = onlyRow();
    EXPECT_EQ(row.udid, kUdid);
    EXPECT_EQ(row.name->text(), QString::fromUtf8("Ada’s iPhone"));
    EXPECT_EQ(row.detail->text(), QString::fromUtf8("iPhone14,2 \u00b7 USB"));
    EXPECT_EQ(row.trust->text(), QStringLiteral("This computer is trusted."));
    EXPECT_EQ(row.trustButton, nullptr);
    EXPECT_EQ(row.showOnWifi->text(), QStringLiteral("Show this iPhone when on Wi-Fi"));
    EXPECT_TRUE(row.showOnWifi->isChecked());
    EXPECT_TRUE(row.showOnWifi->isEnabled());
    EXPECT_FALSE(row.apply->isEnabled());
    EXPECT_FALSE(m_window->statusLabel()->isVisible());
}

TEST_F(ConnectionWindowTest, TrustThenApplyTurnsWifiConnectionsOn) {
    startPhone(json::array({usbPhone({{"fault", "missing_pair_record"}})}));
    openWindow();
    andWaitForPhones([this] { m_window->refresh(); });
    {
        const auto& row = onlyRow();
        EXPECT_EQ(row.trust->text(), QStringLiteral("This computer is not trusted."));
        ASSERT_NE(row.trustButton, nullptr);
        EXPECT_EQ(row.trustButton->text(), QStringLiteral("Trust"));
        EXPECT_FALSE(row.showOnWifi->isEnabled());
        QPushButton* trust = row.trustButton;
        andWaitForPhones([trust] { QTest::mouseClick(trust, Qt::LeftButton); });
    }
    EXPECT_EQ(m_window->statusLabel()->text(), QStringLiteral("This computer is now trusted."));
    EXPECT_EQ(m_phone->stats()["devices"][kSerial]["requests"].value("Pair", 0), 1);
    {
        const auto& row = onlyRow();
        EXPECT_EQ(row.trust->text(), QStringLiteral("This computer is trusted."));
        EXPECT_EQ(row.trustButton, nullptr);
        ASSERT_TRUE(row.showOnWifi->isEnabled());
        EXPECT_FALSE(row.showOnWifi->isChecked());
        row.showOnWifi->setChecked(true);
        ASSERT_TRUE(row.apply->isEnabled());
        QPushButton* apply = row.apply;
        andWaitForPhones([apply] { QTest::mouseClick(apply, Qt::LeftButton); });
    }
    EXPECT_EQ(m_window->statusLabel()->text(), QStringLiteral("Wi-Fi connections are now on."));
    EXPECT_TRUE(onlyRow().showOnWifi->isChecked());
    EXPECT_FALSE(onlyRow().apply->isEnabled());
    EXPECT_TRUE(phoneWifiOn());
}

TEST_F(ConnectionWindowTest, ARefusedApplySaysWhatToDo) {
    startPhone(json::array({usbPhone({{"wifiSetReply", "MCProtected"}})}));
    openWindow();
    andWaitForPhones([this] { m_window->refresh(); });
    onlyRow().showOnWifi->setChecked(true);
    QPushButton* apply = onlyRow().apply;
    andWaitForPhones([apply] { QTest::mouseClick(apply, Qt::LeftButton); });
    EXPECT_EQ(m_window->statusLabel()->text(),
              QStringLiteral("Unlock your iPhone and check again (it answered MCProtected)."));
    EXPECT_FALSE(onlyRow().showOnWifi->isChecked());
}

TEST_F(ConnectionWindowTest, APhoneOnlyOnWifiIsShownButNotChangeable) {
    // Found on the network, so its Wi-Fi connections are on: it answers there.
    startPhone(json::array({usbPhone({{"connection", "network"}, {"wifiConnections", true}})}));
    openWindow();
    andWaitForPhones([this] { m_window->refresh(); });
    EXPECT_EQ(onlyRow().detail->text(), QString::fromUtf8("iPhone14,2 \u00b7 Wi-Fi"));
    EXPECT_FALSE(onlyRow().showOnWifi->isEnabled());
}

TEST_F(ConnectionWindowTest, NoPhoneSaysToConnectOne) {
    startPhone(json::array());
    openWindow();
    andWaitForPhones([this] { m_window->refresh(); });
    EXPECT_TRUE(m_window->phoneRows().empty());
    EXPECT_EQ(m_window->statusLabel()->text(),
              QStringLiteral("No iPhone is connected: connect your iPhone with a USB cable and "
                             "unlock it."));
}

TEST_F(ConnectionWindowTest, NoMuxerSaysHowToStartIt) {
    openWindow();
    andWaitForPhones([this] { m_window->refresh(); });
    EXPECT_TRUE(m_window->phoneRows().empty());
    EXPECT_EQ(m_window->statusLabel()->text(),
              QStringLiteral("Start usbmuxd by plugging your iPhone in, then check again."));
}

TEST_F(ConnectionWindowTest, TheConnectionCheckShowsALinePerCheck) {
    startPhone(json::array({usbPhone()}));
    ::setenv("DBUS_SYSTEM_BUS_ADDRESS",
             ("unix:path=" + (m_folder.path() / "no-bus").string()).c_str(), 1);
    openWindow();
    QSignalSpy shown(m_window.get(), &ConnectionWindow::checkShown);
    QTest::mouseClick(m_window->checkButton(), Qt::LeftButton);
    EXPECT_FALSE(m_window->checkButton()->isEnabled());
    ASSERT_TRUE(shown.wait(kWaitMs));
    ::unsetenv("DBUS_SYSTEM_BUS_ADDRESS");
    EXPECT_TRUE(m_window->checkButton()->isEnabled());
    ASSERT_EQ(m_window->checkLines().size(), 10u);
    EXPECT_EQ(m_window->checkLines()[3]->text(),
              QString::fromUtf8("\u2713  The iPhone trusts this computer: Ada’s iPhone trusts "
                                "this computer."));
    EXPECT_TRUE(m_window->checkLines()[4]->text().startsWith(
        QString::fromUtf8("\u2717  Wi-Fi connections are on: Select")));
    EXPECT_TRUE(m_window->checkLines()[6]->text().startsWith(
        QString::fromUtf8("\u2013  An iPhone is advertised on this network: Waits for")));
}

TEST_F(ConnectionWindowTest, AnAnswerForAClosedWindowIsDropped) {
    startPhone(json::array({usbPhone()}));
    openWindow();
    m_window->refresh();
    m_window.reset();
    // The answer arrives on the event loop after the window went; nothing may touch it.
    QTest::qWait(1500);
    SUCCEED();
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

// Not a check: writes the window in both looks when TOVRIN_CAPTURE_DIR names a folder.
TEST_F(ConnectionWindowTest, CaptureLightAndDark) {
    const char* folder = std::getenv("TOVRIN_CAPTURE_DIR");
    if (folder == nullptr) {
        GTEST_SKIP() << "TOVRIN_CAPTURE_DIR is not set";
    }
    startPhone(json::array({usbPhone()}));
    openWindow();
    andWaitForPhones([this] { m_window->refresh(); });
    QSignalSpy shown(m_window.get(), &ConnectionWindow::checkShown);
    m_window->runCheck();
    ASSERT_TRUE(shown.wait(kWaitMs));
    onlyRow().showOnWifi->setChecked(true);
    for (const auto look : {Look::light, Look::dark}) {
        m_appearance.setForcedLook(look);
        QTest::qWait(100);
        const auto path = fs::path(folder) /
                          (look == Look::light ? "connection-light.png" : "connection-dark.png");
        EXPECT_TRUE(m_window->grab().save(QString::fromStdString(path.string())));
    }
}

} // namespace
} // namespace ambrel::testing
