#pragma once

#include "platform/Worker.h"

namespace ambrel {

// Runs each job on its own detached thread with a raised nice value (10, or the thread's own if
// that is higher), so the phone read and the tools it starts (which inherit the value) yield to
// everything interactive without being starved the way an idle-class thread would be on a busy
// machine. Nothing waits for a job at exit: the process can end while a read is in flight.
class ThreadWorker final : public Worker {
public:
    void run(std::function<void()> job) override;
    void pause(std::chrono::milliseconds delay) override;
};

} // namespace ambrel
