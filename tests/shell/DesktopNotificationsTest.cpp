// Low-battery alerts as the desktop sees them: a private session bus (its own dbus-daemon) with a
// stand-in notification server that records every call, the alert rules driven by simulated
// time, and the real D-Bus client in between.

#include "platform/qt/DesktopNotifications.h"

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QSettings>
#include <QStringList>
#include <QVariantMap>

#include <gtest/gtest.h>

#include "monitor/ReadingCache.h"
#include "presentation/LowBatteryAlerts.h"
#include "shell/LowBatteryAlertsController.h"
#include "shell/SettingsFile.h"
#include "tests/app/OffscreenApplication.h"
#include "tests/fakes/ChildProcess.h"
#include "tests/fakes/SimulatedScheduler.h"
#include "tests/fakes/TemporaryFolder.h"
#include "tests/monitor/PhoneCycleHarness.h"

namespace ambrel {

// Plays org.freedesktop.Notifications: hands out ids, honours replaces_id, emits
// NotificationClosed on CloseNotification, and writes one line per call it gets.
class StandInNotificationServer final : public QObject {
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.Notifications")

public:
    std::vector<std::string> calls;
    // Every Notify call: its replaces_id, the id it got, and its urgency.
    struct Notified {
        uint replacesId;
        uint id;
        int urgency;
        QString summary;
        QStringList actions;
        QVariantMap hints;
        QString icon;
    };
    std::vector<Notified> notified;

    // What the user would do on the desktop.
    void invokeAction(uint id, const QString& key) { Q_EMIT ActionInvoked(id, key); }
    void dismiss(uint id) { Q_EMIT NotificationClosed(id, 2); }

public Q_SLOTS:
    uint Notify(const QString& appName, uint replacesId, const QString& appIcon,
                const QString& summary, const QString& body, const QStringList& actions,
                const QVariantMap& hints, int expireTimeout) {
        const uint id = replacesId != 0 ? replacesId : ++m_lastId;
        const int urgency = hints.value(QStringLiteral("urgency")).toInt();
        notified.push_back({replacesId, id, urgency, summary, actions, hints, appIcon});
        calls.push_back(
            QStringLiteral("Notify(app=\"%1\", replaces_id=%2, icon=\"%3\", summary=\"%4\", "
                           "body=\"%5\", actions=[%6], urgency=%7, timeout=%8) -> %9")
                .arg(appName)
                .arg(replacesId)
                .arg(appIcon, summary, body, actions.join(QStringLiteral(", ")))
                .arg(urgency)
                .arg(expireTimeout)
                .arg(id)
                .toStdString());
        return id;
    }
    void CloseNotification(uint id) {
        calls.push_back("CloseNotification(" + std::to_string(id) + ")");
        Q_EMIT NotificationClosed(id, 3);
    }
    QStringList GetCapabilities() { return {QStringLiteral("actions"), QStringLiteral("body")}; }
    QString GetServerInformation(QString& vendor, QString& version, QString& specVersion) {
        vendor = QStringLiteral("test");
        version = QStringLiteral("1");
        specVersion = QStringLiteral("1.2");
        return QStringLiteral("stand-in");
    }

Q_SIGNALS:
    void NotificationClosed(uint id, uint reason);
    void ActionInvoked(uint id, const QString& actionKey);

private:
    uint m_lastId = 0;
};

namespace {

using testing::SimulatedScheduler;

template <typename Condition> bool pumpUntil(Condition condition) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        QCoreApplication::processEvents(QEventLoop::AllEvents, 20);
    }
    return true;
}

// A dbus-daemon of its own for each test, stopped in teardown whatever happens.
class PrivateBus {
public:
    PrivateBus() : m_daemon(daemonOptions(m_folder.path() / "bus")) {
        // It prints its address once it listens.
        if (const auto line = m_daemon.readLine(std::chrono::seconds(10))) {
            m_address = QString::fromStdString(*line).trimmed();
        }
    }
    const QString& address() const { return m_address; }

private:
    static testing::ProcessOptions daemonOptions(const std::filesystem::path& socket) {
        testing::ProcessOptions options;
        options.arguments = {"/usr/bin/dbus-daemon", "--session", "--nofork", "--print-address=1",
                             "--address=unix:path=" + socket.string()};
        options.error = testing::OutputTo::discard;
        return options;
    }

