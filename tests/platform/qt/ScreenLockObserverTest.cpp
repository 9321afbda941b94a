// The screen saver's ActiveChanged signals, sent on the test's own session bus by another
// connection, reach the observer; other signals do not.

#include <gtest/gtest.h>

#include <chrono>
#include <optional>
#include <vector>

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QElapsedTimer>

#include "platform/qt/ScreenLockObserver.h"
#include "tests/platform/qt/CoreApplication.h"

namespace ambrel {
namespace {

using namespace std::chrono_literals;

class ScreenLockObserverTest : public ::testing::Test {
protected:
    void SetUp() override {
        testing::coreApplication();
        m_sender = std::make_unique<QDBusConnection>(
            QDBusConnection::connectToBus(QDBusConnection::SessionBus, QStringLiteral("sender")));
        ASSERT_TRUE(m_sender->isConnected()) << "the test has no session bus";
    }
    void TearDown() override {
        m_sender.reset();
        QDBusConnection::disconnectFromBus(QStringLiteral("sender"));
    }

    void send(const char* path, const char* interface, const char* name, bool active) {
        auto message = QDBusMessage::createSignal(
            QString::fromLatin1(path), QString::fromLatin1(interface), QString::fromLatin1(name));
        message << active;
        ASSERT_TRUE(m_sender->send(message));
    }

    // Runs the event loop until `count` changes were told, or for a minute.
    void waitForChanges(std::size_t count) {
        QElapsedTimer waited;
        waited.start();
        while (m_changes.size() < count && waited.elapsed() < 60'000) {
            QCoreApplication::processEvents(QEventLoop::AllEvents, 50);
        }
    }

    // The observer's match rules go to the bus without a reply awaited, and the test's signals
    // come over another connection, which the bus need not order after them: one call answered
    // on the observer's connection means the rules sent before it are in place.
    static void rulesInPlace() {
        const auto reply = QDBusConnection::sessionBus().call(QDBusMessage::createMethodCall(
            QStringLiteral("org.freedesktop.DBus"), QStringLiteral("/org/freedesktop/DBus"),
            QStringLiteral("org.freedesktop.DBus"), QStringLiteral("GetId")));
        ASSERT_EQ(reply.type(), QDBusMessage::ReplyMessage);
    }

    std::function<void(bool)> recorder() {
        return [this](bool locked) { m_changes.push_back(locked); };
    }

    std::unique_ptr<QDBusConnection> m_sender;
    std::vector<bool> m_changes;
};

TEST_F(ScreenLockObserverTest, TellsTheFreedesktopScreenSaversLockAndUnlock) {
    ScreenLockObserver observer(recorder());
    ASSERT_TRUE(observer.isListening());
    rulesInPlace();
    send("/org/freedesktop/ScreenSaver", "org.freedesktop.ScreenSaver", "ActiveChanged", true);
    waitForChanges(1);
    send("/org/freedesktop/ScreenSaver", "org.freedesktop.ScreenSaver", "ActiveChanged", false);
    waitForChanges(2);
    EXPECT_EQ(m_changes, (std::vector<bool>{true, false}));
}

TEST_F(ScreenLockObserverTest, TellsGnomesScreenSaverToo) {
    ScreenLockObserver observer(recorder());
    rulesInPlace();
    send("/org/gnome/ScreenSaver", "org.gnome.ScreenSaver", "ActiveChanged", true);
    waitForChanges(1);
    EXPECT_EQ(m_changes, std::vector<bool>{true});
}

TEST_F(ScreenLockObserverTest, OtherSignalsAreNotTold) {
    ScreenLockObserver observer(recorder());
    rulesInPlace();
    send("/org/freedesktop/ScreenSaver", "org.freedesktop.ScreenSaver", "WakeUpScreen", true);
    send("/org/example/ScreenSaver", "org.example.ScreenSaver", "ActiveChanged", true);
    send("/org/freedesktop/ScreenSaver", "org.freedesktop.ScreenSaver", "ActiveChanged", false);
    // The bus delivers one connection's signals in the order they were sent, so once the last
    // has arrived the two before it would have too.
    waitForChanges(1);
    EXPECT_EQ(m_changes, std::vector<bool>{false});
}

TEST_F(ScreenLockObserverTest, NothingIsToldOnceItIsGone) {
    { ScreenLockObserver gone(recorder()); }
    ScreenLockObserver observer([this](bool) { m_changes.push_back(true); });
    ScreenLockObserver marker([this](bool) { m_changes.push_back(false); });
    rulesInPlace();
    send("/org/freedesktop/ScreenSaver", "org.freedesktop.ScreenSaver", "ActiveChanged", true);
    waitForChanges(2);
    // One each from the two that are still there, none from the one that is gone.
    QCoreApplication::processEvents(QEventLoop::AllEvents, 100);
    ASSERT_EQ(m_changes.size(), 2u);
}

} // namespace
} // namespace ambrel
