#include "app/QuitSignals.h"

#include <cerrno>
#include <csignal>

#include <QCoreApplication>
#include <QSocketNotifier>

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

namespace ambrel {

namespace {

int g_quitPipe[2] = {-1, -1};

void quitHandler(int) {
    const int saved = errno;
    const char byte = 1;
    [[maybe_unused]] const auto written = ::write(g_quitPipe[1], &byte, 1);
    errno = saved;
}

} // namespace

QuitSignals::QuitSignals() {
    if (g_quitPipe[0] < 0 && ::pipe2(g_quitPipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        return;
    }
    m_notifier = std::make_unique<QSocketNotifier>(g_quitPipe[0], QSocketNotifier::Read);
    QObject::connect(m_notifier.get(), &QSocketNotifier::activated, m_notifier.get(), [] {
        char buffer[16];
        while (::read(g_quitPipe[0], buffer, sizeof buffer) > 0) {
        }
        QCoreApplication::quit();
    });
    struct sigaction action {};
    action.sa_handler = quitHandler;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    for (const int signalNumber : {SIGTERM, SIGINT, SIGHUP}) {
        ::sigaction(signalNumber, &action, nullptr);
    }
}

QuitSignals::~QuitSignals() {
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    for (const int signalNumber : {SIGTERM, SIGINT, SIGHUP}) {
        ::sigaction(signalNumber, &action, nullptr);
    }
}

HeldQuitSignals::HeldQuitSignals() {
    sigset_t quit;
    sigemptyset(&quit);
    for (const int signalNumber : {SIGTERM, SIGINT, SIGHUP}) {
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
