#include "phone/CommandRunner.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <csignal>
#include <memory>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/eventfd.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include "phone/BoundedData.h"

extern char** environ;

namespace ambrel::CommandRunner {

namespace {

using MonotonicClock = std::chrono::steady_clock;

// Longest wait the runner accepts; keeps the deadline arithmetic far from overflow.
constexpr double kLongestTimeout = 1.0e9;

MonotonicClock::time_point deadlineAfter(double seconds) {
    const double bounded = seconds > 0.0 ? std::min(seconds, kLongestTimeout) : 0.0;
    return MonotonicClock::now() + std::chrono::duration_cast<MonotonicClock::duration>(
                                       std::chrono::duration<double>(bounded));
}

// Owns one descriptor and closes it, ignoring errors, when dropped.
class FileDescriptor {
public:
    FileDescriptor() = default;
    explicit FileDescriptor(int descriptor) : m_descriptor(descriptor) {}
    FileDescriptor(FileDescriptor&& other) noexcept
        : m_descriptor(std::exchange(other.m_descriptor, -1)) {}
    FileDescriptor& operator=(FileDescriptor&& other) noexcept {
        reset(std::exchange(other.m_descriptor, -1));
        return *this;
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() { reset(); }

    int get() const { return m_descriptor; }
    bool isValid() const { return m_descriptor >= 0; }
    void reset(int descriptor = -1) {
        if (m_descriptor >= 0) {
            ::close(m_descriptor);
        }
        m_descriptor = descriptor;
    }

private:
    int m_descriptor = -1;
};

struct Pipe {
    FileDescriptor readEnd;
    FileDescriptor writeEnd;
};

std::optional<Pipe> makePipe() {
    int ends[2] = {-1, -1};
    if (::pipe2(ends, O_CLOEXEC) != 0) {
        return std::nullopt;
    }
    Pipe pipe{FileDescriptor(ends[0]), FileDescriptor(ends[1])};
    // Only our end is non-blocking (the flag belongs to the open file, and each end is its own):
    // the child's standard output stays an ordinary blocking pipe.
    const int flags = ::fcntl(pipe.readEnd.get(), F_GETFL);
    if (flags < 0 || ::fcntl(pipe.readEnd.get(), F_SETFL, flags | O_NONBLOCK) != 0) {
        return std::nullopt;
    }
    return pipe;
}

std::int32_t statusFromWait(int rawStatus) {
    if (WIFEXITED(rawStatus)) {
        return WEXITSTATUS(rawStatus);
    }
    if (WIFSIGNALED(rawStatus)) {
        return kSignalStatusBase + WTERMSIG(rawStatus);
    }
    return -1;
}

// The child of one run, shared by the run, the thread that waits for its end and the registry
// of running children. Only the waiter reaps it, and only while holding the lock after marking
// it ended, so a signal sent under the lock can never reach a later process that got the pid.
class Child {
public:
    explicit Child(pid_t pid) : m_pid(pid) {}

    // Runs on the waiter thread until the child ends; reaps it exactly once.
    void waitForEnd() {
        siginfo_t info{};
        // WNOWAIT leaves the zombie in place: the pid stays ours until it is reaped below.
        while (::waitid(P_PID, static_cast<id_t>(m_pid), &info, WEXITED | WNOWAIT) != 0 &&
               errno == EINTR) {
        }
        {
            const std::lock_guard guard(m_lock);
            int rawStatus = 0;
            pid_t reaped = -1;
            while ((reaped = ::waitpid(m_pid, &rawStatus, 0)) < 0 && errno == EINTR) {
            }
            // Another part of the program may have reaped it first (or set SIGCHLD to be
            // ignored): it has ended either way, its status is unknown.
            m_status = reaped == m_pid ? statusFromWait(rawStatus) : -1;
            m_hasEnded = true;
        }
        m_ended.notify_all();
    }

    void signal(int signalNumber) {
        const std::lock_guard guard(m_lock);
        if (!m_hasEnded) {
            ::kill(m_pid, signalNumber);
        }
    }

    bool waitUntil(MonotonicClock::time_point deadline) {
        std::unique_lock lock(m_lock);
        return m_ended.wait_until(lock, deadline, [this] { return m_hasEnded; });
    }

    bool hasEnded() {
        const std::lock_guard guard(m_lock);
        return m_hasEnded;
    }

