#include "platform/linux/SpawnProcessLauncher.h"

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <csignal>
#include <cstdint>
#include <deque>
#include <functional>
#include <system_error>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <pthread.h>
#include <spawn.h>
#include <sys/syscall.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace ambrel {

namespace {

using MonotonicClock = std::chrono::steady_clock;

// The most one read() takes from a pipe.
constexpr std::size_t kReadChunk = 4096;
// Longest wait the launcher accepts; keeps the deadline arithmetic far from overflow.
constexpr std::chrono::hours kLongestWait{24 * 365 * 30};

MonotonicClock::time_point deadlineAfter(std::chrono::milliseconds wait) {
    const auto bounded =
        std::clamp<std::chrono::milliseconds>(wait, std::chrono::milliseconds(0), kLongestWait);
    return MonotonicClock::now() + bounded;
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

// Appends what `descriptor` (non-blocking) holds now to `kept`, up to `cap` bytes kept (the
// rest is read and dropped, so the child never blocks on a full pipe). False once it reached
// end of file or failed: it is done.
bool takeAvailable(int descriptor, std::size_t cap, std::string& kept) {
    char chunk[kReadChunk];
    while (true) {
        const ssize_t count = ::read(descriptor, chunk, sizeof chunk);
        if (count > 0) {
            const std::size_t room = cap - std::min(cap, kept.size());
            kept.append(chunk, std::min(room, static_cast<std::size_t>(count)));
            continue;
        }
        if (count < 0 && errno == EINTR) {
            continue;
        }
        return count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK);
    }
}

int pidfdOpen(pid_t pid) {
    return static_cast<int>(::syscall(SYS_pidfd_open, pid, 0));
}

int pidfdSignal(int pidfd, int signalNumber) {
    return static_cast<int>(::syscall(SYS_pidfd_send_signal, pidfd, signalNumber, nullptr, 0));
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

// The child of one launch, shared by the launch and the launcher's list of running children.
// It is known by a pidfd, not by its pid: a signal sent through it can only reach this child,
// even after it was reaped and its pid given to another process.
class SpawnProcessLauncher::Child {
public:
    explicit Child(int pidfd) : m_pidfd(pidfd) {}
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child() {
        if (m_pidfd >= 0) {
            ::close(m_pidfd);
        }
    }

    int pidfd() const { return m_pidfd; }
    void signal(int signalNumber) const { pidfdSignal(m_pidfd, signalNumber); }

private:
    const int m_pidfd;
};

// A thread that only starts children, so that they get its priority rather than that of the
// thread asking (a child inherits the nice value of the thread that spawned it). The program's
// background jobs run at a lower priority, but a tool's time limit is wall time: a tool that
// inherited that priority could miss its limit on a busy machine (a first pairing makes two RSA
// keys), and lowering a priority can only be undone with privileges. Waits without a time-out.
class SpawnProcessLauncher::Spawner {
public:
    Spawner() {
        try {
            m_thread = std::thread([this] { serve(); });
        } catch (const std::system_error&) {
            // No thread to be had: the children are started by the threads asking.
        }
    }
    ~Spawner() {
        {
            const std::lock_guard lock(m_mutex);
            m_stopping = true;
        }
        m_wake.notify_all();
        if (m_thread.joinable()) {
            m_thread.join();
        }
    }
    Spawner(const Spawner&) = delete;
    Spawner& operator=(const Spawner&) = delete;

    // Runs `spawn` on the spawner's thread and returns what it returned.
    int spawn(const std::function<int()>& spawn) {
        if (!m_thread.joinable() || std::this_thread::get_id() == m_thread.get_id()) {
            return spawn();
        }
        Request request{&spawn};
        std::unique_lock lock(m_mutex);
        m_requests.push_back(&request);
        m_wake.notify_all();
        m_done.wait(lock, [&] { return request.isDone; });
        return request.result;
    }

private:
    struct Request {
        const std::function<int()>* spawn;
        int result = -1;
        bool isDone = false;
    };

    void serve() {
        ::pthread_setname_np(::pthread_self(), "tool-spawner");
        std::unique_lock lock(m_mutex);
        for (;;) {
            m_wake.wait(lock, [this] { return m_stopping || !m_requests.empty(); });
            if (m_requests.empty()) {
                return;
            }
            Request* request = m_requests.front();
            m_requests.pop_front();
            lock.unlock();
            const int result = (*request->spawn)();
            lock.lock();
            request->result = result;
            request->isDone = true;
            m_done.notify_all();
        }
    }

    std::mutex m_mutex;
    std::condition_variable m_wake;
    std::condition_variable m_done;
    std::deque<Request*> m_requests;
    bool m_stopping = false;
    std::thread m_thread;
};

SpawnProcessLauncher::SpawnProcessLauncher() : m_spawner(std::make_unique<Spawner>()) {}

SpawnProcessLauncher::SpawnProcessLauncher(std::vector<std::string> environment)
    : m_environment(std::move(environment)), m_spawner(std::make_unique<Spawner>()) {}

SpawnProcessLauncher::~SpawnProcessLauncher() {
    shutDown();
}

LaunchResult SpawnProcessLauncher::launch(const LaunchOptions& options) {
    const LaunchResult notStarted;
    auto outputPipe = makePipe();
    auto errorPipe = makePipe();
    FileDescriptor nullInput(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    if (!outputPipe || !errorPipe || !nullInput.isValid()) {
        return notStarted;
    }

    std::string program = options.program.string();
    std::vector<std::string> argumentCopies(options.arguments);
    std::vector<char*> argv;
    argv.reserve(argumentCopies.size() + 2);
    argv.push_back(program.data());
    for (auto& argument : argumentCopies) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    std::vector<char*> envp;
    if (m_environment) {
        for (auto& entry : *m_environment) {
            envp.push_back(entry.data());
        }
        envp.push_back(nullptr);
    }

    std::shared_ptr<Child> child;
    {
        const SpawnSettings settings(nullInput.get(), outputPipe->writeEnd.get(),
                                     errorPipe->writeEnd.get());
        if (!settings.isValid()) {
            return notStarted;
        }
        const std::lock_guard guard(m_lock);
        if (m_isShutDown) {
            return notStarted;
        }
        pid_t pid = -1;
        // glibc reports a failed exec (missing file, no permission, not a program) here, so
        // such a path ends at once without a child.
        char* const* environment = m_environment ? envp.data() : environ;
        const std::function<int()> spawn = [&] {
            return ::posix_spawn(&pid, program.c_str(), settings.actions(), settings.attributes(),
                                 argv.data(), environment);
        };
        if (m_spawner->spawn(spawn) != 0) {
            return notStarted;
        }
        // Nothing reaps the child before this launch does, so its pid still names it here.
        const int pidfd = pidfdOpen(pid);
        if (pidfd < 0) {
            ::kill(pid, SIGKILL);
            while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
            }
            return notStarted;
        }
        try {
            child = std::make_shared<Child>(pidfd);
            m_children.push_back(child);
        } catch (const std::bad_alloc&) {
            pidfdSignal(pidfd, SIGKILL);
            siginfo_t ended{};
            while (::waitid(P_PIDFD, static_cast<id_t>(pidfd), &ended, WEXITED) < 0 &&
                   errno == EINTR) {
            }
            ::close(pidfd);
            return notStarted;
        }
    }
    // The child holds its own copies; ours would keep the pipes open after it ends.
    outputPipe->writeEnd.reset();
    errorPipe->writeEnd.reset();
    nullInput.reset();

    // One thread, this one, waits for everything at once: both pipes and the child's end (its
    // pidfd turns readable), each wait bounded by the deadline of the stage the launch is in.
    std::string standardOutput;
    std::string standardError;
    bool outputOpen = true;
    bool errorOpen = true;
    bool reaped = false;
    siginfo_t ended{};
    bool timedOut = false;
    int stopStage = 0; // 0: running; 1: sent SIGTERM; 2: sent SIGKILL
    auto deadline = deadlineAfter(options.timeLimit);
    std::optional<MonotonicClock::time_point> drainDeadline;
    while (!(reaped && !outputOpen && !errorOpen)) {
        const auto now = MonotonicClock::now();
        if (reaped && now >= *drainDeadline) {
            // A grandchild may hold the pipes open: what came in time is kept.
            break;
        }
        if (!reaped && now >= deadline) {
            if (stopStage == 0) {
                timedOut = true;
                child->signal(SIGTERM);
                deadline = deadlineAfter(options.terminateGrace);
            } else if (stopStage == 1) {
                child->signal(SIGKILL);
                deadline = deadlineAfter(options.killGrace);
            } else {
                break;
            }
            ++stopStage;
            continue;
        }
        pollfd watched[3];
        nfds_t count = 0;
        const auto add = [&](int descriptor) { watched[count++] = pollfd{descriptor, POLLIN, 0}; };
        if (outputOpen) {
            add(outputPipe->readEnd.get());
        }
        if (errorOpen) {
            add(errorPipe->readEnd.get());
        }
        if (!reaped) {
            add(child->pidfd());
        }
        const auto until = reaped ? *drainDeadline : deadline;
        const auto wait = std::chrono::ceil<std::chrono::milliseconds>(until - now).count();
        const int timeout = static_cast<int>(std::min<long long>(wait, 60'000));
        if (::poll(watched, count, timeout) < 0 && errno != EINTR) {
            break;
        }
        for (nfds_t index = 0; index < count; ++index) {
            if (watched[index].revents == 0) {
                continue;
            }
            const int descriptor = watched[index].fd;
            if (descriptor == outputPipe->readEnd.get()) {
                outputOpen = takeAvailable(descriptor, options.outputCap, standardOutput);
            } else if (descriptor == errorPipe->readEnd.get()) {
                errorOpen = takeAvailable(descriptor, options.outputCap, standardError);
            } else {
                int code = 0;
                while ((code = ::waitid(P_PIDFD, static_cast<id_t>(descriptor), &ended, WEXITED)) <
                           0 &&
                       errno == EINTR) {
                }
                // Another part of the program may have reaped it first (or set SIGCHLD to be
                // ignored): it has ended either way, its status is unknown.
                if (code < 0) {
                    ended = siginfo_t{};
                }
                reaped = true;
                drainDeadline = deadlineAfter(options.outputDrainLimit);
            }
        }
    }
    outputPipe->readEnd.reset();
    errorPipe->readEnd.reset();
    {
        const std::lock_guard guard(m_lock);
        std::erase(m_children, child);
    }
    if (!reaped) {
        // Sent SIGKILL and still not gone (stuck in the kernel): reaped in the background when it
        // ends, so that it leaves no zombie. Rare enough for a thread of its own.
        child->signal(SIGKILL);
        try {
            std::thread([child] {
                siginfo_t last{};
                while (::waitid(P_PIDFD, static_cast<id_t>(child->pidfd()), &last, WEXITED) < 0 &&
                       errno == EINTR) {
                }
            }).detach();
        } catch (const std::system_error&) {
        }
    }

    LaunchResult result;
    result.standardOutput = std::move(standardOutput);
    result.standardError = std::move(standardError);
    if (reaped && ended.si_code == CLD_EXITED) {
        result.exitCode = ended.si_status;
    } else if (reaped && (ended.si_code == CLD_KILLED || ended.si_code == CLD_DUMPED)) {
        result.signal = ended.si_status;
    }
    if (timedOut) {
        result.end = LaunchEnd::killedAtTimeLimit;
    } else {
        result.end = result.signal ? LaunchEnd::signalled : LaunchEnd::exited;
    }
    return result;
}

void SpawnProcessLauncher::shutDown() {
    const std::lock_guard guard(m_lock);
    m_isShutDown = true;
    for (const auto& child : m_children) {
        child->signal(SIGKILL);
    }
}

} // namespace ambrel
