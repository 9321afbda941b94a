#pragma once

#include <csignal>

#include "platform/qt/SignalEvents.h"

namespace ambrel {

// Turns SIGTERM, SIGINT and SIGHUP (a session logging out, Ctrl+C in a terminal, a closed
// terminal) into an orderly quit of the event loop, so the quit sequence runs as it does from the
// menu: the panel's frame is saved and no phone tool is left running. One object per process,
// made after the Qt application; `events` must outlive it.
class QuitSignals {
public:
    explicit QuitSignals(SignalEvents& events);
    ~QuitSignals();
    QuitSignals(const QuitSignals&) = delete;
    QuitSignals& operator=(const QuitSignals&) = delete;
};

// Holds SIGTERM, SIGINT and SIGHUP back from when it is made until release(): a quit asked while
// the program starts (its muxer already answering, the window not yet up) waits for QuitSignals,
// which quits cleanly and takes the muxer's socket with it, instead of ending the program on the
// spot. Threads started meanwhile keep them held, so the main thread takes them. Made on the main
// thread before any other thread; released when it goes at the latest.
class HeldQuitSignals {
public:
    HeldQuitSignals();
    ~HeldQuitSignals();
    HeldQuitSignals(const HeldQuitSignals&) = delete;
    HeldQuitSignals& operator=(const HeldQuitSignals&) = delete;

    // Lets the signals through again on this thread; one that came meanwhile is taken now.
    void release();

private:
    sigset_t m_previous{};
    bool m_held = false;
};

} // namespace ambrel
