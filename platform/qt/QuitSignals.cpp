#include "platform/qt/QuitSignals.h"

#include <csignal>

#include <QCoreApplication>

#include <pthread.h>

namespace ambrel {

namespace {

constexpr int kQuitSignals[] = {SIGTERM, SIGINT, SIGHUP};

} // namespace

QuitSignals::QuitSignals(SignalEvents& events) {
    for (const int signalNumber : kQuitSignals) {
        if (SignalEvents::catchSignal(signalNumber)) {
            events.handle(signalNumber, [] { QCoreApplication::quit(); });
        }
    }
}

QuitSignals::~QuitSignals() {
    for (const int signalNumber : kQuitSignals) {
        SignalEvents::release(signalNumber);
    }
}

HeldQuitSignals::HeldQuitSignals() {
    sigset_t quit;
    sigemptyset(&quit);
    for (const int signalNumber : kQuitSignals) {
        sigaddset(&quit, signalNumber);
    }
    m_held = ::pthread_sigmask(SIG_BLOCK, &quit, &m_previous) == 0;
}

HeldQuitSignals::~HeldQuitSignals() {
    release();
}

void HeldQuitSignals::release() {
    if (m_held) {
        m_held = false;
        ::pthread_sigmask(SIG_SETMASK, &m_previous, nullptr);
    }
}

} // namespace ambrel
