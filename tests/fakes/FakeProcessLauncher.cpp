#include "tests/fakes/FakeProcessLauncher.h"

#include <utility>

namespace ambrel::testing {

void FakeProcessLauncher::setResponder(Responder responder) {
    const std::lock_guard guard(m_lock);
    m_responder = std::move(responder);
}

void FakeProcessLauncher::enqueue(LaunchResult result) {
    const std::lock_guard guard(m_lock);
    m_queued.push_back(std::move(result));
}

LaunchResult FakeProcessLauncher::launch(const LaunchOptions& options) {
    Responder responder;
    {
        const std::lock_guard guard(m_lock);
        m_launches.push_back(options);
        if (!m_queued.empty()) {
            auto result = std::move(m_queued.front());
            m_queued.pop_front();
            return result;
        }
        responder = m_responder;
    }
    // Outside the lock, so a responder may look at launches() or queue more.
    return responder ? responder(options) : LaunchResult{};
}

std::vector<LaunchOptions> FakeProcessLauncher::launches() const {
    const std::lock_guard guard(m_lock);
    return m_launches;
}

LaunchResult exitedWith(int exitCode, std::string standardOutput, std::string standardError) {
    LaunchResult result;
    result.end = LaunchEnd::exited;
    result.exitCode = exitCode;
    result.standardOutput = std::move(standardOutput);
    result.standardError = std::move(standardError);
    return result;
}

} // namespace ambrel::testing
