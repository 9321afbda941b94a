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
// the item comes when a host does. The bus is asked without waiting for its answer. Main thread
// only.
class TrayHostWatcher final : public QObject {
    Q_OBJECT
public:
    explicit TrayHostWatcher(QObject* parent = nullptr);
    ~TrayHostWatcher() override;

    // Calls `changed` with whether a host is there, once known (soon after this call), then
    // whenever that changes: a StatusNotifier watcher or host that comes or goes.
    void watchHost(std::function<void(bool present)> changed);

    // Whether the host last seen is a StatusNotifier one (tray items over D-Bus, icons by theme
    // name); false until the first answer.
    bool statusNotifierHost() const { return m_statusNotifier; }

private Q_SLOTS:
    void hostRegistered();

private:
    void check();
    void answered(bool statusNotifier);

    std::function<void(bool)> m_changed;
    std::optional<bool> m_present;
    bool m_statusNotifier = false;
    // Only the answer to the latest question counts: a host that comes and goes at once may
    // have its answers overtake each other.
    quint64 m_question = 0;
    std::unique_ptr<QDBusServiceWatcher> m_serviceWatcher;
    bool m_listening = false;
};

} // namespace ambrel
