#pragma once

#include <functional>

#include <QObject>

namespace ambrel {

// Tells when the screen locks or blanks and when it comes back: the ActiveChanged(bool) signal of
// the desktop's screen saver on the session bus, under the freedesktop name (KDE, Xfce, Cinnamon,
// MATE, LXQt) or GNOME's. Without a session bus or a screen saver it simply never tells.
// Destroying it stops the telling.
class ScreenLockObserver final : public QObject {
    Q_OBJECT
public:
    explicit ScreenLockObserver(std::function<void(bool locked)> onChange,
                                QObject* parent = nullptr);
    ~ScreenLockObserver() override;

    bool isListening() const { return m_listening; }

private Q_SLOTS:
    void activeChanged(bool active);

private:
    std::function<void(bool)> m_onChange;
    bool m_listening = false;
};

} // namespace ambrel
