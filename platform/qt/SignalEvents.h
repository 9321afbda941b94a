#pragma once

#include <functional>
#include <map>
#include <memory>

class QSocketNotifier;

namespace ambrel {

// POSIX signals as events of the main loop. A caught signal's handler does nothing but write the
// signal's number to one pipe of the process (signal handlers are process-wide, so the pipe is
// too); the event loop reads it and calls what was registered for that signal. The program's one
// way of taking signals (quit on SIGTERM, a later launch's SIGUSR1). Main thread only.
class SignalEvents {
public:
    // Catches `signal` from now on, before or after the event loop exists: an arrival waits in
    // the pipe until it is handled. False when the pipe or the handler cannot be had.
    static bool catchSignal(int signal);
    // Gives `signal` its default action back.
    static void release(int signal);

    // Watches the pipe; needs the Qt application.
    SignalEvents();
    ~SignalEvents();
    SignalEvents(const SignalEvents&) = delete;
    SignalEvents& operator=(const SignalEvents&) = delete;

    // Calls `handler` on the main thread once for each arrival of `signal` that is read (arrivals
    // close together may come as one), including those that came before this call.
    void handle(int signal, std::function<void()> handler);

private:
    void readPipe();

    std::unique_ptr<QSocketNotifier> m_notifier;
    std::map<int, std::function<void()>> m_handlers;
    // Arrivals read before their signal had a handler.
    std::map<int, int> m_waiting;
};

} // namespace ambrel
