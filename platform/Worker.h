#pragma once

#include <chrono>
#include <functional>

namespace ambrel {

// Background work off the main thread, at low priority. A job gets copies of what it needs
// and hands back its one result through MainScheduler::post.
class Worker {
public:
    virtual ~Worker() = default;
    // Thread-safe. Starts `job` on a background thread and returns at once.
    virtual void run(std::function<void()> job) = 0;
    // Called from inside a job: waits `delay` before the job goes on.
    virtual void pause(std::chrono::milliseconds delay) = 0;
};

} // namespace ambrel
