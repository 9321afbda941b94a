// What the program's muxer costs a phone read over USB: the real `ideviceinfo -u <udid> -q
// com.apple.mobile.battery -x` against the simulated iPhone as the system's usbmuxd, straight
// and through the muxer, run alternately so that both see the same machine. The counter
// overhead_pct is (through - straight) / straight; the aim is under 5 %. muxer_rss_kib is the
// resident memory the started muxer (server, pair records, Wi-Fi discovery) added to this
// process after it served every read; the aim is under 1024 KiB.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <vector>

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include "muxer/PrivateMuxer.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;
using ambrel::PrivateMuxer;
using Clock = std::chrono::steady_clock;

constexpr const char* kSerial = "00008110001A2B3C4D5E6F70";
constexpr const char* kUdid = "00008110-001A2B3C4D5E6F70";

long residentKib() {
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line)) {
        if (line.rfind("VmRSS:", 0) == 0) {
            return std::strtol(line.c_str() + 6, nullptr, 10);
        }
    }
    return -1;
}

// Runs `argv` with `address` as USBMUXD_SOCKET_ADDRESS, output discarded; its exit status.
int runTool(const std::vector<std::string>& arguments, const std::string& address) {
    std::vector<std::string> environment;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        if (std::string(*entry).rfind("USBMUXD_SOCKET_ADDRESS=", 0) != 0) {
            environment.emplace_back(*entry);
        }
    }
    environment.push_back("USBMUXD_SOCKET_ADDRESS=" + address);
    std::vector<char*> argv;
    for (const auto& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    std::vector<char*> envp;
    for (auto& entry : environment) {
        envp.push_back(entry.data());
    }
    envp.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t pid = -1;
    const int error = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
    posix_spawn_file_actions_destroy(&actions);
    int status = -1;
    if (error != 0 || ::waitpid(pid, &status, 0) != pid) {
        return -1;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// The simulated iPhone with one phone on USB, its usbmuxd socket in `folder`.
class SimulatedPhone {
public:
    explicit SimulatedPhone(const fs::path& folder) : m_socket(folder / "usbmuxd") {
        std::ofstream(folder / "scenario.json")
            << R"({"devices": [{"udid": ")" << kSerial << R"(", "connection": "usb"}]})";
        const std::vector<std::string> arguments = {
            TOVRIN_PYTHON, TOVRIN_SIMPHONE_SCRIPT,
            "--scenario",  (folder / "scenario.json").string(),
            "--socket",    m_socket.string(),
            "--stats",     (folder / "stats.json").string(),
            "--lifetime",  "600"};
        std::vector<char*> argv;
        for (const auto& argument : arguments) {
            argv.push_back(const_cast<char*>(argument.c_str()));
        }
        argv.push_back(nullptr);
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
        if (posix_spawn(&m_pid, argv[0], &actions, nullptr, argv.data(), environ) != 0) {
            m_pid = -1;
        }
        posix_spawn_file_actions_destroy(&actions);
        const auto deadline = Clock::now() + std::chrono::seconds(10);
        while (m_pid > 0 && !fs::exists(m_socket) && Clock::now() < deadline) {
            ::usleep(20000);
        }
    }
    ~SimulatedPhone() {
        if (m_pid > 0) {
            ::kill(m_pid, SIGTERM);
            ::waitpid(m_pid, nullptr, 0);
        }
    }
    bool isReady() const { return m_pid > 0 && fs::exists(m_socket); }
    const fs::path& socket() const { return m_socket; }

private:
    fs::path m_socket;
    pid_t m_pid = -1;
};

void usbReadThroughMuxer(benchmark::State& state) {
    std::string pattern = (fs::temp_directory_path() / "tovrin-bench-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        state.SkipWithError("no temporary folder");
        return;
    }
    const fs::path folder = pattern;
    {
        SimulatedPhone phone(folder);
        if (!phone.isReady()) {
            state.SkipWithError("the simulated iPhone did not start");
            fs::remove_all(folder);
            return;
        }
        const long before = residentKib();
        PrivateMuxer::Setup setup;
        setup.socketPath = folder / "run" / "usbmuxd";
        setup.systemMuxerPath = phone.socket().string();
        setup.ownRecordsFolder = folder / "records";
        PrivateMuxer muxer(setup);
        const auto address = muxer.start();
        if (!address) {
            state.SkipWithError("the muxer did not start");
            return;
        }
        const std::vector<std::string> read = {TOVRIN_IDEVICEINFO,         "-u", kUdid, "-q",
                                               "com.apple.mobile.battery", "-x"};
        const std::string straight = "UNIX:" + phone.socket().string();
        // One of each first, so that neither pays for a cold start.
        runTool(read, straight);
        runTool(read, *address);
        double straightSeconds = 0;
        double throughSeconds = 0;
        int failures = 0;
        for (auto _ : state) {
            auto started = Clock::now();
            failures += runTool(read, straight) != 0;
            straightSeconds += std::chrono::duration<double>(Clock::now() - started).count();
            started = Clock::now();
            failures += runTool(read, *address) != 0;
            throughSeconds += std::chrono::duration<double>(Clock::now() - started).count();
        }
        const long after = residentKib();
        const auto iterations = static_cast<double>(state.iterations());
        state.counters["straight_ms"] = 1000.0 * straightSeconds / iterations;
        state.counters["through_ms"] = 1000.0 * throughSeconds / iterations;
        state.counters["overhead_pct"] =
            100.0 * (throughSeconds - straightSeconds) / straightSeconds;
        state.counters["muxer_rss_kib"] = static_cast<double>(after - before);
        state.counters["failed_reads"] = failures;
    }
    fs::remove_all(folder);
}

} // namespace

BENCHMARK(usbReadThroughMuxer)
    ->Iterations(40)
    ->Repetitions(3)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

BENCHMARK_MAIN();
