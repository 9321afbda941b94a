#pragma once

#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace ambrel::testing {

class TemporaryFolder;

// Environment changes for a child: a value sets the variable, an empty optional removes it.
using EnvironmentChanges = std::map<std::string, std::optional<std::string>>;

// This process's environment with `changes` applied, as "NAME=value" strings.
std::vector<std::string> environmentWith(const EnvironmentChanges& changes);

// Where one of a child's output streams goes.
enum class OutputTo {
    // A pipe this side reads (readLine, runToEnd, outputDescriptor).
    pipe,
    // A file: the given one, or one in a folder of the child's own when no path is given.
    file,
    discard,
    // The test's own stream.
    inherit,
};

struct ProcessOptions {
    // The program's absolute path first: no shell, no path search.
    std::vector<std::string> arguments;
    // The whole environment, as "NAME=value" strings.
    std::vector<std::string> environment = environmentWith({});
    // Empty: the test's own working directory.
    std::filesystem::path workingDirectory;
    OutputTo output = OutputTo::pipe;
    std::filesystem::path outputFile;
    OutputTo error = OutputTo::pipe;
    std::filesystem::path errorFile;
    // A descriptor of the test handed to the child as its descriptor 3 (-1: none).
    int descriptorThree = -1;
};

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

// The one way tests start programs. The child runs in a process group of its own with standard
// input from /dev/null; when this object goes, the group gets SIGTERM, a short grace and then
// SIGKILL, so that neither the child nor anything it started outlives the test.
class ChildProcess {
public:
    explicit ChildProcess(ProcessOptions options);
    // Standard output on a pipe (readLine), standard error to `errorFile`.
    ChildProcess(const std::vector<std::string>& arguments,
                 const std::vector<std::string>& environment,
                 const std::filesystem::path& errorFile);
    // This environment with `changes`; both outputs to files of the child's own
    // (standardOutput, errorOutput).
    ChildProcess(const std::vector<std::string>& arguments, const EnvironmentChanges& changes);
    ~ChildProcess();
    ChildProcess(const ChildProcess&) = delete;
    ChildProcess& operator=(const ChildProcess&) = delete;

    bool isStarted() const { return m_pid > 0; }
    pid_t pid() const { return m_pid; }

    // The reading end of the standard output pipe, or -1; it stays owned by this object.
    int outputDescriptor() const { return m_outFd; }

    // The next line of standard output without its newline; nothing when the program closes
    // its output or `limit` passes first.
    std::optional<std::string> readLine(std::chrono::duration<double> limit);

    // Reads both piped outputs until the program has ended, killing its group at `limit`.
    ProcessOutcome finish(std::chrono::duration<double> limit);

    // Whether the program has ended (reaps it if so).
    bool hasEnded();
    bool isRunning() { return !hasEnded(); }

    // Waits at most `limit` for the end: the exit code, or 128 + the signal's number as a shell
    // reports it; nothing while it still runs.
    std::optional<int> waitForExit(std::chrono::duration<double> limit);

    // SIGTERM, up to `grace` for it to end, then SIGKILL to its whole group. Returns the wait
    // status, or -1.
    int stop(std::chrono::duration<double> grace = std::chrono::seconds(3));

    // Lets the program run on by itself: this object no longer waits for it nor stops it when
    // it goes. For a program that must outlive the one that started it. Returns its number,
    // or -1 when it did not start.
    pid_t release();

    // What the program wrote so far to its output files.
    std::string standardOutput() const;
    std::string errorOutput() const;

private:
    void start(ProcessOptions options);
    // SIGKILL to the child's group, once, while the child is not yet reaped.
    void killGroupOnce();

    pid_t m_pid = -1;
    int m_pidFd = -1;
    int m_outFd = -1;
    int m_errFd = -1;
    std::string m_pending;
    std::optional<int> m_waitStatus;
    bool m_groupKilled = false;
    bool m_reapedElsewhere = false;
    std::filesystem::path m_outputFile;
    std::filesystem::path m_errorFile;
    std::unique_ptr<TemporaryFolder> m_logs;
};

// Runs a program to its end with both outputs captured, killing its group at `limit`. Blocks.
ProcessOutcome runToEnd(ProcessOptions options, std::chrono::duration<double> limit);

ProcessOutcome runProcess(const std::vector<std::string>& arguments,
                          const std::vector<std::string>& environment,
                          std::chrono::duration<double> limit);

// This environment with `changes`; 20 s unless told.
ProcessOutcome runProcess(const std::vector<std::string>& arguments,
                          const EnvironmentChanges& changes,
                          std::chrono::duration<double> limit = std::chrono::seconds(20));

} // namespace ambrel::testing