    // The termination status once ended, else -1.
    std::int32_t status() {
        const std::lock_guard guard(m_lock);
        return m_hasEnded ? m_status : -1;
    }

private:
    const pid_t m_pid;
    std::mutex m_lock;
    std::condition_variable m_ended;
    bool m_hasEnded = false;
    std::int32_t m_status = -1;
};

// Every child of a run in progress. Spawning happens under the same lock, so a child can
// never be started but not yet listed when terminateRunningChildren() looks.
struct ChildRegistry {
    std::mutex lock;
    std::vector<std::shared_ptr<Child>> children;
    bool refusesLaunches = false;
};

ChildRegistry& registry() {
    // Never destroyed: detached waiters and late runs may still use it while the program exits.
    static auto* const instance = new ChildRegistry;
    return *instance;
}

void unregister(const std::shared_ptr<Child>& child) {
    auto& children = registry();
    const std::lock_guard guard(children.lock);
    std::erase(children.children, child);
}

// Lets the runner wait, with a deadline, for its reader threads to see end of file.
class ReaderGroup {
public:
    void enter() {
        const std::lock_guard guard(m_lock);
        ++m_running;
    }
    void leave() {
        {
            const std::lock_guard guard(m_lock);
            --m_running;
        }
        m_changed.notify_all();
    }
    void waitUntil(MonotonicClock::time_point deadline) {
        std::unique_lock lock(m_lock);
        m_changed.wait_until(lock, deadline, [this] { return m_running == 0; });
    }

private:
    std::mutex m_lock;
    std::condition_variable m_changed;
    int m_running = 0;
};

// Reads `descriptor` (non-blocking) until end of file, an error, or `stopDescriptor` becoming
// readable, keeping what fits into `buffer` and dropping the rest.
void drain(int descriptor, int stopDescriptor, BoundedData& buffer) {
    char chunk[kReadChunk];
    bool isKeeping = true;
    pollfd watched[2] = {{descriptor, POLLIN, 0}, {stopDescriptor, POLLIN, 0}};
    while (true) {
        const ssize_t count = ::read(descriptor, chunk, sizeof chunk);
        if (count > 0) {
            if (isKeeping) {
                isKeeping = buffer.append(std::string_view(chunk, static_cast<std::size_t>(count)));
            }
            continue;
        }
        if (count == 0) {
            return;
        }
        if (errno == EINTR) {
            continue;
        }
        if (errno != EAGAIN && errno != EWOULDBLOCK) {
            return;
        }
        if (::poll(watched, 2, -1) < 0) {
            if (errno == EINTR) {
                continue;
            }
            return;
        }
        if (watched[1].revents != 0) {
            return;
        }
    }
}

CommandOutput launchFailure() {
    CommandOutput output;
    output.stderrText = kLaunchFailure;
    output.status = -1;
    output.timedOut = false;
    return output;
}

// Attributes that give the child a clean signal state whatever this program has set up.
class SpawnSettings {
public:
    SpawnSettings(int input, int output, int error) {
        m_hasActions = ::posix_spawn_file_actions_init(&m_actions) == 0;
        m_hasAttributes = ::posix_spawnattr_init(&m_attributes) == 0;
        if (!m_hasActions || !m_hasAttributes) {
            return;
        }
        sigset_t none;
        sigemptyset(&none);
        sigset_t all;
        sigfillset(&all);
        sigdelset(&all, SIGKILL);
        sigdelset(&all, SIGSTOP);
        m_isValid =
            ::posix_spawn_file_actions_adddup2(&m_actions, input, STDIN_FILENO) == 0 &&
            ::posix_spawn_file_actions_adddup2(&m_actions, output, STDOUT_FILENO) == 0 &&
            ::posix_spawn_file_actions_adddup2(&m_actions, error, STDERR_FILENO) == 0 &&
            // Descriptors other code opened without close-on-exec stay ours too.
            ::posix_spawn_file_actions_addclosefrom_np(&m_actions, STDERR_FILENO + 1) == 0 &&
            ::posix_spawnattr_setsigmask(&m_attributes, &none) == 0 &&
            ::posix_spawnattr_setsigdefault(&m_attributes, &all) == 0 &&
            ::posix_spawnattr_setflags(&m_attributes,
                                       POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF) == 0;
    }
    ~SpawnSettings() {
        if (m_hasAttributes) {
            ::posix_spawnattr_destroy(&m_attributes);
        }
        if (m_hasActions) {
            ::posix_spawn_file_actions_destroy(&m_actions);
        }
    }
    SpawnSettings(const SpawnSettings&) = delete;
    SpawnSettings& operator=(const SpawnSettings&) = delete;

