#include "tests/app/ProcessHarness.h"

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <thread>

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace ambrel::testing {

namespace {

std::vector<char*> pointers(std::vector<std::string>& strings) {
    std::vector<char*> list;
    for (auto& text : strings) {
        list.push_back(text.data());
    }
    list.push_back(nullptr);
    return list;
}

pid_t spawn(const std::vector<std::string>& arguments, const Environment& changes,
            const std::filesystem::path& out, const std::filesystem::path& err) {
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    auto argumentCopy = arguments;
    auto environment = environmentWith(changes);
    auto argv = pointers(argumentCopy);
    auto envp = pointers(environment);
    pid_t pid = -1;
    const int status =
        posix_spawn(&pid, arguments.front().c_str(), &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    return status == 0 ? pid : -1;
}

int exitCodeOf(int status) {
    if (WIFEXITED(status)) {
        return WEXITSTATUS(status);
    }
    return 128 + WTERMSIG(status);
}

} // namespace

std::vector<std::string> environmentWith(const Environment& changes) {
    std::map<std::string, std::string> variables;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text(*entry);
        const auto equals = text.find('=');
        if (equals != std::string::npos) {
            variables[text.substr(0, equals)] = text.substr(equals + 1);
        }
    }
    for (const auto& [name, value] : changes) {
        if (value.empty()) {
            variables.erase(name);
        } else {
            variables[name] = value;
        }
    }
    std::vector<std::string> list;
    for (const auto& [name, value] : variables) {
        list.push_back(name + "=" + value);
    }
    return list;
}

ProcessResult runProcess(const std::vector<std::string>& arguments, const Environment& changes,
                         std::chrono::milliseconds timeout) {
    TemporaryFolder logs;
    ProcessResult result;
    const pid_t pid = spawn(arguments, changes, logs.path() / "out", logs.path() / "err");
    if (pid < 0) {
        return result;
    }
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    int status = 0;
    while (true) {
        const pid_t done = ::waitpid(pid, &status, WNOHANG);
        if (done == pid) {
            result.exitCode = exitCodeOf(status);
            break;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, &status, 0);
            result.timedOut = true;
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    result.out = readText(logs.path() / "out");
    result.err = readText(logs.path() / "err");
    return result;
}

RunningProcess::RunningProcess(const std::vector<std::string>& arguments,
                               const Environment& changes) {
    m_pid = spawn(arguments, changes, m_logs.path() / "out", m_logs.path() / "err");
}

RunningProcess::~RunningProcess() {
    if (m_pid > 0 && !m_exitCode) {
        ::kill(m_pid, SIGKILL);
        int status = 0;
        ::waitpid(m_pid, &status, 0);
    }
}

bool RunningProcess::isRunning() {
    return !waitForExit(std::chrono::milliseconds(0)).has_value();
}

std::optional<int> RunningProcess::waitForExit(std::chrono::milliseconds timeout) {
    if (m_exitCode || m_pid <= 0) {
        return m_exitCode.value_or(-1);
    }
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (true) {
        int status = 0;
        if (::waitpid(m_pid, &status, WNOHANG) == m_pid) {
            m_exitCode = exitCodeOf(status);
            return m_exitCode;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return std::nullopt;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

void RunningProcess::stop(std::chrono::milliseconds grace) {
    if (!isRunning()) {
        return;
    }
    ::kill(m_pid, SIGTERM);
    if (!waitForExit(grace)) {
        ::kill(m_pid, SIGKILL);
        waitForExit(std::chrono::seconds(5));
    }
}

std::string RunningProcess::errorOutput() const {
    return readText(m_logs.path() / "err");
}

std::string RunningProcess::standardOutput() const {
    return readText(m_logs.path() / "out");
}

std::filesystem::path builtProgram() {
    return std::filesystem::path(TOVRIN_BINARY_DIR) / "bin" / "tovrin";
}

std::filesystem::path makeBundle(const std::filesystem::path& root) {
    const auto share = root / "share" / "tovrin";
    std::filesystem::create_directories(root / "bin");
    std::filesystem::create_directories(share / "Runtime" / "bin");
    const auto executable = root / "bin" / "tovrin";
    std::filesystem::copy_file(builtProgram(), executable,
                               std::filesystem::copy_options::overwrite_existing);
    std::filesystem::copy_file(std::filesystem::path(TOVRIN_BINARY_DIR) / "share" / "tovrin" /
                                   "Info",
                               share / "Info", std::filesystem::copy_options::overwrite_existing);
    return executable;
}

std::string readText(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

void writeText(const std::filesystem::path& path, const std::string& text) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream stream(path, std::ios::binary | std::ios::trunc);
    stream << text;
}

} // namespace ambrel::testing
