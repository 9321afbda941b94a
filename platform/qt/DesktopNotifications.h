#pragma once

#include <array>
#include <functional>
#include <optional>

#include <QDBusConnection>
#include <QObject>
#include <QString>

#include "platform/LowBatteryNotifier.h"

class QDBusPendingCallWatcher;

namespace ambrel {

// Low-battery alerts through the desktop's notification service (org.freedesktop.Notifications
// on the session bus). Each device has at most one notification, replaced in place while it is
// open; it offers "Snooze 30 min". Calls never block: without a bus or a service nothing is
// shown and nothing fails. Main thread only.
class DesktopNotifications final : public QObject, public LowBatteryNotifier {
    Q_OBJECT
public:
    struct Handlers {
        // The user chose "Snooze 30 min" on the device's notification.
        std::function<void(BatteryDeviceKind)> snoozed;
        // The device's notification is gone from the desktop, for whatever reason.
        std::function<void(BatteryDeviceKind)> closed;
    };

    static constexpr const char* kSnoozeActionKey = "snooze";

    // `desktopEntry`: the program's desktop file without ".desktop", so that desktops group
    // its notifications and show its icon; empty for none.
    DesktopNotifications(QDBusConnection bus, QString applicationName, QString desktopEntry = {},
                         QObject* parent = nullptr);
    ~DesktopNotifications() override;

    void setHandlers(Handlers handlers) { m_handlers = std::move(handlers); }

    void show(const LowBatteryNotice& notice) override;
    void close(BatteryDeviceKind device) override;

    // A plain word to the user, with the program's icon and no actions. A later one replaces
    // the earlier while the desktop still shows it.
    void showNote(const QString& summary, const QString& body);
    // Takes the last note away, if it is still shown (once the desktop has answered for it).
    void closeNote();

private Q_SLOTS:
    void actionInvoked(uint id, const QString& actionKey);
    void notificationClosed(uint id, uint reason);

private:
    // One device's notification. While a Notify call is out its id is not known yet, so what
    // is asked meanwhile waits for the reply and then replaces or closes it.
    struct Entry {
        uint id = 0;
        bool awaitingId = false;
        std::optional<LowBatteryNotice> queued;
        bool closeQueued = false;
    };

    Entry& entry(BatteryDeviceKind device);
    std::optional<BatteryDeviceKind> deviceOf(uint id) const;
    void notify(BatteryDeviceKind device, const LowBatteryNotice& notice);
    void sendClose(uint id);
    void notifyFinished(BatteryDeviceKind device, QDBusPendingCallWatcher* watcher);

    QDBusConnection m_bus;
    QString m_applicationName;
    QString m_desktopEntry;
    Handlers m_handlers;
    std::array<Entry, 2> m_entries;
    uint m_noteId = 0;
    // A note asked for and not answered yet; closeNote() meanwhile closes it once it is.
    bool m_notePending = false;
    bool m_noteCloseQueued = false;
};

} // namespace ambrel