    bool isValid() const { return m_isValid; }
    const posix_spawn_file_actions_t* actions() const { return &m_actions; }
    const posix_spawnattr_t* attributes() const { return &m_attributes; }

private:
    posix_spawn_file_actions_t m_actions{};
    posix_spawnattr_t m_attributes{};
    bool m_hasActions = false;
    bool m_hasAttributes = false;
    bool m_isValid = false;
};

} // namespace

CommandOutput run(const std::filesystem::path& executable,
                  const std::vector<std::string>& arguments, double timeout) {
    auto outputPipe = makePipe();
    auto errorPipe = makePipe();
    FileDescriptor nullInput(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    FileDescriptor stopReaders(::eventfd(0, EFD_CLOEXEC));
    if (!outputPipe || !errorPipe || !nullInput.isValid() || !stopReaders.isValid()) {
        return launchFailure();
    }

    std::vector<char*> argv;
    argv.reserve(arguments.size() + 2);
    std::string program = executable.string();
    argv.push_back(program.data());
    std::vector<std::string> argumentCopies(arguments);
    for (auto& argument : argumentCopies) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);

    std::shared_ptr<Child> child;
    {
        const SpawnSettings settings(nullInput.get(), outputPipe->writeEnd.get(),
                                     errorPipe->writeEnd.get());
        if (!settings.isValid()) {
            return launchFailure();
        }
        auto& children = registry();
        const std::lock_guard guard(children.lock);
        if (children.refusesLaunches) {
            return launchFailure();
        }
        pid_t pid = -1;
        // glibc reports a failed exec (missing file, no permission, not a program) here, so
        // such a path ends at once without a child.
        if (::posix_spawn(&pid, program.c_str(), settings.actions(), settings.attributes(),
                          argv.data(), environ) != 0) {
            return launchFailure();
        }
        try {
            child = std::make_shared<Child>(pid);
            children.children.push_back(child);
        } catch (const std::bad_alloc&) {
            ::kill(pid, SIGKILL);
            while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
            }
            return launchFailure();
        }
    }
    // The child holds its own copies; ours would keep the pipes open after it ends.
    outputPipe->writeEnd.reset();
    errorPipe->writeEnd.reset();
    nullInput.reset();

    std::thread waiter;
    try {
        waiter = std::thread([child] { child->waitForEnd(); });
    } catch (const std::system_error&) {
        // Without a waiter nobody would reap it: end it and reap it here.
        child->signal(SIGKILL);
        child->waitForEnd();
        unregister(child);
        return launchFailure();
    }

    BoundedData standardOutput(kCapturedBytesLimit);
    BoundedData standardError(kCapturedBytesLimit);
    ReaderGroup readers;
    std::vector<std::thread> readerThreads;
    bool readersStarted = true;
    for (auto [descriptor, buffer] : {std::pair{outputPipe->readEnd.get(), &standardOutput},
                                      std::pair{errorPipe->readEnd.get(), &standardError}}) {
        try {
            readers.enter();
            readerThreads.emplace_back(
                [&readers, descriptor = descriptor, buffer = buffer, stop = stopReaders.get()] {
                    drain(descriptor, stop, *buffer);
                    readers.leave();
                });
        } catch (const std::system_error&) {
            readers.leave();
            readersStarted = false;
            break;
        }
    }

    bool timedOut = false;
    if (readersStarted) {
        timedOut = !child->waitUntil(deadlineAfter(timeout));
        if (timedOut) {
            child->signal(SIGTERM);
            if (!child->waitUntil(deadlineAfter(kTerminateGrace))) {
                child->signal(SIGKILL);
                (void)child->waitUntil(deadlineAfter(kKillGrace));
            }
        }
        readers.waitUntil(deadlineAfter(kReaderJoin));
    } else {
        child->signal(SIGKILL);
        (void)child->waitUntil(deadlineAfter(kKillGrace));
    }

    // Readers still blocked (a grandchild may hold the pipes open) are told to stop; they
    // return at once, so joining them cannot hang.
    const std::uint64_t one = 1;
    while (::write(stopReaders.get(), &one, sizeof one) < 0 && errno == EINTR) {
    }
    for (auto& thread : readerThreads) {
        thread.join();
    }
    outputPipe->readEnd.reset();
    errorPipe->readEnd.reset();

    unregister(child);
    if (child->hasEnded()) {
        waiter.join();
    } else {
        // It was sent SIGKILL and will end; the waiter reaps it then, holding its own share.
        waiter.detach();
    }
    if (!readersStarted) {
        return launchFailure();
    }

    CommandOutput output;
    output.stdoutText = standardOutput.string();
    output.stderrText = standardError.string();
    output.status = child->status();
    output.timedOut = timedOut;
    return output;
}

void terminateRunningChildren() {
    auto& children = registry();
    const std::lock_guard guard(children.lock);
    for (const auto& child : children.children) {
        child->signal(SIGKILL);
    }
}

void refuseLaunchesAndTerminate() {
    {
        auto& children = registry();
        const std::lock_guard guard(children.lock);
        children.refusesLaunches = true;
    }
    terminateRunningChildren();
}

} // namespace ambrel::CommandRunner
