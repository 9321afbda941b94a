#pragma once

#include <memory>

class QSocketNotifier;

namespace ambrel {

// Turns SIGTERM, SIGINT and SIGHUP (a session logging out, Ctrl+C in a terminal, a closed
// terminal) into an orderly quit of the event loop, so the quit sequence runs as it does from the
// menu: the panel's frame is saved and no phone tool is left running. The handler only writes a
// byte to a pipe; the event loop does the rest. One object per process, made after the Qt
// application.
class QuitSignals {
public:
    QuitSignals();
    ~QuitSignals();
    QuitSignals(const QuitSignals&) = delete;
    QuitSignals& operator=(const QuitSignals&) = delete;

private:
    std::unique_ptr<QSocketNotifier> m_notifier;
};

} // namespace ambrel
