#include "platform/qt/SingleInstance.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ambrel {

namespace {

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

constexpr const char* kRequestSuffix = ".request";
// More than any argument list a launch hands over; a larger file is not a request of ours.
constexpr off_t kLargestRequest = 64 * 1024;

std::string requestPrefix(const std::filesystem::path& lockFile) {
    return lockFile.filename().string() + ".";
}

// Arguments cannot hold a NUL character, so each one ends with one.
bool writeRequest(const std::filesystem::path& lockFile, const SingleInstance::Request& request) {
    std::string bytes;
    for (const auto& argument : request) {
        bytes += argument;
        bytes += '\0';
    }
    const auto name = requestPrefix(lockFile) + std::to_string(::getpid());
    const auto partial = lockFile.parent_path() / (name + ".partial");
    const int descriptor =
        ::open(partial.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (descriptor < 0) {
        return false;
    }
    const bool written =
        ::write(descriptor, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    ::close(descriptor);
    // Renamed into place whole, so the running copy never reads half a request.
    std::error_code error;
    if (written) {
        std::filesystem::rename(partial, lockFile.parent_path() / (name + kRequestSuffix), error);
    }
    if (!written || error) {
        std::filesystem::remove(partial, error);
        return false;
    }
    return true;
}

std::optional<SingleInstance::Request> readRequest(const std::filesystem::path& file) {
    const int descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (descriptor < 0) {
        return std::nullopt;
    }
    struct stat info {};
    std::string bytes;
    if (::fstat(descriptor, &info) == 0 && S_ISREG(info.st_mode) && info.st_uid == ::geteuid() &&
        info.st_size <= kLargestRequest) {
        bytes.resize(static_cast<std::size_t>(info.st_size));
        if (::read(descriptor, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size())) {
            bytes.clear();
        }
    }
    ::close(descriptor);
    if (bytes.empty()) {
        return std::nullopt;
    }
    SingleInstance::Request request;
    std::size_t start = 0;
    for (std::size_t end = bytes.find('\0'); end != std::string::npos;
         end = bytes.find('\0', start)) {
        request.push_back(bytes.substr(start, end - start));
        start = end + 1;
    }
    return request;
}

} // namespace

std::filesystem::path SingleInstance::lockPath(const std::string& identifier,
                                               const Environment& environment) {
    const auto runtime = environment.value("XDG_RUNTIME_DIR").value_or("");
    std::filesystem::path folder;
    std::error_code error;
    if (runtime.starts_with('/') && std::filesystem::is_directory(runtime, error)) {
        folder = runtime;
    } else {
        const auto temporary = environment.value("TMPDIR").value_or("");
        folder = temporary.starts_with('/') ? temporary : "/tmp";
    }
    const std::string screen = environment.nonEmpty("DISPLAY").value_or(
        environment.nonEmpty("WAYLAND_DISPLAY").value_or("none"));
    return folder /
           sanitized(identifier + "-" + std::to_string(::geteuid()) + "-" + screen + ".lock");
}

std::pair<SingleInstance::Claim, std::unique_ptr<SingleInstance>>
SingleInstance::claim(const std::filesystem::path& lockFile, const Request& request) {
    // The handler goes in before the lock is taken: a later launch may signal as soon as it
    // sees the lock, and SIGUSR1 would otherwise end this process.
    SignalEvents::catchSignal(SIGUSR1);

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
        std::unique_ptr<SingleInstance> instance(new SingleInstance(descriptor, lockFile));
        // Requests left by launches whose copy ended before reading them are old news.
        instance->takeRequests();
        return {Claim::first, std::move(instance)};
    }
    if (errno != EWOULDBLOCK) {
        ::close(descriptor);
        return {Claim::first, nullptr};
    }
    if (!request.empty()) {
        writeRequest(lockFile, request);
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

SingleInstance::SingleInstance(int lockDescriptor, std::filesystem::path lockFile)
    : m_lockDescriptor(lockDescriptor), m_lockFile(std::move(lockFile)) {}

SingleInstance::~SingleInstance() {
    if (m_lockDescriptor >= 0) {
        ::close(m_lockDescriptor);
    }
}

std::vector<SingleInstance::Request> SingleInstance::takeRequests() const {
    std::vector<std::filesystem::path> files;
    const auto prefix = requestPrefix(m_lockFile);
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(m_lockFile.parent_path(), error)) {
        const auto name = entry.path().filename().string();
        if (name.size() > prefix.size() + std::strlen(kRequestSuffix) &&
            name.compare(0, prefix.size(), prefix) == 0 && name.ends_with(kRequestSuffix)) {
            files.push_back(entry.path());
        }
    }
    std::sort(files.begin(), files.end());
    std::vector<Request> requests;
    for (const auto& file : files) {
        auto request = readRequest(file);
        std::filesystem::remove(file, error);
        if (request) {
            requests.push_back(std::move(*request));
        }
    }
    return requests;
}

void SingleInstance::listen(SignalEvents& events, std::function<void(const Request&)> onRequest) {
    m_onRequest = std::move(onRequest);
    events.handle(SIGUSR1, [this] {
        if (!m_onRequest) {
            return;
        }
        auto requests = takeRequests();
        if (requests.empty()) {
            requests.emplace_back();
        }
        for (const auto& request : requests) {
            m_onRequest(request);
        }
    });
}

} // namespace ambrel