    testing::TemporaryFolder m_folder;
    testing::ChildProcess m_daemon;
    QString m_address;
};

class DesktopNotificationsTest : public ::testing::Test {
protected:
    void SetUp() override {
        testing::ensureOffscreenApplication();
        ASSERT_FALSE(m_bus.address().isEmpty()) << "dbus-daemon did not start";
        m_serverName = QStringLiteral("server-%1").arg(++s_connections);
        m_clientName = QStringLiteral("client-%1").arg(s_connections);
        auto serverBus = QDBusConnection::connectToBus(m_bus.address(), m_serverName);
        ASSERT_TRUE(serverBus.isConnected());
        ASSERT_TRUE(serverBus.registerObject(
            QStringLiteral("/org/freedesktop/Notifications"), &m_server,
            QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals));
        ASSERT_TRUE(serverBus.registerService(QStringLiteral("org.freedesktop.Notifications")));
        m_notifications = std::make_unique<DesktopNotifications>(
            QDBusConnection::connectToBus(m_bus.address(), m_clientName), QStringLiteral("Tovrin"),
            QStringLiteral("com.quenby.Tovrin"));
        m_alerts = std::make_unique<LowBatteryAlerts>(m_scheduler, m_scheduler, *m_notifications);
        m_notifications->setHandlers(
            {[this](BatteryDeviceKind device) { m_alerts->snooze(device); },
             [this](BatteryDeviceKind device) {
                 ++m_closedOnDesktop;
                 m_alerts->alertClosed(device);
             }});
    }

    void TearDown() override {
        m_alerts.reset();
        m_notifications.reset();
        QDBusConnection::disconnectFromBus(m_clientName);
        QDBusConnection::disconnectFromBus(m_serverName);
        // The calls go into the test's log: they are the record of what the desktop was asked.
        for (const auto& call : m_server.calls) {
            std::printf("    %s\n", call.c_str());
        }
    }

    BatteryDeviceSnapshot phone(std::int64_t percentage, bool charging = false,
                                double ageSeconds = 0) const {
        return BatteryDeviceSnapshot("iphone", "Work iPhone", percentage, charging, charging,
                                     m_scheduler.now().addingSeconds(-ageSeconds), "Wi-Fi",
                                     std::nullopt);
    }
    void feed(std::int64_t percentage, bool charging = false) {
        m_alerts->update(BatteryDeviceKind::phone, phone(percentage, charging), true);
    }
    bool callsReach(std::size_t count) {
        return pumpUntil([&] { return m_server.calls.size() >= count; });
    }
    // The second call the server got closed the first alert.
    void expectFirstAlertClosed() {
        ASSERT_TRUE(callsReach(2));
        EXPECT_EQ(m_server.calls[1],
                  "CloseNotification(" + std::to_string(m_server.notified[0].id) + ")");
    }

    static inline int s_connections = 0;
    int m_closedOnDesktop = 0;
    testing::TemporaryFolder m_config;
    PrivateBus m_bus;
    QString m_serverName;
    QString m_clientName;
    StandInNotificationServer m_server;
    SimulatedScheduler m_scheduler;
    std::unique_ptr<DesktopNotifications> m_notifications;
    std::unique_ptr<LowBatteryAlerts> m_alerts;
};

