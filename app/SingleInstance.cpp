#include "app/SingleInstance.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

#include <QSocketNotifier>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ambrel {

namespace {

// The pipe the SIGUSR1 handler writes to; set up once per process.
int g_requestPipe[2] = {-1, -1};

void requestHandler(int) {
    const int saved = errno;
    const char byte = 1;
    [[maybe_unused]] const auto written = ::write(g_requestPipe[1], &byte, 1);
    errno = saved;
}

bool installRequestHandler() {
    if (g_requestPipe[0] < 0 && ::pipe2(g_requestPipe, O_CLOEXEC | O_NONBLOCK) != 0) {
        return false;
    }
    struct sigaction action {};
    action.sa_handler = requestHandler;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    return ::sigaction(SIGUSR1, &action, nullptr) == 0;
}

std::string sanitized(std::string text) {
    for (char& c : text) {
        const bool plain = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                           (c >= '0' && c <= '9') || c == '.' || c == '-';
        if (!plain) {
            c = '_';
        }
    }
    return text;
}

std::optional<pid_t> readProcessId(int descriptor) {
    char buffer[32] = {};
    const auto count = ::pread(descriptor, buffer, sizeof buffer - 1, 0);
    if (count <= 0) {
        return std::nullopt;
    }
    char* end = nullptr;
    const long value = std::strtol(buffer, &end, 10);
    if (end == buffer || value <= 0) {
        return std::nullopt;
    }
    return static_cast<pid_t>(value);
}

// Whether `pid` runs the same program as this process: the id in the file may be left over
// from a copy that has ended, and an unrelated process that got the id since must not be sent
// the signal.
bool runsThisProgram(pid_t pid) {
    const auto name = [](const std::string& path) {
        std::ifstream stream(path);
        std::string line;
        std::getline(stream, line);
        return line;
    };
    const auto own = name("/proc/self/comm");
    return !own.empty() && name("/proc/" + std::to_string(pid) + "/comm") == own;
}

} // namespace

std::filesystem::path SingleInstance::lockPath(const std::string& identifier) {
    const char* runtime = std::getenv("XDG_RUNTIME_DIR");
    std::filesystem::path folder;
    std::error_code error;
    if (runtime != nullptr && runtime[0] == '/' && std::filesystem::is_directory(runtime, error)) {
        folder = runtime;
    } else {
        const char* temporary = std::getenv("TMPDIR");
        folder = temporary != nullptr && temporary[0] == '/' ? temporary : "/tmp";
    }
    const char* display = std::getenv("DISPLAY");
    if (display == nullptr || display[0] == '\0') {
        display = std::getenv("WAYLAND_DISPLAY");
    }
    const std::string screen = display == nullptr || display[0] == '\0' ? "none" : display;
    return folder /
           sanitized(identifier + "-" + std::to_string(::geteuid()) + "-" + screen + ".lock");
}

std::pair<SingleInstance::Claim, std::unique_ptr<SingleInstance>>
SingleInstance::claim(const std::filesystem::path& lockFile) {
    // The handler goes in before the lock is taken: a later launch may signal as soon as it
    // sees the lock, and SIGUSR1 would otherwise end this process.
    installRequestHandler();

    const int descriptor =
        ::open(lockFile.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (descriptor < 0) {
        return {Claim::first, nullptr};
    }
    struct stat info {};
    if (::fstat(descriptor, &info) != 0 || !S_ISREG(info.st_mode) || info.st_uid != ::geteuid()) {
        ::close(descriptor);
        return {Claim::first, nullptr};
    }
    if (::flock(descriptor, LOCK_EX | LOCK_NB) == 0) {
        const std::string pid = std::to_string(::getpid()) + "\n";
        if (::ftruncate(descriptor, 0) == 0) {
            [[maybe_unused]] const auto written = ::pwrite(descriptor, pid.data(), pid.size(), 0);
        }
        return {Claim::first, std::unique_ptr<SingleInstance>(new SingleInstance(descriptor))};
    }
    if (errno != EWOULDBLOCK) {
        ::close(descriptor);
        return {Claim::first, nullptr};
    }
    // The holder writes its id right after taking the lock; give it a moment when it has only
    // just started.
    for (int attempt = 0; attempt < 40; ++attempt) {
        if (const auto holder = readProcessId(descriptor); holder && runsThisProgram(*holder)) {
            ::kill(*holder, SIGUSR1);
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(25));
    }
    ::close(descriptor);
    return {Claim::handedOver, nullptr};
}

SingleInstance::SingleInstance(int lockDescriptor) : m_lockDescriptor(lockDescriptor) {}

SingleInstance::~SingleInstance() {
    m_notifier.reset();
    if (m_lockDescriptor >= 0) {
        ::close(m_lockDescriptor);
    }
}

void SingleInstance::listen(std::function<void()> onRequest) {
    m_onRequest = std::move(onRequest);
    if (g_requestPipe[0] < 0) {
        return;
    }
    m_notifier = std::make_unique<QSocketNotifier>(g_requestPipe[0], QSocketNotifier::Read);
    QObject::connect(m_notifier.get(), &QSocketNotifier::activated, m_notifier.get(), [this] {
        char buffer[64];
        bool requested = false;
        while (::read(g_requestPipe[0], buffer, sizeof buffer) > 0) {
            requested = true;
        }
        if (requested && m_onRequest) {
            m_onRequest();
        }
    });
}

} // namespace ambrel
