#pragma once

#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <sys/types.h>
#include <vector>

namespace ambrel::testing {

// How one finished (or cut off) program run ended, with everything it printed.
struct ProcessOutcome {
    bool started = false;
    // The exit code when the program ended by itself with exit(); -1 otherwise.
    int exitCode = -1;
    // The signal that ended it, or 0.
    int signal = 0;
    // True when the harness killed it at its time limit.
    bool timedOut = false;
    std::string out;
    std::string err;
    std::chrono::duration<double> elapsed{0};
};

// Environment changes for a child: a value sets the variable, an empty optional removes it.
using EnvironmentChanges = std::map<std::string, std::optional<std::string>>;

// This process's environment with `changes` applied, as "NAME=value" strings.
std::vector<std::string> environmentWith(const EnvironmentChanges& changes);

// Runs `arguments` (the first is the program's absolute path; no shell, no path search) with
// standard input from /dev/null, both outputs captured, and SIGKILL at `limit`. Blocks.
ProcessOutcome runProcess(const std::vector<std::string>& arguments,
                          const std::vector<std::string>& environment,
                          std::chrono::duration<double> limit);

// A program left running in the background: standard output comes back through a pipe (read it
// with readLine), standard error goes to `errorFile`. Ended with SIGTERM, then SIGKILL, when the
// object goes.
class ChildProcess {
public:
    ChildProcess(const std::vector<std::string>& arguments,
                 const std::vector<std::string>& environment,
                 const std::filesystem::path& errorFile);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    bool isStarted() const { return m_pid > 0; }
    pid_t pid() const { return m_pid; }

    // The next line of standard output without its newline; nothing when the program closes
    // its output or `limit` passes first.
    std::optional<std::string> readLine(std::chrono::duration<double> limit);

    // Whether the program has ended (reaps it if so).
    bool hasEnded();

    // SIGTERM, up to `grace` for it to end, then SIGKILL. Returns the wait status, or -1.
    int stop(std::chrono::duration<double> grace = std::chrono::seconds(2));

private:
    pid_t m_pid = -1;
    int m_outFd = -1;
    std::string m_pending;
    std::optional<int> m_waitStatus;
};

} // namespace ambrel::testing
