#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/ProcessLauncher.h"

namespace ambrel {

// Starts children with posix_spawn. A child gets every signal at its default disposition, an
// empty signal mask, standard input on /dev/null, and no open descriptor besides 0, 1 and 2; it
// inherits the environment and the working directory. The launching thread alone waits for
// the child: it polls both pipes and the child's pidfd (a pidfd and waitid on it: Linux 5.4 or
// later) together, drains the pipes past the cap, so the child never blocks on a full pipe, and
// reaps the child exactly once, through its pidfd, so a signal can never reach a later process with
// the same pid. Only a child that outlives SIGKILL gets a thread, which reaps it when it finally
// ends. The launcher only ever reads from the pipes, so it cannot raise SIGPIPE in this program. A
// signalled child's status is reported by its signal number.
//
// One object serves the whole program, which owns it and shuts it down when it quits.
// Thread-safe.
class SpawnProcessLauncher final : public ProcessLauncher {
public:
    // The children get this process's environment.
    SpawnProcessLauncher();
    // The children get exactly `environment` ("NAME=value" entries).
    explicit SpawnProcessLauncher(std::vector<std::string> environment);
    // Shuts down first; launches must have returned by then.
    ~SpawnProcessLauncher() override;
    SpawnProcessLauncher(const SpawnProcessLauncher&) = delete;
    SpawnProcessLauncher& operator=(const SpawnProcessLauncher&) = delete;

    LaunchResult launch(const LaunchOptions& options) override;

    // For a program that is quitting: from now on every launch ends at once as not started, and
    // the children of launches in progress get SIGKILL (those launches then end promptly as
    // signalled). A read on its way then cannot start its next tool behind the program's back.
    // Any thread; there is no way back.
    void shutDown();

private:
    class Child;
    class Spawner;

    std::mutex m_lock;
    // The children of launches in progress. Spawning happens under the same lock, so a child
    // can never be started but not yet listed when shutDown() looks.
    std::vector<std::shared_ptr<Child>> m_children;
    bool m_isShutDown = false;
    std::optional<std::vector<std::string>> m_environment;
    // Starts the children on a thread made with the launcher, at the priority of the thread that
    // made it (see launch()).
    std::unique_ptr<Spawner> m_spawner;
};

} // namespace ambrel