TEST_F(DesktopNotificationsTest, OneAlertPerCrossingTurnedCriticalInPlace) {
    for (const int level : {25, 21, 20, 19, 15, 11}) {
        feed(level);
    }
    ASSERT_TRUE(callsReach(1));
    for (const int level : {10, 9, 8}) {
        feed(level);
    }
    ASSERT_TRUE(callsReach(2));
    // The mac's reading is a marker: everything asked before it has arrived.
    m_alerts->update(BatteryDeviceKind::mac,
                     BatteryDeviceSnapshot("mac", "Anna\u2019s MacBook Pro", 50, false, false,
                                           m_scheduler.now(), "Mac", std::nullopt),
                     true);
    m_alerts->update(BatteryDeviceKind::mac,
                     BatteryDeviceSnapshot("mac", "Anna\u2019s MacBook Pro", 20, false, false,
                                           m_scheduler.now(), "Mac", std::nullopt),
                     true);
    ASSERT_TRUE(callsReach(3));
    ASSERT_EQ(m_server.notified.size(), 3U);
    const auto& warning = m_server.notified[0];
    const auto& critical = m_server.notified[1];
    EXPECT_EQ(warning.replacesId, 0U);
    EXPECT_EQ(warning.urgency, 1);
    EXPECT_EQ(warning.summary, QStringLiteral("iPhone battery low"));
    EXPECT_EQ(warning.actions,
              (QStringList{QStringLiteral("snooze"), QStringLiteral("Snooze 30 min")}));
    EXPECT_EQ(critical.replacesId, warning.id) << "updated in place";
    EXPECT_EQ(critical.urgency, 2);
    EXPECT_EQ(critical.summary, QStringLiteral("iPhone battery very low"));
    EXPECT_EQ(m_server.notified[2].summary, QStringLiteral("This computer battery low"));
    EXPECT_EQ(m_server.notified[2].replacesId, 0U) << "each device has its own alert";
    // Desktops group them under the program and show its icon; each has a battery icon too.
    for (const auto& notified : m_server.notified) {
        EXPECT_EQ(notified.hints.value(QStringLiteral("desktop-entry")).toString(),
                  QStringLiteral("com.quenby.Tovrin"));
        EXPECT_EQ(notified.hints.value(QStringLiteral("category")).toString(),
                  QStringLiteral("device"));
    }
    EXPECT_EQ(warning.icon, QStringLiteral("battery-low"));
    EXPECT_EQ(critical.icon, QStringLiteral("battery-caution"));
}

TEST_F(DesktopNotificationsTest, NoneFromStaleOrUnconfirmedReadings) {
    m_alerts->update(BatteryDeviceKind::phone, phone(5, false, 601), true);
    m_alerts->update(BatteryDeviceKind::phone, phone(5), false);
    m_alerts->update(BatteryDeviceKind::phone, std::nullopt, true);
    // A fresh reading after them: it is the first call the server sees.
    feed(19);
    ASSERT_TRUE(callsReach(1));
    QCoreApplication::processEvents(QEventLoop::AllEvents, 100);
    ASSERT_EQ(m_server.notified.size(), 1U);
    EXPECT_NE(m_server.calls[0].find("Work iPhone is at 19%"), std::string::npos)
        << m_server.calls[0];
}

TEST_F(DesktopNotificationsTest, RearmedAfterRecoveringFivePoints) {
    feed(19);
    ASSERT_TRUE(callsReach(1));
    feed(24);
    feed(19);
    feed(25);
    ASSERT_NO_FATAL_FAILURE(expectFirstAlertClosed());
    feed(20);
    ASSERT_TRUE(callsReach(3));
    ASSERT_EQ(m_server.notified.size(), 2U);
    EXPECT_EQ(m_server.notified[1].replacesId, 0U) << "a new alert, the old one was closed";
    EXPECT_NE(m_server.notified[1].id, m_server.notified[0].id);
}

TEST_F(DesktopNotificationsTest, ChargingClosesTheAlert) {
    feed(18);
    ASSERT_TRUE(callsReach(1));
    feed(18, true);
    ASSERT_NO_FATAL_FAILURE(expectFirstAlertClosed());
    // Unplugged again while still low: that is a new fall.
    feed(17);
    ASSERT_TRUE(callsReach(3));
    EXPECT_EQ(m_server.notified.size(), 2U);
}

TEST_F(DesktopNotificationsTest, ChargingBeforeTheIdArrivesStillCloses) {
    // Both asked in one go, before the server has answered the first call.
    feed(18);
    feed(18, true);
    ASSERT_NO_FATAL_FAILURE(expectFirstAlertClosed());
}

