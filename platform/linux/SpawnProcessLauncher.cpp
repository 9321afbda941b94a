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
#include <sys/eventfd.h>
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

// Lets the launch wait, with a deadline, for its reader threads to see end of file.
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
// readable, keeping the first `cap` bytes in `kept` and dropping the rest.
void drain(int descriptor, int stopDescriptor, std::size_t cap, std::string& kept) {
    char chunk[kReadChunk];
    pollfd watched[2] = {{descriptor, POLLIN, 0}, {stopDescriptor, POLLIN, 0}};
    while (true) {
        const ssize_t count = ::read(descriptor, chunk, sizeof chunk);
        if (count > 0) {
            const std::size_t room = cap - std::min(cap, kept.size());
            kept.append(chunk, std::min(room, static_cast<std::size_t>(count)));
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

// The child of one launch, shared by the launch, the thread that waits for its end and the
// launcher's list of running children. Only the waiter reaps it, and only while holding the
// lock after marking it ended, so a signal sent under the lock can never reach a later process
// that got the pid.
class SpawnProcessLauncher::Child {
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
            if (reaped == m_pid) {
                m_rawStatus = rawStatus;
            }
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

    // The status waitpid() gave, once the child has ended and was reaped here.
    std::optional<int> rawStatus() {
        const std::lock_guard guard(m_lock);
        return m_rawStatus;
    }

private:
    const pid_t m_pid;
    std::mutex m_lock;
    std::condition_variable m_ended;
    bool m_hasEnded = false;
    std::optional<int> m_rawStatus;
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
    FileDescriptor stopReaders(::eventfd(0, EFD_CLOEXEC));
    if (!outputPipe || !errorPipe || !nullInput.isValid() || !stopReaders.isValid()) {
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
        try {
            child = std::make_shared<Child>(pid);
            m_children.push_back(child);
        } catch (const std::bad_alloc&) {
            ::kill(pid, SIGKILL);
            while (::waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
            }
            return notStarted;
        }
    }
    const auto unlist = [this, &child] {
        const std::lock_guard guard(m_lock);
        std::erase(m_children, child);
    };
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
        unlist();
        return notStarted;
    }

    // Each reader appends only to its own string, and the strings are read after the readers
    // are joined, so they need no lock.
    std::string standardOutput;
    std::string standardError;
    ReaderGroup readers;
    std::vector<std::thread> readerThreads;
    bool readersStarted = true;
    for (auto [descriptor, kept] : {std::pair{outputPipe->readEnd.get(), &standardOutput},
                                    std::pair{errorPipe->readEnd.get(), &standardError}}) {
        try {
            readers.enter();
            readerThreads.emplace_back([&readers, descriptor = descriptor, kept = kept,
                                        stop = stopReaders.get(), cap = options.outputCap] {
                drain(descriptor, stop, cap, *kept);
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
        timedOut = !child->waitUntil(deadlineAfter(options.timeLimit));
        if (timedOut) {
            child->signal(SIGTERM);
            if (!child->waitUntil(deadlineAfter(options.terminateGrace))) {
                child->signal(SIGKILL);
                (void)child->waitUntil(deadlineAfter(options.killGrace));
            }
        }
        readers.waitUntil(deadlineAfter(options.outputDrainLimit));
    } else {
        child->signal(SIGKILL);
        (void)child->waitUntil(deadlineAfter(options.killGrace));
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

    unlist();
    const bool hasEnded = child->hasEnded();
    if (hasEnded) {
        waiter.join();
    } else {
        // It was sent SIGKILL and will end; the waiter reaps it then, holding its own share.
        waiter.detach();
    }
    if (!readersStarted) {
        return notStarted;
    }

    LaunchResult result;
    result.standardOutput = std::move(standardOutput);
    result.standardError = std::move(standardError);
    const auto rawStatus = child->rawStatus();
    if (rawStatus && WIFEXITED(*rawStatus)) {
        result.exitCode = WEXITSTATUS(*rawStatus);
    } else if (rawStatus && WIFSIGNALED(*rawStatus)) {
        result.signal = WTERMSIG(*rawStatus);
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
