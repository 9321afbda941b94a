// A new user's way from the cable to Wi-Fi, through the widget's own windows: the card's help
// button opens the setup sheet, "Open Finder" the connection window, where the phone is trusted
// and its Wi-Fi connections turned on; then the cable is pulled and the card reads the phone
// over Wi-Fi. The whole widget runs in this process as a normal run builds it (its own muxer,
// the delegate, the real tools and helper), offscreen.
//
// Run by wifi_end_to_end.sh inside its namespaces, with the simulated iPhone on the cable and a
// real avahi-daemon. TOVRIN_WINDOW_HANDSHAKE names a folder shared with the script: the phone
// reads the person's answer to its Trust dialog from "trust-dialog" there; this test writes
// "wifi-on" once the phone's Wi-Fi connections are on, and the script answers with "unplugged"
// once the phone advertises itself and the cable is out.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <ostream>
#include <string>

#include <QApplication>
#include <QLabel>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>

#include "app/AmbrelDelegate.h"
#include "app/ConnectionSetup.h"
#include "monitor/BatteryMonitor.h"
#include "muxer/PrivateMuxer.h"
#include "platform/linux/ProcessEnvironment.h"
#include "platform/linux/SpawnProcessLauncher.h"
#include "platform/linux/XdgFolders.h"
#include "shell/DesktopPanel.h"
#include "tests/app/FakeLoginItemService.h"
#include "tests/app/OffscreenApplication.h"
#include "tests/fakes/ExpectedTexts.h"
#include "tests/fakes/FakeSystem.h"
#include "views/AmbrelView.h"
#include "views/ConnectionWindow.h"
#include "views/DeviceBatteryGauge.h"
#include "views/GaugeRing.h"
#include "views/IPhoneSetupView.h"
#include "views/IconButton.h"
#include "views/TextLine.h"
#include "views/ToggleSwitch.h"

// Failure messages show the texts rather than their bytes.
void PrintTo(const QString& text, std::ostream* stream) {
    *stream << '"' << text.toStdString() << '"';
}

namespace ambrel {
namespace {

namespace fs = std::filesystem;

const std::string kUdid = "00008110-001A2B3C4D5E6F70";
// The simulated phone's line under its name in the connection window.
constexpr const char* kDetailOnUsb = "iPhone 13 Pro \u00b7 iOS 17.5.1 \u00b7 on USB";
constexpr const char* kDetailOnWifi = "iPhone 13 Pro \u00b7 iOS 17.5.1 \u00b7 on Wi-Fi";
// One exchange with the phone takes well under a second; the limit only keeps a broken run
// short.
constexpr int kWaitMs = 30000;
// The script publishes the advert and pulls the cable in a few seconds.
constexpr int kUnplugWaitMs = 60000;
// avahi hands the advert to the program's muxer on its own time, usually at once: a few reads a
// second apart cover it.
constexpr int kWifiReadAttempts = 15;

QString q(const char* utf8) {
    return QString::fromUtf8(utf8);
}

class WindowOverWifiTest : public ::testing::Test {
protected:
    void SetUp() override {
        const char* handshake = std::getenv("TOVRIN_WINDOW_HANDSHAKE");
        if (handshake == nullptr) {
            GTEST_SKIP() << "run by wifi_end_to_end.sh, which sets TOVRIN_WINDOW_HANDSHAKE";
        }
        m_handshake = handshake;
        testing::ensureOffscreenApplication();

        // As a normal run starts: the program's own muxer first, then the widget, whose tools
        // are given the muxer's address.
        const std::shared_ptr<const Environment> environment =
            std::make_shared<ProcessEnvironment>();
        const auto support = XdgFolders(environment).applicationSupport();
        ASSERT_TRUE(support);
        const auto dataFolder = *support / "Ambrel";
        m_muxer = startPrivateMuxer(*environment, dataFolder);
        ASSERT_NE(m_muxer, nullptr) << "the program's muxer did not start";
        auto tools = environment->entries();
        tools.push_back("USBMUXD_SOCKET_ADDRESS=" + m_muxer->address());

        auto bundle = std::make_shared<testing::FakeBundle>();
        bundle->executable = fs::path(TOVRIN_BINARY_DIR) / "bin" / "tovrin";
        bundle->resources = fs::path(TOVRIN_BINARY_DIR) / "share" / "tovrin";
        AmbrelDelegate::Setup setup;
        setup.loginItems = std::make_unique<testing::FakeLoginItemService>();
        setup.launcher = std::make_shared<SpawnProcessLauncher>(std::move(tools));
        setup.connection =
            connectionProbeSetup(*bundle, *environment, "", dataFolder, setup.launcher);
        m_delegate = std::make_unique<AmbrelDelegate>(std::vector<std::string>{"tovrin"}, bundle,
                                                      environment, std::move(setup));
        m_delegate->applicationDidFinishLaunching();
        ASSERT_NE(m_delegate->panel(), nullptr);
        m_card = dynamic_cast<AmbrelView*>(m_delegate->panel()->content());
        ASSERT_NE(m_card, nullptr);
    }

