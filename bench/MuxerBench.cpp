// What the program's muxer costs a phone read over USB: the real `ideviceinfo -u <udid> -q
// com.apple.mobile.battery -x` against the simulated iPhone as the system's usbmuxd, straight
// and through the muxer, in pairs whose order alternates so that both see the same machine.
// Each repetition reports the median time of each way (straight_ms, through_ms) and
// overhead_pct = (through - straight) / straight of those medians; the aim is under 5 %. A
// median rather than a mean because a busy machine stalls a read now and then by far more than
// the muxer costs. muxer_cpu_us is the processor time the muxer's threads spent per read, which
// other work on the machine barely changes. muxer_rss_kib is the resident memory a started
// muxer (server, pair records, Wi-Fi discovery) adds to a process once it served a few reads,
// measured in a fresh process each repetition; the aim is under 1024 KiB.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <sys/resource.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include "bench/RunBenchmarks.h"
#include "muxer/PrivateMuxer.h"
#include "tests/fakes/ChildProcess.h"

namespace {

namespace fs = std::filesystem;
using ambrel::PrivateMuxer;
using ambrel::testing::ChildProcess;
using ambrel::testing::environmentWith;
using ambrel::testing::OutputTo;
using ambrel::testing::ProcessOptions;
using ambrel::testing::runToEnd;
using Clock = std::chrono::steady_clock;

// A wait no read or probe comes near: one that did would be stuck, not slow.
constexpr std::chrono::minutes kNoEnd{10};

constexpr const char* kSerial = "00008110001A2B3C4D5E6F70";
constexpr const char* kUdid = "00008110-001A2B3C4D5E6F70";
// The switch that makes this program the fresh process whose memory is measured.
constexpr const char* kMemoryProbe = "--muxer-memory-probe";
// Reads the memory probe serves before it looks at its memory.
constexpr int kProbeReads = 10;

const std::vector<std::string> kRead = {TOVRIN_IDEVICEINFO,         "-u", kUdid, "-q",
                                        "com.apple.mobile.battery", "-x"};

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

double processorSeconds() {
    rusage usage{};
    ::getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_utime.tv_sec + usage.ru_stime.tv_sec) +
           static_cast<double>(usage.ru_utime.tv_usec + usage.ru_stime.tv_usec) / 1e6;
}

double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    const auto middle = values.size() / 2;
    return values.size() % 2 == 1 ? values[middle] : (values[middle - 1] + values[middle]) / 2;
}

// How `arguments` start: with `address` as USBMUXD_SOCKET_ADDRESS (when not empty), standard
// input from /dev/null, standard output on a pipe or discarded, standard error discarded.
ProcessOptions launch(const std::vector<std::string>& arguments, const std::string& address,
                      OutputTo output = OutputTo::discard) {
    ProcessOptions options;
    options.arguments = arguments;
    if (!address.empty()) {
        options.environment = environmentWith({{"USBMUXD_SOCKET_ADDRESS", address}});
    }
    options.output = output;
    options.error = OutputTo::discard;
    return options;
}

// One read with `address` as the muxer; its exit status, or -1 when it did not start or end.
int runRead(const std::string& address) {
    ChildProcess read(launch(kRead, address));
    return read.waitForExit(kNoEnd).value_or(-1);
}

// The simulated iPhone with one phone on USB, its usbmuxd socket in `folder`.
class SimulatedPhone {
public:
    explicit SimulatedPhone(const fs::path& folder) : m_socket(folder / "usbmuxd") {
        std::ofstream(folder / "scenario.json")
            << R"({"devices": [{"udid": ")" << kSerial << R"(", "connection": "usb"}]})";
        m_process = std::make_unique<ChildProcess>(
            launch({TOVRIN_PYTHON, TOVRIN_SIMPHONE_SCRIPT, "--scenario",
                    (folder / "scenario.json").string(), "--socket", m_socket.string(), "--stats",
                    (folder / "stats.json").string(), "--lifetime", "600"},
                   ""));
        const auto deadline = Clock::now() + std::chrono::seconds(10);
        while (m_process->isStarted() && !fs::exists(m_socket) && Clock::now() < deadline) {
            ::usleep(20000);
        }
    }
    bool isReady() const { return m_process->isStarted() && fs::exists(m_socket); }
    const fs::path& socket() const { return m_socket; }

private:
    fs::path m_socket;
    // Stopped when the phone goes.
    std::unique_ptr<ChildProcess> m_process;
};

