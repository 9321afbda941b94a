#pragma once

#include <deque>
#include <functional>
#include <mutex>
#include <vector>

#include "platform/ProcessLauncher.h"

namespace ambrel::testing {

// A launcher that starts nothing: each launch is recorded and answered by the test's script.
// Thread-safe.
class FakeProcessLauncher final : public ProcessLauncher {
public:
    using Responder = std::function<LaunchResult(const LaunchOptions&)>;

    // Answers every launch that finds no scripted result queued.
    void setResponder(Responder responder);
    // Queues `result` for the next launch; queued results go first, in order.
    void enqueue(LaunchResult result);

    // Answers from the queue, else from the responder, else as not started.
    LaunchResult launch(const LaunchOptions& options) override;

    // Every launch so far, in order.
    std::vector<LaunchOptions> launches() const;

private:
    mutable std::mutex m_lock;
    std::deque<LaunchResult> m_queued;
    Responder m_responder;
    std::vector<LaunchOptions> m_launches;
};

// The result of a child that printed `standardOutput` and `standardError` and exited with
// `exitCode`.
LaunchResult exitedWith(int exitCode, std::string standardOutput = {},
                        std::string standardError = {});

} // namespace ambrel::testing
