#pragma once

#include <functional>
#include <memory>
#include <optional>

#include <QDBusServiceWatcher>
#include <QObject>

namespace ambrel {

// Tells when the desktop has a place for tray items: a StatusNotifier host on the session bus
// (KDE, GNOME with its AppIndicator extension, and most others) or an XEmbed tray. Qt decides
// once, when the first tray item is made, which of the two it talks to, so the item is made only
// once a host is there; on a desktop without one the program runs on with its card alone and
// the item comes when a host does. Main thread only.
class TrayHostWatcher final : public QObject {
    Q_OBJECT
public:
    explicit TrayHostWatcher(QObject* parent = nullptr);
    ~TrayHostWatcher() override;

    // Whether a host is there now.
    static bool hostPresent();
    // Whether that host is a StatusNotifier one (tray items over D-Bus, icons by theme name).
    static bool statusNotifierHostPresent();

    // Calls `onHost` once, at once when a host is there, else when one shows up.
    void whenHostPresent(std::function<void()> onHost);
    // Calls `changed` at once with whether a host is there, then whenever that changes: a
    // StatusNotifier watcher or host that comes or goes. Replaces whenHostPresent's call.
    void watchHost(std::function<void(bool present)> changed);

private Q_SLOTS:
    void hostRegistered();

private:
    void check();
    void listen(QDBusServiceWatcher::WatchMode mode);

    std::function<void()> m_onHost;
    std::function<void(bool)> m_changed;
    std::optional<bool> m_present;
    std::unique_ptr<QDBusServiceWatcher> m_serviceWatcher;
    bool m_listening = false;
};

} // namespace ambrel