PrivateMuxer::Setup setupIn(const fs::path& folder, const fs::path& systemMuxer) {
    std::error_code error;
    fs::create_directories(folder, error);
    PrivateMuxer::Setup setup;
    setup.socketPath = folder / "run" / "usbmuxd";
    setup.systemMuxerPath = systemMuxer.string();
    setup.ownRecordsFolder = folder / "records";
    return setup;
}

// The fresh process: starts a muxer in `folder` in front of `systemMuxer`, serves a few reads
// through it and prints how many KiB of resident memory that added. Its exit status is 1 when
// the muxer did not start or a read failed.
int probeMemory(const fs::path& systemMuxer, const fs::path& folder) {
    const long before = residentKib();
    int failures = 0;
    {
        PrivateMuxer muxer(setupIn(folder, systemMuxer));
        const auto address = muxer.start();
        if (!address) {
            return 1;
        }
        for (int read = 0; read < kProbeReads; ++read) {
            failures += runRead(*address) != 0;
        }
        std::printf("%ld\n", residentKib() - before);
    }
    return failures == 0 ? 0 : 1;
}

// Runs the memory probe on this very program; the KiB it printed.
std::optional<long> muxerResidentKib(const fs::path& systemMuxer, const fs::path& folder) {
    const auto probe = runToEnd(launch({fs::read_symlink("/proc/self/exe").string(), kMemoryProbe,
                                        systemMuxer.string(), folder.string()},
                                       "", OutputTo::pipe),
                                kNoEnd);
    if (probe.exitCode != 0 || probe.out.empty()) {
        return std::nullopt;
    }
    return std::strtol(probe.out.c_str(), nullptr, 10);
}

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
        PrivateMuxer muxer(setupIn(folder / "timed", phone.socket()));
        const auto address = muxer.start();
        if (!address) {
            state.SkipWithError("the muxer did not start");
            fs::remove_all(folder);
            return;
        }
        const std::string straight = "UNIX:" + phone.socket().string();
        // One of each first, so that neither pays for a cold start.
        runRead(straight);
        runRead(*address);
        std::vector<double> straightMs;
        std::vector<double> throughMs;
        double straightCpu = 0;
        double throughCpu = 0;
        int failures = 0;
        for (auto _ : state) {
            for (int leg = 0; leg < 2; ++leg) {
                const bool isThrough = (leg == 0) == (throughMs.size() % 2 == 1);
                const auto started = Clock::now();
                const double cpuBefore = processorSeconds();
                failures += runRead(isThrough ? *address : straight) != 0;
                const double cpu = processorSeconds() - cpuBefore;
                const double ms =
                    std::chrono::duration<double, std::milli>(Clock::now() - started).count();
                (isThrough ? throughMs : straightMs).push_back(ms);
                (isThrough ? throughCpu : straightCpu) += cpu;
            }
        }
        const double straightMedian = median(straightMs);
        const double throughMedian = median(throughMs);
        const auto reads = static_cast<double>(state.iterations());
        state.counters["straight_ms"] = straightMedian;
        state.counters["through_ms"] = throughMedian;
        state.counters["overhead_pct"] = 100.0 * (throughMedian - straightMedian) / straightMedian;
        state.counters["muxer_cpu_us"] = 1e6 * (throughCpu - straightCpu) / reads;
        state.counters["failed_reads"] = failures;
        const auto resident = muxerResidentKib(phone.socket(), folder / "probe");
        if (!resident) {
            state.SkipWithError("the memory probe failed");
        } else {
            state.counters["muxer_rss_kib"] = static_cast<double>(*resident);
        }
    }
    fs::remove_all(folder);
}

} // namespace

BENCHMARK(usbReadThroughMuxer)
    ->Iterations(40)
    ->Repetitions(3)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

int main(int argc, char** argv) {
    if (argc == 4 && std::strcmp(argv[1], kMemoryProbe) == 0) {
        return probeMemory(argv[2], argv[3]);
    }
    return ambrel::bench::runBenchmarks(argc, argv);
}