TEST_F(DesktopNotificationsTest, SnoozeQuietsForThirtyMinutes) {
    feed(18);
    ASSERT_TRUE(callsReach(1));
    const uint first = m_server.notified[0].id;
    m_server.invokeAction(first, QStringLiteral("snooze"));
    ASSERT_TRUE(callsReach(2));
    EXPECT_EQ(m_server.calls[1], "CloseNotification(" + std::to_string(first) + ")");
    for (int step = 0; step < 5; ++step) {
        m_scheduler.advance(300);
        feed(step < 2 ? 16 : 9);
    }
    m_scheduler.advance(LowBatteryAlerts::kSnoozeSeconds - 5 * 300 - 0.001);
    QCoreApplication::processEvents(QEventLoop::AllEvents, 100);
    EXPECT_EQ(m_server.calls.size(), 2U) << "quiet through the snooze";
    m_scheduler.advance(0.001);
    ASSERT_TRUE(callsReach(3));
    ASSERT_EQ(m_server.notified.size(), 2U);
    EXPECT_EQ(m_server.notified[1].urgency, 2);
    EXPECT_NE(m_server.calls[2].find("Work iPhone is at 9%. Charge it now."), std::string::npos);
}

TEST_F(DesktopNotificationsTest, DismissedAlertIsNotClosedAgain) {
    feed(18);
    ASSERT_TRUE(callsReach(1));
    m_server.dismiss(m_server.notified[0].id);
    ASSERT_TRUE(pumpUntil([this] { return m_closedOnDesktop == 1; }));
    feed(18, true);
    // A later alert for the other device shows the charge produced no call.
    m_alerts->update(BatteryDeviceKind::mac,
                     BatteryDeviceSnapshot("mac", "Anna\u2019s MacBook Pro", 9, false, false,
                                           m_scheduler.now(), "Mac", std::nullopt),
                     true);
    ASSERT_TRUE(callsReach(2));
    EXPECT_EQ(m_server.calls[1].rfind("Notify(", 0), 0U) << m_server.calls[1];
}

TEST_F(DesktopNotificationsTest, ControllerAlertsOnlyFromAPhoneReadThatSucceeded) {
    qputenv("XDG_CONFIG_HOME", QByteArray::fromStdString((m_config.path() / "config").string()));
    QSettings(QString::fromLatin1(SettingsFile::kOrganization),
              QString::fromLatin1(SettingsFile::kApplication))
        .clear();

    testing::phonecycle::CycleHarness harness;
    // A saved reading at 5 %: shown at start, but never alerted on.
    ReadingCache::save(harness.cacheFile(),
                       testing::phonecycle::phoneSnapshot(harness.now().addingSeconds(-30), 5));
    auto monitor = harness.makeMonitor();
    ASSERT_TRUE(monitor->phone());
    const QString name = QStringLiteral("controller-%1").arg(s_connections);
    auto controller = std::make_unique<LowBatteryAlertsController>(
        *monitor, *harness.scheduler, QStringLiteral("Tovrin"), QStringLiteral("com.quenby.Tovrin"),
        QDBusConnection::connectToBus(m_bus.address(), name));
    EXPECT_TRUE(controller->isEnabled()) << "on by default";

    // The phone is not reached: the last known 5 % stays on the card, and no alert.
    harness.phone.enqueue(
        testing::phonecycle::failure(PhoneSetupState::notFound, "iPhone not found", false));
    monitor->refreshPhone();
    harness.finishReads();
    // Then a read succeeds at 18 %.
    harness.phone.enqueue(testing::phonecycle::success(harness.now(), 18));
    monitor->refreshPhone();
    harness.finishReads();
    ASSERT_TRUE(callsReach(1));
    QCoreApplication::processEvents(QEventLoop::AllEvents, 100);
    ASSERT_EQ(m_server.calls.size(), 1U);
    EXPECT_NE(m_server.calls[0].find("is at 18%"), std::string::npos) << m_server.calls[0];

    // Turned off from the tray: the alert closes and the choice is remembered.
    controller->setEnabled(false);
    ASSERT_TRUE(callsReach(2));
    EXPECT_EQ(m_server.calls[1].rfind("CloseNotification(", 0), 0U);
    controller.reset();
    QDBusConnection::disconnectFromBus(name);
    EXPECT_FALSE(QSettings(QString::fromLatin1(SettingsFile::kOrganization),
                           QString::fromLatin1(SettingsFile::kApplication))
                     .value(QStringLiteral("LowBatteryAlerts"), true)
                     .toBool());
    const LowBatteryAlertsController again(*monitor, *harness.scheduler, QStringLiteral("Tovrin"),
                                           QString(), QDBusConnection(QStringLiteral("none")));
    EXPECT_FALSE(again.isEnabled());
}

