#include "tests/fakes/ChildProcess.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <fstream>
#include <iterator>
#include <thread>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "tests/fakes/TemporaryFolder.h"

extern char** environ;

namespace ambrel::testing {

namespace {

using Clock = std::chrono::steady_clock;

std::vector<char*> pointers(const std::vector<std::string>& strings) {
    std::vector<char*> result;
    result.reserve(strings.size() + 1);
    for (const auto& text : strings) {
        result.push_back(const_cast<char*>(text.c_str()));
    }
    result.push_back(nullptr);
    return result;
}

Clock::time_point deadlineAfter(std::chrono::duration<double> limit) {
    return Clock::now() + std::chrono::duration_cast<Clock::duration>(limit);
}

// Milliseconds to `deadline` rounded up, so that a wait never ends before it.
int millisecondsUntil(Clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    return left.count() < 0 ? 0 : static_cast<int>(left.count());
}

void closeFd(int& fd) {
    if (fd >= 0) {
        ::close(fd);
        fd = -1;
    }
}

std::string readFile(const std::filesystem::path& path) {
    if (path.empty()) {
        return {};
    }
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

int openForChild(OutputTo target, const std::filesystem::path& file) {
    if (target == OutputTo::inherit) {
        return -1;
    }
    if (target == OutputTo::file) {
        const int fd = ::open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
        if (fd >= 0) {
            return fd;
        }
    }
    return ::open("/dev/null", O_WRONLY | O_CLOEXEC);
}

// Appends what one read of `fd` gives to `sink`; false at end of file or on an error.
bool readInto(int fd, std::string& sink) {
    std::array<char, 4096> buffer{};
    ssize_t count = 0;
    do {
        count = ::read(fd, buffer.data(), buffer.size());
    } while (count < 0 && errno == EINTR);
    if (count > 0) {
        sink.append(buffer.data(), static_cast<std::size_t>(count));
        return true;
    }
    return false;
}

} // namespace

std::vector<std::string> environmentWith(const EnvironmentChanges& changes) {
    std::vector<std::string> result;
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const auto name = text.substr(0, text.find('='));
        if (changes.find(name) == changes.end()) {
            result.push_back(text);
        }
    }
    for (const auto& [name, value] : changes) {
        if (value) {
            result.push_back(name + "=" + *value);
        }
    }
    return result;
}

ChildProcess::ChildProcess(ProcessOptions options) {
    start(std::move(options));
}

ChildProcess::ChildProcess(const std::vector<std::string>& arguments,
                           const std::vector<std::string>& environment,
                           const std::filesystem::path& errorFile) {
    ProcessOptions options;
    options.arguments = arguments;
    options.environment = environment;
    options.error = OutputTo::file;
    options.errorFile = errorFile;
    start(std::move(options));
}

ChildProcess::ChildProcess(const std::vector<std::string>& arguments,
                           const EnvironmentChanges& changes) {
    ProcessOptions options;
    options.arguments = arguments;
    options.environment = environmentWith(changes);
    options.output = OutputTo::file;
    options.error = OutputTo::file;
    start(std::move(options));
}

void ChildProcess::start(ProcessOptions options) {
    if (options.arguments.empty()) {
        return;
    }
    if ((options.output == OutputTo::file && options.outputFile.empty()) ||
        (options.error == OutputTo::file && options.errorFile.empty())) {
        m_logs = std::make_unique<TemporaryFolder>();
        if (options.outputFile.empty()) {
            options.outputFile = m_logs->path() / "out";
        }
        if (options.errorFile.empty()) {
            options.errorFile = m_logs->path() / "err";
        }
    }
    if (options.output == OutputTo::file) {
        m_outputFile = options.outputFile;
    }
    if (options.error == OutputTo::file) {
        m_errorFile = options.errorFile;
    }

    std::array<int, 2> outPipe{-1, -1};
    std::array<int, 2> errPipe{-1, -1};
    if (options.output == OutputTo::pipe) {
        if (::pipe2(outPipe.data(), O_CLOEXEC) != 0) {
            return;
        }
    } else {
        outPipe[1] = openForChild(options.output, options.outputFile);
    }
    if (options.error == OutputTo::pipe) {
        if (::pipe2(errPipe.data(), O_CLOEXEC) != 0) {
            closeFd(outPipe[0]);
            closeFd(outPipe[1]);
            return;
        }
    } else {
        errPipe[1] = openForChild(options.error, options.errorFile);
    }

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    if (outPipe[1] >= 0) {
        posix_spawn_file_actions_adddup2(&actions, outPipe[1], STDOUT_FILENO);
    }
    if (errPipe[1] >= 0) {
        posix_spawn_file_actions_adddup2(&actions, errPipe[1], STDERR_FILENO);
    }
    if (options.descriptorThree >= 0) {
        posix_spawn_file_actions_adddup2(&actions, options.descriptorThree, 3);
    }
    if (!options.workingDirectory.empty()) {
        posix_spawn_file_actions_addchdir_np(&actions, options.workingDirectory.c_str());
    }
    // A fresh process group, so that stopping the child reaches whatever it starts.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    posix_spawnattr_setpgroup(&attributes, 0);

    const auto argv = pointers(options.arguments);
    const auto envp = pointers(options.environment);
    pid_t pid = -1;
    const int error = posix_spawn(&pid, options.arguments.front().c_str(), &actions, &attributes,
                                  argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    closeFd(outPipe[1]);
    closeFd(errPipe[1]);
    if (error != 0) {
        closeFd(outPipe[0]);
        closeFd(errPipe[0]);
        return;
    }
    m_pid = pid;
    m_outFd = outPipe[0];
    m_errFd = errPipe[0];
    // A descriptor that becomes readable when the child ends, so that waits need no polling
    // loop; without one (an old kernel) the waits fall back to short naps.
    m_pidFd = static_cast<int>(::syscall(SYS_pidfd_open, m_pid, 0));
}

ChildProcess::~ChildProcess() {
    stop(std::chrono::seconds(2));
    closeFd(m_outFd);
    closeFd(m_errFd);
    closeFd(m_pidFd);
}

std::optional<std::string> ChildProcess::readLine(std::chrono::duration<double> limit) {
    const auto deadline = deadlineAfter(limit);
    while (true) {
        const auto newline = m_pending.find('\n');
        if (newline != std::string::npos) {
            std::string line = m_pending.substr(0, newline);
            m_pending.erase(0, newline + 1);
            return line;
        }
        if (m_outFd < 0) {
            return std::nullopt;
        }
        pollfd entry{m_outFd, POLLIN, 0};
        const int ready = ::poll(&entry, 1, millisecondsUntil(deadline));
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (ready <= 0) {
            return std::nullopt;
        }
        if (!readInto(m_outFd, m_pending)) {
            closeFd(m_outFd);
        }
    }
}

ProcessOutcome ChildProcess::finish(std::chrono::duration<double> limit) {
    ProcessOutcome outcome;
    if (!isStarted()) {
        return outcome;
    }
    outcome.started = true;
    const auto start = Clock::now();
    const auto deadline = deadlineAfter(limit);
    std::array<int*, 2> streams{&m_outFd, &m_errFd};
    std::array<std::string*, 2> sinks{&outcome.out, &outcome.err};
    outcome.out = std::move(m_pending);
    m_pending.clear();
    // Reads while the child runs, then what is left in the pipes. A grandchild that keeps a pipe
    // open after the child is gone does not hold the run up.
    while (!hasEnded()) {
        std::array<pollfd, 3> fds{pollfd{m_outFd, POLLIN, 0}, pollfd{m_errFd, POLLIN, 0},
                                  pollfd{m_pidFd, POLLIN, 0}};
        const int timeout =
            m_pidFd >= 0 ? millisecondsUntil(deadline) : std::min(10, millisecondsUntil(deadline));
        if (::poll(fds.data(), fds.size(), timeout) > 0) {
            for (std::size_t i = 0; i < streams.size(); ++i) {
                if (fds[i].revents != 0 && !readInto(fds[i].fd, *sinks[i])) {
                    closeFd(*streams[i]);
                }
            }
        }
        if (Clock::now() >= deadline && !hasEnded()) {
            outcome.timedOut = true;
            killGroupOnce();
            int status = 0;
            while (::waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
            }
            m_waitStatus = status;
        }
    }
    const auto drainDeadline = Clock::now() + std::chrono::seconds(1);
    while ((m_outFd >= 0 || m_errFd >= 0) && Clock::now() < drainDeadline) {
        std::array<pollfd, 2> fds{pollfd{m_outFd, POLLIN, 0}, pollfd{m_errFd, POLLIN, 0}};
        if (::poll(fds.data(), fds.size(), 0) <= 0) {
            break;
        }
        for (std::size_t i = 0; i < streams.size(); ++i) {
            if (fds[i].revents != 0 && !readInto(fds[i].fd, *sinks[i])) {
                closeFd(*streams[i]);
            }
        }
    }
    closeFd(m_outFd);
    closeFd(m_errFd);
    outcome.elapsed = Clock::now() - start;
    const int status = m_waitStatus.value_or(0);
    if (WIFEXITED(status)) {
        outcome.exitCode = WEXITSTATUS(status);
    } else if (WIFSIGNALED(status)) {
        outcome.signal = WTERMSIG(status);
    }
    return outcome;
}

bool ChildProcess::hasEnded() {
    if (m_waitStatus || m_pid <= 0 || m_reapedElsewhere) {
        return true;
    }
    // Looks without reaping: while the ended child is not reaped its number still names its
    // group, so the group can be cleared without hitting a newer process given that number.
    siginfo_t info{};
    int looked = -1;
    do {
        looked = ::waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOHANG | WNOWAIT);
    } while (looked < 0 && errno == EINTR);
    if (looked < 0) {
        // Someone else reaped it: it has ended, how is unknown, and its group number may
        // already belong to another process, so it is left alone.
        m_reapedElsewhere = errno == ECHILD;
        return m_reapedElsewhere;
    }
    if (info.si_pid != m_pid) {
        return false;
    }
    killGroupOnce();
    int status = 0;
    while (::waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
    }
    m_waitStatus = status;
    return true;
}

void ChildProcess::killGroupOnce() {
    if (!m_groupKilled) {
        m_groupKilled = true;
        ::kill(-m_pid, SIGKILL);
    }
}

std::optional<int> ChildProcess::waitForExit(std::chrono::duration<double> limit) {
    if (m_pid <= 0) {
        return -1;
    }
    const auto deadline = deadlineAfter(limit);
    while (!hasEnded()) {
        if (Clock::now() >= deadline) {
            return std::nullopt;
        }
        if (m_pidFd >= 0) {
            pollfd entry{m_pidFd, POLLIN, 0};
            ::poll(&entry, 1, millisecondsUntil(deadline));
        } else {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    if (!m_waitStatus) {
        return -1;
    }
    const int status = *m_waitStatus;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

int ChildProcess::stop(std::chrono::duration<double> grace) {
    if (m_pid <= 0) {
        return -1;
    }
    if (!hasEnded()) {
        ::kill(-m_pid, SIGTERM);
        if (!waitForExit(grace)) {
            // The child is not reaped yet, so its group number is still its own.
            killGroupOnce();
            int status = 0;
            while (::waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
            }
            m_waitStatus = status;
        }
    }
    // Whatever the child left in its group went when its end was seen (hasEnded), before the
    // child was reaped and its number could be reused.
    return m_waitStatus.value_or(-1);
}

pid_t ChildProcess::release() {
    const pid_t pid = m_pid;
    m_pid = -1;
    return pid;
}

std::string ChildProcess::standardOutput() const {
    return readFile(m_outputFile);
}

std::string ChildProcess::errorOutput() const {
    return readFile(m_errorFile);
}

ProcessOutcome runToEnd(ProcessOptions options, std::chrono::duration<double> limit) {
    options.output = OutputTo::pipe;
    options.error = OutputTo::pipe;
    ChildProcess child(std::move(options));
    return child.finish(limit);
}

ProcessOutcome runProcess(const std::vector<std::string>& arguments,
                          const std::vector<std::string>& environment,
                          std::chrono::duration<double> limit) {
    ProcessOptions options;
    options.arguments = arguments;
    options.environment = environment;
    return runToEnd(std::move(options), limit);
}

ProcessOutcome runProcess(const std::vector<std::string>& arguments,
                          const EnvironmentChanges& changes, std::chrono::duration<double> limit) {
    return runProcess(arguments, environmentWith(changes), limit);
}

} // namespace ambrel::testing