    void TearDown() override {
        if (m_card != nullptr && m_card->setupView() != nullptr) {
            m_card->setupView()->reject();
        }
        m_delegate.reset();
        if (m_muxer) {
            m_muxer->stop();
        }
    }

    // Waits for the phone read under way (if any) to end, as the card's refresh button shows.
    bool phoneReadEnds() {
        return QTest::qWaitFor([this] { return !m_card->refreshButton()->isBusy(); }, kWaitMs);
    }

    // "Check batteries" on the sheet, and the phone read it starts.
    void checkBatteries(IPhoneSetupView* sheet) {
        QTest::mouseClick(sheet->checkBatteriesButton(), Qt::LeftButton);
        ASSERT_TRUE(phoneReadEnds());
    }

    QString phoneStatus() const { return m_card->helpButton()->toolTip(); }

    // Runs `action` and waits for the window to show its phones again.
    static void andWaitForPhones(ConnectionWindow* window, const std::function<void()>& action) {
        QSignalSpy shown(window, &ConnectionWindow::phonesShown);
        action();
        ASSERT_TRUE(shown.wait(kWaitMs));
        // A change is checked again once the phones are listed; that too ends.
        EXPECT_TRUE(QTest::qWaitFor([window] { return window->pendingWork() == 0; }, kWaitMs));
    }

    static const ConnectionWindow::PhoneRow* rowOf(const ConnectionWindow* window) {
        for (const auto& row : window->phoneRows()) {
            if (row.udid == kUdid) {
                return &row;
            }
        }
        return nullptr;
    }

