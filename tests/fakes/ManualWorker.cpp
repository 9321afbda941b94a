#include "tests/fakes/ManualWorker.h"

#include "tests/fakes/SimulatedScheduler.h"

namespace ambrel::testing {

void ManualWorker::pause(std::chrono::milliseconds delay) {
    const double seconds = std::chrono::duration<double>(delay).count();
    m_pauses.push_back(seconds);
    m_scheduler.shiftClock(seconds);
}

int ManualWorker::runJobs() {
    int count = 0;
    while (!m_jobs.empty()) {
        auto job = std::move(m_jobs.front());
        m_jobs.pop_front();
        job();
        ++count;
    }
    return count;
}

} // namespace ambrel::testing
