#pragma once

#include "platform/Worker.h"

namespace ambrel {

// Runs each job on its own detached thread with a raised nice value (kBackgroundNice, or the
// thread's own if that is higher), so the phone read and the tools it starts (which inherit the
// value) yield to everything interactive. Nothing waits for a job at exit: the process can end
// while a read is in flight.
class ThreadWorker final : public Worker {
public:
    // Low enough that the desktop's own work comes first, mild enough that a tool doing real work
    // (a first pairing makes two RSA keys) still finishes inside its time limit on a machine whose
    // every core is busy: at 10, beside two busy processes on two cores, that took 3.5 to 8.7 s
    // against the 8 s limit; at 5, 3.1 to 5.4 s.
    static constexpr int kBackgroundNice = 5;

    void run(std::function<void()> job) override;
    void pause(std::chrono::milliseconds delay) override;
};

} // namespace ambrel
