#include "platform/qt/TrayHostWatcher.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusServiceWatcher>
#include <QDBusVariant>

#include "platform/qt/X11Connection.h"

namespace ambrel {

namespace {

const QString kWatcherService = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString kWatcherPath = QStringLiteral("/StatusNotifierWatcher");
const QString kHostRegistered = QStringLiteral("StatusNotifierHostRegistered");
const QString kHostUnregistered = QStringLiteral("StatusNotifierHostUnregistered");
// A watcher that does not answer within this is taken as no host; the check runs on the main
// thread at start and when a watcher appears.
constexpr int kAnswerMilliseconds = 2000;

bool statusNotifierHostRegistered() {
    const auto bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        return false;
    }
    auto call = QDBusMessage::createMethodCall(kWatcherService, kWatcherPath,
                                               QStringLiteral("org.freedesktop.DBus.Properties"),
                                               QStringLiteral("Get"));
    call << kWatcherService << QStringLiteral("IsStatusNotifierHostRegistered");
    call.setAutoStartService(false);
    const auto reply = bus.call(call, QDBus::Block, kAnswerMilliseconds);
    return reply.type() == QDBusMessage::ReplyMessage &&
           reply.arguments().value(0).value<QDBusVariant>().variant().toBool();
}

} // namespace

TrayHostWatcher::TrayHostWatcher(QObject* parent) : QObject(parent) {}

TrayHostWatcher::~TrayHostWatcher() {
    if (m_listening) {
        auto bus = QDBusConnection::sessionBus();
        bus.disconnect(kWatcherService, kWatcherPath, kWatcherService, kHostRegistered, this,
                       SLOT(hostRegistered()));
        bus.disconnect(kWatcherService, kWatcherPath, kWatcherService, kHostUnregistered, this,
                       SLOT(hostRegistered()));
    }
}

bool TrayHostWatcher::statusNotifierHostPresent() {
    return statusNotifierHostRegistered();
}

bool TrayHostWatcher::hostPresent() {
    return statusNotifierHostRegistered() || X11Connection::hasXEmbedTray();
}

void TrayHostWatcher::whenHostPresent(std::function<void()> onHost) {
    m_onHost = std::move(onHost);
    listen(QDBusServiceWatcher::WatchForRegistration);
    check();
}

void TrayHostWatcher::watchHost(std::function<void(bool present)> changed) {
    m_onHost = nullptr;
    m_changed = std::move(changed);
    listen(QDBusServiceWatcher::WatchForRegistration | QDBusServiceWatcher::WatchForUnregistration);
    check();
}

void TrayHostWatcher::listen(QDBusServiceWatcher::WatchMode mode) {
    auto bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || m_serviceWatcher) {
        return;
    }
    m_serviceWatcher = std::make_unique<QDBusServiceWatcher>(kWatcherService, bus, mode);
    connect(m_serviceWatcher.get(), &QDBusServiceWatcher::serviceRegistered, this,
            [this] { check(); });
    connect(m_serviceWatcher.get(), &QDBusServiceWatcher::serviceUnregistered, this,
            [this] { check(); });
    m_listening = bus.connect(kWatcherService, kWatcherPath, kWatcherService, kHostRegistered, this,
                              SLOT(hostRegistered()));
    bus.connect(kWatcherService, kWatcherPath, kWatcherService, kHostUnregistered, this,
                SLOT(hostRegistered()));
}

void TrayHostWatcher::hostRegistered() {
    check();
}

void TrayHostWatcher::check() {
    if (m_changed) {
        const bool present = hostPresent();
        if (present != m_present) {
            m_present = present;
            m_changed(present);
        }
        return;
    }
    if (!m_onHost || !hostPresent()) {
        return;
    }
    auto onHost = std::move(m_onHost);
    m_onHost = nullptr;
    // This may run inside the service watcher's own signal.
    if (m_serviceWatcher) {
        m_serviceWatcher.release()->deleteLater();
    }
    onHost();
}

} // namespace ambrel
