#pragma once

#include "platform/Worker.h"

namespace ambrel {

// Runs each job on its own detached thread with a raised nice value (kBackgroundNice, or the
// thread's own if that is higher), so the phone read yields to everything interactive. The tools
// a job starts do not inherit it: the process launcher starts them at the program's own priority,
// since their time limits are wall time. Nothing waits for a job at exit: the process can end
// while a read is in flight.
class ThreadWorker final : public Worker {
public:
    static constexpr int kBackgroundNice = 10;

    void run(std::function<void()> job) override;
    void pause(std::chrono::milliseconds delay) override;
};

} // namespace ambrel
