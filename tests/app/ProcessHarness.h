#pragma once

#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <sys/types.h>

#include "tests/fakes/TemporaryFolder.h"

namespace ambrel::testing {

using Environment = std::map<std::string, std::string>;

// The test process's environment with `changes` applied; an empty value removes the variable.
std::vector<std::string> environmentWith(const Environment& changes);

struct ProcessResult {
    int exitCode = -1;
    bool timedOut = false;
    std::string out;
    std::string err;
};

// Runs a program to its end (killed after `timeout`), capturing both outputs.
ProcessResult runProcess(const std::vector<std::string>& arguments, const Environment& changes,
                         std::chrono::milliseconds timeout = std::chrono::seconds(20));

// A program left running; killed (SIGKILL) and reaped when this goes.
class RunningProcess {
public:
    RunningProcess(const std::vector<std::string>& arguments, const Environment& changes);
    ~RunningProcess();
    RunningProcess(const RunningProcess&) = delete;
    RunningProcess& operator=(const RunningProcess&) = delete;

    pid_t pid() const { return m_pid; }
    bool isRunning();
    // Waits for the end for at most `timeout`; the exit code, or absent when still running.
    std::optional<int> waitForExit(std::chrono::milliseconds timeout);
    // SIGTERM, then SIGKILL when it does not end within `grace`.
    void stop(std::chrono::milliseconds grace = std::chrono::seconds(3));
    // What it wrote to standard error so far (a file under the temporary folder).
    std::string errorOutput() const;
    // What it wrote to standard output so far.
    std::string standardOutput() const;

private:
    pid_t m_pid = -1;
    std::optional<int> m_exitCode;
    TemporaryFolder m_logs;
};

// The program under test as built.
std::filesystem::path builtProgram();

// Copies the built program into `root`/bin with its bundle information beside it in
// `root`/share/tovrin and an empty tool folder, so that no phone tool ever runs. Returns the
// copied executable.
std::filesystem::path makeBundle(const std::filesystem::path& root);

std::string readText(const std::filesystem::path& path);
void writeText(const std::filesystem::path& path, const std::string& text);

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

} // namespace ambrel::testing
