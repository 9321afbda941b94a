#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/Environment.h"
#include "platform/qt/SignalEvents.h"

namespace ambrel {

// One running copy per user and display. The first copy holds an advisory lock on a small file
// in the user's runtime folder ($XDG_RUNTIME_DIR, else the temporary folder) and writes its
// process id there; a later launch finds the lock taken, sends SIGUSR1 to that process and
// exits. A later launch that wants more than the panel (a preview capture) leaves its arguments
// in a request file beside the lock before it signals. No socket is opened, and it works with
// or without a session bus. The lock goes away
// with the process, so a crash leaves nothing stale behind. The signal is turned into an event
// through a pipe watched by the event loop (nothing but a write happens in the handler).
class SingleInstance {
public:
    enum class Claim {
        // This is the only copy; keep the object for the life of the process.
        first,
        // Another copy runs and was asked to come forward.
        handedOver,
    };

    // The lock file for this user and display.
    static std::filesystem::path lockPath(const std::string& identifier,
                                          const Environment& environment);

    // A later launch's wish, as arguments (a program name first); empty: just come forward.
    using Request = std::vector<std::string>;

    // Claims the lock; when another copy holds it, hands `request` over and asks that copy to
    // come forward. A lock that cannot be used at all (no folder, a file of someone else) lets
    // this copy run.
    static std::pair<Claim, std::unique_ptr<SingleInstance>>
    claim(const std::filesystem::path& lockFile, const Request& request = {});

    ~SingleInstance();
    SingleInstance(const SingleInstance&) = delete;
    SingleInstance& operator=(const SingleInstance&) = delete;

    // Calls `onRequest` on the main thread whenever a later launch asks this copy to come
    // forward, once per request handed over, including requests that came before this call.
    // Needs the Qt application.
    void listen(SignalEvents& events, std::function<void(const Request&)> onRequest);

private:
    SingleInstance(int lockDescriptor, std::filesystem::path lockFile);
    // Reads and removes the request files left beside the lock.
    std::vector<Request> takeRequests() const;

    int m_lockDescriptor = -1;
    std::filesystem::path m_lockFile;
    std::function<void(const Request&)> m_onRequest;
};

} // namespace ambrel
