#include "platform/qt/ScreenLockObserver.h"

#include <array>

#include <QDBusConnection>

namespace ambrel {

namespace {

struct ScreenSaver {
    const char* path;
    const char* interface;
};

// Signals are taken from whoever sends them (the saver's unique name differs per session).
constexpr std::array<ScreenSaver, 2> kScreenSavers = {{
    {"/org/freedesktop/ScreenSaver", "org.freedesktop.ScreenSaver"},
    {"/org/gnome/ScreenSaver", "org.gnome.ScreenSaver"},
}};
const QString kActiveChanged = QStringLiteral("ActiveChanged");

} // namespace

ScreenLockObserver::ScreenLockObserver(std::function<void(bool locked)> onChange, QObject* parent)
    : QObject(parent), m_onChange(std::move(onChange)) {
    auto bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        return;
    }
    for (const auto& saver : kScreenSavers) {
        m_listening = bus.connect(QString(), QString::fromLatin1(saver.path),
                                  QString::fromLatin1(saver.interface), kActiveChanged, this,
                                  SLOT(activeChanged(bool))) ||
                      m_listening;
    }
}

ScreenLockObserver::~ScreenLockObserver() {
    if (!m_listening) {
        return;
    }
    auto bus = QDBusConnection::sessionBus();
    for (const auto& saver : kScreenSavers) {
        bus.disconnect(QString(), QString::fromLatin1(saver.path),
                       QString::fromLatin1(saver.interface), kActiveChanged, this,
                       SLOT(activeChanged(bool)));
    }
}

void ScreenLockObserver::activeChanged(bool active) {
    if (m_onChange) {
        m_onChange(active);
    }
}

} // namespace ambrel
