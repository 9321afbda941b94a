#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "tests/fakes/ChildProcess.h"
#include "tests/fakes/ProgramBundle.h"
#include "tests/fakes/TemporaryFolder.h"

namespace ambrel::testing {

// A bus address where nothing listens: a session without that bus.
inline constexpr const char* kNoBus = "unix:path=/nonexistent/tovrin-test-bus";

// A private user session under `root`: home, config, data, runtime (made, mode 0700) and
// temporary (made) folders of its own and no Wayland display, with `changes` on top.
EnvironmentChanges privateSession(const std::filesystem::path& root,
                                  const EnvironmentChanges& changes = {});

// Copies the built program into `root`/bin with its bundle information beside it in
// `root`/share/tovrin and an empty tool folder, so that no phone tool ever runs. Returns the
// copied executable.
std::filesystem::path makeBundle(const std::filesystem::path& root);

std::string readText(const std::filesystem::path& path);
void writeText(const std::filesystem::path& path, const std::string& text);

// How long a test waits for what must happen (a window mapped, a file written, a program
// ended) before it gives up. Generous on purpose: it costs time only when the test fails
// anyway, and a loaded machine may take many seconds to start a program on an X server.
inline constexpr std::chrono::seconds kPatience{60};

// Polls `condition` every 50 ms until it holds or `timeout` passes.
template <typename Condition>
bool eventually(Condition condition, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (true) {
        if (condition()) {
            return true;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
}

// A dbus-daemon of the test's own, of `type` "system" or "session", listening in `folder`;
// stopped when this object goes.
class PrivateBus {
public:
    PrivateBus(const std::filesystem::path& folder, const std::string& type);

    bool isReady() const { return m_ready; }
    std::string address() const { return "unix:path=" + m_socket.string(); }

private:
    std::filesystem::path m_socket;
    std::unique_ptr<ChildProcess> m_daemon;
    bool m_ready = false;
};

} // namespace ambrel::testing
