#include "tests/simphone/ChildProcess.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

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

int millisecondsUntil(Clock::time_point deadline) {
    const auto left =
        std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
    return left.count() < 0 ? 0 : static_cast<int>(left.count());
}

// Starts `arguments` with stdin from /dev/null, stdout to `outFd` and stderr to `errFd`;
// `closeFds` are closed in the child (the parent's ends of pipes). Returns the pid or -1.
pid_t spawn(const std::vector<std::string>& arguments, const std::vector<std::string>& environment,
            int outFd, int errFd, const std::vector<int>& closeFds) {
    if (arguments.empty()) {
        return -1;
    }
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(&actions, outFd, STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, errFd, STDERR_FILENO);
    for (int fd : closeFds) {
        posix_spawn_file_actions_addclose(&actions, fd);
    }
    // A fresh process group, so that stopping the child reaches whatever it starts.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    posix_spawnattr_setpgroup(&attributes, 0);

    auto argv = pointers(arguments);
    auto envp = pointers(environment);
    pid_t pid = -1;
    const int error = posix_spawn(&pid, arguments.front().c_str(), &actions, &attributes,
                                  argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
    return error == 0 ? pid : -1;
}

void closeFd(int& fd) {
    if (fd >= 0) {
        ::close(fd);
        fd = -1;
    }
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

ProcessOutcome runProcess(const std::vector<std::string>& arguments,
                          const std::vector<std::string>& environment,
                          std::chrono::duration<double> limit) {
    ProcessOutcome outcome;
    std::array<int, 2> outPipe{-1, -1};
    std::array<int, 2> errPipe{-1, -1};
    if (::pipe2(outPipe.data(), O_CLOEXEC) != 0 || ::pipe2(errPipe.data(), O_CLOEXEC) != 0) {
        closeFd(outPipe[0]);
        closeFd(outPipe[1]);
        return outcome;
    }
    const auto start = Clock::now();
    const auto deadline = start + std::chrono::duration_cast<Clock::duration>(limit);
    const pid_t pid = spawn(arguments, environment, outPipe[1], errPipe[1], {});
    closeFd(outPipe[1]);
    closeFd(errPipe[1]);
    if (pid < 0) {
        closeFd(outPipe[0]);
        closeFd(errPipe[0]);
        return outcome;
    }
    outcome.started = true;

    // Both pipes are drained together until both reach end of file; the limit kills the child.
    std::array<pollfd, 2> fds{pollfd{outPipe[0], POLLIN, 0}, pollfd{errPipe[0], POLLIN, 0}};
    std::array<std::string*, 2> sinks{&outcome.out, &outcome.err};
    int open = 2;
    while (open > 0) {
        const int timeout = outcome.timedOut ? 1000 : millisecondsUntil(deadline);
        const int ready = ::poll(fds.data(), fds.size(), timeout);
        if (ready < 0 && errno == EINTR) {
            continue;
        }
        if (ready == 0) {
            if (outcome.timedOut) {
                break; // Something outlived the kill and still holds the pipes.
            }
            outcome.timedOut = true;
            ::kill(-pid, SIGKILL);
            continue;
        }
        for (std::size_t i = 0; i < fds.size(); ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0) {
                continue;
            }
            std::array<char, 4096> buffer{};
            const ssize_t count = ::read(fds[i].fd, buffer.data(), buffer.size());
            if (count > 0) {
                sinks[i]->append(buffer.data(), static_cast<std::size_t>(count));
            } else if (count == 0 || errno != EINTR) {
                ::close(fds[i].fd);
                fds[i].fd = -1;
                --open;
            }
        }
    }
    for (auto& entry : fds) {
        closeFd(entry.fd);
    }
    int status = 0;
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    outcome.elapsed = Clock::now() - start;
    if (WIFEXITED(status)) {
        outcome.exitCode = WEXITSTATUS(status);
    } else if (WIFSIGNALED(status)) {
        outcome.signal = WTERMSIG(status);
    }
    return outcome;
}

ChildProcess::ChildProcess(const std::vector<std::string>& arguments,
                           const std::vector<std::string>& environment,
                           const std::filesystem::path& errorFile) {
    std::array<int, 2> outPipe{-1, -1};
    if (::pipe2(outPipe.data(), O_CLOEXEC) != 0) {
        return;
    }
    int errFd = ::open(errorFile.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    if (errFd < 0) {
        errFd = ::open("/dev/null", O_WRONLY | O_CLOEXEC);
    }
    m_pid = spawn(arguments, environment, outPipe[1], errFd, {});
    closeFd(outPipe[1]);
    closeFd(errFd);
    if (m_pid < 0) {
        closeFd(outPipe[0]);
        return;
    }
    m_outFd = outPipe[0];
}

ChildProcess::~ChildProcess() {
    stop();
    closeFd(m_outFd);
}

std::optional<std::string> ChildProcess::readLine(std::chrono::duration<double> limit) {
    const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(limit);
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
        std::array<char, 4096> buffer{};
        const ssize_t count = ::read(m_outFd, buffer.data(), buffer.size());
        if (count > 0) {
            m_pending.append(buffer.data(), static_cast<std::size_t>(count));
        } else if (count == 0 || errno != EINTR) {
            closeFd(m_outFd);
        }
    }
}

bool ChildProcess::hasEnded() {
    if (m_waitStatus) {
        return true;
    }
    if (m_pid <= 0) {
        return true;
    }
    int status = 0;
    if (::waitpid(m_pid, &status, WNOHANG) == m_pid) {
        m_waitStatus = status;
        return true;
    }
    return false;
}

int ChildProcess::stop(std::chrono::duration<double> grace) {
    if (m_pid <= 0) {
        return -1;
    }
    if (!hasEnded()) {
        ::kill(m_pid, SIGTERM);
        const auto deadline = Clock::now() + std::chrono::duration_cast<Clock::duration>(grace);
        while (!hasEnded() && Clock::now() < deadline) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
        if (!hasEnded()) {
            ::kill(-m_pid, SIGKILL);
            int status = 0;
            while (::waitpid(m_pid, &status, 0) < 0 && errno == EINTR) {
            }
            m_waitStatus = status;
        }
    }
    return m_waitStatus.value_or(-1);
}

} // namespace ambrel::testing
