#include "platform/qt/DesktopNotifications.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QStringList>
#include <QVariantMap>

namespace ambrel {

namespace {

const QString kNotificationsService = QStringLiteral("org.freedesktop.Notifications");
const QString kNotificationsPath = QStringLiteral("/org/freedesktop/Notifications");
const QString kNotificationsInterface = QStringLiteral("org.freedesktop.Notifications");

// The notification protocol's urgency levels.
constexpr uchar kNormalUrgency = 1;
constexpr uchar kCriticalUrgency = 2;

} // namespace

DesktopNotifications::DesktopNotifications(QDBusConnection bus, QString applicationName,
                                           QString desktopEntry, QObject* parent)
    : QObject(parent), m_bus(std::move(bus)), m_applicationName(std::move(applicationName)),
      m_desktopEntry(std::move(desktopEntry)) {
    if (!m_bus.isConnected()) {
        return;
    }
    m_bus.connect(kNotificationsService, kNotificationsPath, kNotificationsInterface,
                  QStringLiteral("ActionInvoked"), this, SLOT(actionInvoked(uint, QString)));
    m_bus.connect(kNotificationsService, kNotificationsPath, kNotificationsInterface,
                  QStringLiteral("NotificationClosed"), this, SLOT(notificationClosed(uint, uint)));
}

DesktopNotifications::~DesktopNotifications() = default;

DesktopNotifications::Entry& DesktopNotifications::entry(BatteryDeviceKind device) {
    return m_entries[device == BatteryDeviceKind::mac ? 0 : 1];
}

std::optional<BatteryDeviceKind> DesktopNotifications::deviceOf(uint id) const {
    if (id == 0) {
        return std::nullopt;
    }
    if (m_entries[0].id == id) {
        return BatteryDeviceKind::mac;
    }
    if (m_entries[1].id == id) {
        return BatteryDeviceKind::phone;
    }
    return std::nullopt;
}

void DesktopNotifications::show(const LowBatteryNotice& notice) {
    if (!m_bus.isConnected()) {
        return;
    }
    auto& current = entry(notice.device);
    if (current.awaitingId) {
        current.queued = notice;
        current.closeQueued = false;
        return;
    }
    notify(notice.device, notice);
}

void DesktopNotifications::close(BatteryDeviceKind device) {
    auto& current = entry(device);
    if (current.awaitingId) {
        current.queued.reset();
        current.closeQueued = true;
        return;
    }
    if (current.id != 0) {
        sendClose(current.id);
        current.id = 0;
    }
}

void DesktopNotifications::showNote(const QString& summary, const QString& body) {
    if (!m_bus.isConnected()) {
        return;
    }
    QVariantMap hints;
    hints.insert(QStringLiteral("urgency"), QVariant::fromValue<uchar>(kNormalUrgency));
    if (!m_desktopEntry.isEmpty()) {
        hints.insert(QStringLiteral("desktop-entry"), m_desktopEntry);
    }
    QDBusMessage call =
        QDBusMessage::createMethodCall(kNotificationsService, kNotificationsPath,
                                       kNotificationsInterface, QStringLiteral("Notify"));
    // The desktop entry's name is also the program's icon in the theme.
    call << m_applicationName << m_noteId << m_desktopEntry << summary << body << QStringList()
         << hints << -1;
    m_notePending = true;
    m_noteCloseQueued = false;
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this](QDBusPendingCallWatcher* finished) {
                const QDBusPendingReply<uint> reply = *finished;
                m_notePending = false;
                if (!reply.isError()) {
                    m_noteId = reply.value();
                }
                if (m_noteCloseQueued) {
                    closeNote();
                }
                finished->deleteLater();
            });
}

void DesktopNotifications::closeNote() {
    if (m_notePending) {
        m_noteCloseQueued = true;
        return;
    }
    m_noteCloseQueued = false;
    if (m_noteId != 0 && m_bus.isConnected()) {
        sendClose(m_noteId);
        m_noteId = 0;
    }
}

void DesktopNotifications::notify(BatteryDeviceKind device, const LowBatteryNotice& notice) {
    auto& current = entry(device);
    const bool critical = notice.level == LowBatteryLevel::critical;
    QVariantMap hints;
    hints.insert(QStringLiteral("urgency"),
                 QVariant::fromValue<uchar>(critical ? kCriticalUrgency : kNormalUrgency));
    hints.insert(QStringLiteral("category"), QStringLiteral("device"));
    if (!m_desktopEntry.isEmpty()) {
        hints.insert(QStringLiteral("desktop-entry"), m_desktopEntry);
    }
    QDBusMessage call =
        QDBusMessage::createMethodCall(kNotificationsService, kNotificationsPath,
                                       kNotificationsInterface, QStringLiteral("Notify"));
    call << m_applicationName << current.id
         << (critical ? QStringLiteral("battery-caution") : QStringLiteral("battery-low"))
         << QString::fromStdString(notice.summary) << QString::fromStdString(notice.body)
         << QStringList{QString::fromLatin1(kSnoozeActionKey),
                        QString::fromStdString(notice.snoozeTitle)}
         << hints << -1;
    current.awaitingId = true;
    auto* watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call), this);
    connect(
        watcher, &QDBusPendingCallWatcher::finished, this,
        [this, device](QDBusPendingCallWatcher* finished) { notifyFinished(device, finished); });
}

void DesktopNotifications::notifyFinished(BatteryDeviceKind device,
                                          QDBusPendingCallWatcher* watcher) {
    watcher->deleteLater();
    auto& current = entry(device);
    current.awaitingId = false;
    const QDBusPendingReply<uint> reply = *watcher;
    // No service (or it failed): the alert is simply not shown.
    current.id = reply.isError() ? 0 : reply.value();
    if (current.closeQueued) {
        current.closeQueued = false;
        if (current.id != 0) {
            sendClose(current.id);
            current.id = 0;
        }
    } else if (current.queued) {
        const LowBatteryNotice next = *current.queued;
        current.queued.reset();
        notify(device, next);
    }
}

void DesktopNotifications::sendClose(uint id) {
    QDBusMessage call = QDBusMessage::createMethodCall(kNotificationsService, kNotificationsPath,
                                                       kNotificationsInterface,
                                                       QStringLiteral("CloseNotification"));
    call << id;
    m_bus.asyncCall(call);
}

void DesktopNotifications::actionInvoked(uint id, const QString& actionKey) {
    const auto device = deviceOf(id);
    if (device && actionKey == QLatin1String(kSnoozeActionKey) && m_handlers.snoozed) {
        m_handlers.snoozed(*device);
    }
}

void DesktopNotifications::notificationClosed(uint id, uint /*reason*/) {
    if (id != 0 && id == m_noteId) {
        m_noteId = 0;
        return;
    }
    const auto device = deviceOf(id);
    if (!device) {
        return;
    }
    entry(*device).id = 0;
    if (m_handlers.closed) {
        m_handlers.closed(*device);
    }
}

} // namespace ambrel
