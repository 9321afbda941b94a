#include "platform/qt/WakeObserver.h"

#include <QDBusConnection>

namespace ambrel {

namespace {

const QString kLoginService = QStringLiteral("org.freedesktop.login1");
const QString kLoginPath = QStringLiteral("/org/freedesktop/login1");
const QString kLoginInterface = QStringLiteral("org.freedesktop.login1.Manager");
const QString kSignal = QStringLiteral("PrepareForSleep");

} // namespace

WakeObserver::WakeObserver(std::function<void()> onWake, QObject* parent)
    : QObject(parent), m_onWake(std::move(onWake)) {
    auto bus = QDBusConnection::systemBus();
    if (bus.isConnected()) {
        m_listening = bus.connect(kLoginService, kLoginPath, kLoginInterface, kSignal, this,
                                  SLOT(prepareForSleep(bool)));
    }
}

WakeObserver::~WakeObserver() {
    if (m_listening) {
        QDBusConnection::systemBus().disconnect(kLoginService, kLoginPath, kLoginInterface, kSignal,
                                                this, SLOT(prepareForSleep(bool)));
    }
}

void WakeObserver::prepareForSleep(bool goingToSleep) {
    if (!goingToSleep && m_onWake) {
        m_onWake();
    }
}

} // namespace ambrel
