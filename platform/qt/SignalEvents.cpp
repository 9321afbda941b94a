#include "platform/qt/SignalEvents.h"

#include <cerrno>
#include <csignal>

#include <QMetaObject>
#include <QSocketNotifier>

#include <fcntl.h>
#include <unistd.h>

namespace ambrel {

namespace {

// The process's one signal pipe: made once, kept for the life of the process.
int g_pipe[2] = {-1, -1};

void writeSignalNumber(int signal) {
    const int saved = errno;
    const auto byte = static_cast<unsigned char>(signal);
    [[maybe_unused]] const auto written = ::write(g_pipe[1], &byte, 1);
    errno = saved;
}

bool makePipe() {
    return g_pipe[0] >= 0 || ::pipe2(g_pipe, O_CLOEXEC | O_NONBLOCK) == 0;
}

} // namespace

bool SignalEvents::catchSignal(int signal) {
    if (!makePipe()) {
        return false;
    }
    struct sigaction action {};
    action.sa_handler = writeSignalNumber;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    return ::sigaction(signal, &action, nullptr) == 0;
}

void SignalEvents::release(int signal) {
    struct sigaction action {};
    action.sa_handler = SIG_DFL;
    sigemptyset(&action.sa_mask);
    ::sigaction(signal, &action, nullptr);
}

SignalEvents::SignalEvents() {
    if (!makePipe()) {
        return;
    }
    m_notifier = std::make_unique<QSocketNotifier>(g_pipe[0], QSocketNotifier::Read);
    QObject::connect(m_notifier.get(), &QSocketNotifier::activated, m_notifier.get(),
                     [this] { readPipe(); });
}

SignalEvents::~SignalEvents() = default;

void SignalEvents::handle(int signal, std::function<void()> handler) {
    m_handlers[signal] = std::move(handler);
    // Arrivals already read wait for the event loop too, like those still in the pipe: a quit
    // asked before the loop runs must not be lost.
    const auto waiting = m_waiting.find(signal);
    if (waiting != m_waiting.end() && m_notifier) {
        m_waiting.erase(waiting);
        QMetaObject::invokeMethod(
            m_notifier.get(),
            [this, signal] {
                if (const auto found = m_handlers.find(signal); found != m_handlers.end()) {
                    found->second();
                }
            },
            Qt::QueuedConnection);
    }
}

void SignalEvents::readPipe() {
    if (g_pipe[0] < 0) {
        return;
    }
    std::map<int, int> arrived;
    unsigned char buffer[64];
    ssize_t count = 0;
    while ((count = ::read(g_pipe[0], buffer, sizeof buffer)) > 0) {
        for (ssize_t index = 0; index < count; ++index) {
            ++arrived[buffer[index]];
        }
    }
    for (const auto& [signal, times] : arrived) {
        const auto handler = m_handlers.find(signal);
        if (handler == m_handlers.end()) {
            m_waiting[signal] += times;
        } else if (handler->second) {
            handler->second();
        }
    }
}

} // namespace ambrel
