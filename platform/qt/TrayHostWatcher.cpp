#include "platform/qt/TrayHostWatcher.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>
#include <QDBusVariant>
#include <QTimer>

#include "platform/qt/X11Connection.h"

namespace ambrel {

namespace {

const QString kWatcherService = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString kWatcherPath = QStringLiteral("/StatusNotifierWatcher");
const QString kHostRegistered = QStringLiteral("StatusNotifierHostRegistered");
const QString kHostUnregistered = QStringLiteral("StatusNotifierHostUnregistered");
// A watcher that does not answer within this is taken as no host.
constexpr int kAnswerMilliseconds = 2000;

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

void TrayHostWatcher::watchHost(std::function<void(bool present)> changed) {
    m_changed = std::move(changed);
    auto bus = QDBusConnection::sessionBus();
    if (bus.isConnected() && !m_serviceWatcher) {
        m_serviceWatcher =
            std::make_unique<QDBusServiceWatcher>(kWatcherService, bus,
                                                  QDBusServiceWatcher::WatchForRegistration |
                                                      QDBusServiceWatcher::WatchForUnregistration);
        connect(m_serviceWatcher.get(), &QDBusServiceWatcher::serviceRegistered, this,
                [this] { check(); });
        connect(m_serviceWatcher.get(), &QDBusServiceWatcher::serviceUnregistered, this,
                [this] { check(); });
        m_listening = bus.connect(kWatcherService, kWatcherPath, kWatcherService, kHostRegistered,
                                  this, SLOT(hostRegistered()));
        bus.connect(kWatcherService, kWatcherPath, kWatcherService, kHostUnregistered, this,
                    SLOT(hostRegistered()));
    }
    check();
}

void TrayHostWatcher::hostRegistered() {
    check();
}

void TrayHostWatcher::check() {
    const quint64 question = ++m_question;
    const auto bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        // Answered from the event loop, as the bus would be: the caller's set-up comes first.
        QTimer::singleShot(0, this, [this, question] {
            if (question == m_question) {
                answered(false);
            }
        });
        return;
    }
    auto call = QDBusMessage::createMethodCall(kWatcherService, kWatcherPath,
                                               QStringLiteral("org.freedesktop.DBus.Properties"),
                                               QStringLiteral("Get"));
    call << kWatcherService << QStringLiteral("IsStatusNotifierHostRegistered");
    call.setAutoStartService(false);
    auto* pending = new QDBusPendingCallWatcher(bus.asyncCall(call, kAnswerMilliseconds), this);
    connect(pending, &QDBusPendingCallWatcher::finished, this,
            [this, question](QDBusPendingCallWatcher* done) {
                done->deleteLater();
                if (question != m_question) {
                    return;
                }
                const QDBusPendingReply<QDBusVariant> reply = *done;
                answered(reply.isValid() && reply.value().variant().toBool());
            });
}

void TrayHostWatcher::answered(bool statusNotifier) {
    m_statusNotifier = statusNotifier;
    const bool present = statusNotifier || X11Connection::hasXEmbedTray();
    if (present != m_present) {
        m_present = present;
        if (m_changed) {
            m_changed(present);
        }
    }
}

} // namespace ambrel