TEST(DesktopNotificationsWithoutServiceTest, NothingHappensAndNothingBreaks) {
    testing::ensureOffscreenApplication();
    PrivateBus bus;
    ASSERT_FALSE(bus.address().isEmpty());
    const QString clientName = QStringLiteral("lonely-client");
    const QString serverName = QStringLiteral("late-server");
    StandInNotificationServer server;
    {
        SimulatedScheduler scheduler;
        DesktopNotifications notifications(QDBusConnection::connectToBus(bus.address(), clientName),
                                           QStringLiteral("Tovrin"));
        LowBatteryAlerts alerts(scheduler, scheduler, notifications);
        const auto phoneAt = [&scheduler](bool charging) {
            return BatteryDeviceSnapshot("iphone", "Work iPhone", 8, charging, charging,
                                         scheduler.now(), "USB", std::nullopt);
        };
        alerts.update(BatteryDeviceKind::phone, phoneAt(false), true);
        QCoreApplication::processEvents(QEventLoop::AllEvents, 200);

        // A notification service turns up later: what was never shown is not closed, and the
        // next alert goes through as a new one.
        auto serverBus = QDBusConnection::connectToBus(bus.address(), serverName);
        ASSERT_TRUE(serverBus.registerObject(
            QStringLiteral("/org/freedesktop/Notifications"), &server,
            QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals));
        ASSERT_TRUE(serverBus.registerService(QStringLiteral("org.freedesktop.Notifications")));
        alerts.update(BatteryDeviceKind::phone, phoneAt(true), true);
        alerts.update(BatteryDeviceKind::mac,
                      BatteryDeviceSnapshot("mac", "Anna\u2019s MacBook Pro", 9, false, false,
                                            scheduler.now(), "Mac", std::nullopt),
                      true);
        ASSERT_TRUE(pumpUntil([&] { return !server.calls.empty(); }));
        QCoreApplication::processEvents(QEventLoop::AllEvents, 100);
        ASSERT_EQ(server.calls.size(), 1U);
        EXPECT_EQ(server.notified[0].replacesId, 0U);
        EXPECT_EQ(server.notified[0].summary, QStringLiteral("This computer battery very low"));
    }
    QDBusConnection::disconnectFromBus(clientName);
    QDBusConnection::disconnectFromBus(serverName);

    // No bus at all: every call does nothing, and nothing fails.
    SimulatedScheduler scheduler;
    const auto noBus = QDBusConnection::connectToBus(
        QStringLiteral("unix:path=/nonexistent/tovrin-test-bus"), QStringLiteral("no-bus"));
    ASSERT_FALSE(noBus.isConnected());
    DesktopNotifications notifications(noBus, QStringLiteral("Tovrin"));
    LowBatteryAlerts alerts(scheduler, scheduler, notifications);
    alerts.update(BatteryDeviceKind::mac,
                  BatteryDeviceSnapshot("mac", "Anna\u2019s MacBook Pro", 8, false, false,
                                        scheduler.now(), "Mac", std::nullopt),
                  true);
    alerts.snooze(BatteryDeviceKind::mac);
    scheduler.advance(LowBatteryAlerts::kSnoozeSeconds);
    QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
    QDBusConnection::disconnectFromBus(QStringLiteral("no-bus"));
}

} // namespace
} // namespace ambrel

#include "DesktopNotificationsTest.moc"