    fs::path m_handshake;
    std::unique_ptr<PrivateMuxer> m_muxer;
    std::unique_ptr<AmbrelDelegate> m_delegate;
    AmbrelView* m_card = nullptr;
};

TEST_F(WindowOverWifiTest, TrustTurnOnWifiUnplugAndReadOverWifi) {
    // The first read, at launch: the phone is on the cable, never paired; asking it shows its
    // Trust dialog, which nobody has answered yet.
    ASSERT_TRUE(phoneReadEnds());
    EXPECT_EQ(phoneStatus(), q(testing::expected::kTrust));

    QTest::mouseClick(m_card->helpButton(), Qt::LeftButton);
    IPhoneSetupView* sheet = m_card->setupView();
    ASSERT_NE(sheet, nullptr);
    ASSERT_TRUE(sheet->isVisible());
    QTest::mouseClick(sheet->openFinderButton(), Qt::LeftButton);
    const auto windows = sheet->findChildren<ConnectionWindow*>();
    ASSERT_EQ(windows.size(), 1);
    ConnectionWindow* window = windows.front();
    EXPECT_TRUE(window->isVisible());
    {
        QSignalSpy shown(window, &ConnectionWindow::phonesShown);
        ASSERT_TRUE(shown.wait(kWaitMs));
    }

    // Pair, while the phone's dialog waits for an answer: the window says what to do.
    const auto* row = rowOf(window);
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(row->detail->text(), q(kDetailOnUsb));
    EXPECT_EQ(row->trust->text(), q("Doesn\u2019t trust this computer yet"));
    ASSERT_NE(row->pairButton, nullptr);
    EXPECT_FALSE(row->showOnWifi->isEnabled());
    QPushButton* pair = row->pairButton;
    andWaitForPhones(window, [pair] { QTest::mouseClick(pair, Qt::LeftButton); });
    EXPECT_EQ(window->statusLabel()->text(),
              q("Unlock your iPhone, click Pair again and tap Trust on the iPhone."));
    row = rowOf(window);
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(row->trust->text(), q("Doesn\u2019t trust this computer yet"));
    ASSERT_NE(row->pairButton, nullptr);

    // The person chooses Trust on the phone, then clicks Pair again.
    std::ofstream(m_handshake / "trust-dialog") << "trust\n";
    pair = row->pairButton;
    andWaitForPhones(window, [pair] { QTest::mouseClick(pair, Qt::LeftButton); });
    EXPECT_EQ(window->statusLabel()->text(), q("This computer is now trusted."));
    row = rowOf(window);
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(row->trust->text(), q("Trusts this computer"));
    EXPECT_EQ(row->pairButton, nullptr);

    // "Show this iPhone when on Wi-Fi": one click on its switch, applied at once.
    ASSERT_TRUE(row->showOnWifi->isEnabled());
    EXPECT_EQ(row->showOnWifi->accessibleName(), q("Show this iPhone when on Wi-Fi"));
    EXPECT_FALSE(row->showOnWifi->isChecked());
    ToggleSwitch* toggle = row->showOnWifi;
    andWaitForPhones(window, [toggle] { QTest::mouseClick(toggle, Qt::LeftButton); });
    row = rowOf(window);
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(row->wifiNote->text(), q("Wi-Fi connections are now on."));
    EXPECT_TRUE(row->showOnWifi->isChecked());

    // Trusted now, the card reads the phone over the cable.
    ASSERT_NO_FATAL_FAILURE(checkBatteries(sheet));
    EXPECT_EQ(phoneStatus(), q(testing::expected::kConnectedByUsb));
    EXPECT_TRUE(m_card->phoneGauge()->statusLine()->toolTip().contains(q(" \u00b7 USB \u00b7 ")))
        << m_card->phoneGauge()->statusLine()->toolTip().toStdString();

    // The cable comes out.
    std::ofstream(m_handshake / "wifi-on") << kUdid << '\n';
    ASSERT_TRUE(
        QTest::qWaitFor([this] { return fs::exists(m_handshake / "unplugged"); }, kUnplugWaitMs))
        << "the script did not pull the cable";

    for (int attempt = 0; attempt < kWifiReadAttempts; ++attempt) {
        ASSERT_NO_FATAL_FAILURE(checkBatteries(sheet));
        if (phoneStatus() == q(testing::expected::kConnectedOverWiFi)) {
            break;
        }
        QTest::qWait(1000);
    }
    EXPECT_EQ(phoneStatus(), q(testing::expected::kConnectedOverWiFi));
    EXPECT_EQ(phoneStatus(), QString::fromStdString(BatteryMonitor::wifiStatus()));
    const QString help = m_card->phoneGauge()->statusLine()->toolTip();
    EXPECT_TRUE(help.contains(q(" \u00b7 Wi-Fi \u00b7 "))) << help.toStdString();
    EXPECT_EQ(m_card->phoneGauge()->ring()->face().number, q("64"));

    // The window lists it on Wi-Fi now, where its setting cannot be changed.
    QTest::mouseClick(sheet->openFinderButton(), Qt::LeftButton);
    EXPECT_EQ(sheet->findChildren<ConnectionWindow*>().size(), 1);
    {
        QSignalSpy shown(window, &ConnectionWindow::phonesShown);
        ASSERT_TRUE(shown.wait(kWaitMs));
    }
    row = rowOf(window);
    ASSERT_NE(row, nullptr);
    EXPECT_EQ(row->detail->text(), q(kDetailOnWifi));
    EXPECT_EQ(row->trust->text(), q("Trusts this computer"));
    EXPECT_FALSE(row->showOnWifi->isEnabled());
    window->close();
}

} // namespace
} // namespace ambrel
