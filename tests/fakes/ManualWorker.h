#pragma once

#include <deque>
#include <functional>
#include <vector>

#include "platform/Worker.h"

namespace ambrel::testing {

class SimulatedScheduler;

// A worker that holds its jobs until the test runs them, on the test's own thread. A pause
// inside a job moves the simulated clock instead of sleeping.
class ManualWorker final : public Worker {
public:
    explicit ManualWorker(SimulatedScheduler& scheduler) : m_scheduler(scheduler) {}

    void run(std::function<void()> job) override { m_jobs.push_back(std::move(job)); }
    void pause(std::chrono::milliseconds delay) override;

    // Runs the jobs started so far (and any they start). Returns how many ran.
    int runJobs();
    std::size_t pendingJobs() const { return m_jobs.size(); }
    // Every pause so far, in seconds.
    const std::vector<double>& pauses() const { return m_pauses; }

private:
    SimulatedScheduler& m_scheduler;
    std::deque<std::function<void()>> m_jobs;
    std::vector<double> m_pauses;
};

} // namespace ambrel::testing
