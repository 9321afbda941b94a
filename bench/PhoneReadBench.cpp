// What a phone read costs beyond its tools: PhoneReader::readAttempt against stand-in tools
// that each take a known time, next to the same tool runs started bare (nothing captured, each
// waited for, one after another). The counter overhead_pct is (read - bare) / bare; the aim is
// under 5 %. Two reads: a first one (list, battery, name, model) and one with the phone's
// identity remembered (list, battery).
#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <unistd.h>

#include <benchmark/benchmark.h>

#include "phone/PhoneReader.h"
#include "platform/linux/SpawnProcessLauncher.h"
#include "platform/linux/SystemClock.h"
#include "tests/fakes/ChildProcess.h"

namespace {

namespace fs = std::filesystem;
using Seconds = std::chrono::duration<double>;

constexpr const char* kUdid = "00008110-001A2B3C4D5E6F70";
// How long each stand-in tool works before it answers, like a quick real tool over USB.
constexpr const char* kToolSeconds = "0.1";

// A folder with the two stand-in tools; removed at exit.
class ToolFolder {
public:
    ToolFolder() {
        std::string pattern = (fs::temp_directory_path() / "tovrin-bench-XXXXXX").string();
        if (::mkdtemp(pattern.data()) == nullptr) {
            return;
        }
        m_path = pattern;
        write("idevice_id", std::string("sleep ") + kToolSeconds + "\ncase \"$1\" in -n) echo " +
                                kUdid + " ;; esac\n");
        write("ideviceinfo",
              std::string("sleep ") + kToolSeconds +
                  "\ncase \"$*\" in\n"
                  "*com.apple.mobile.battery*) printf '%s\\n' '<?xml version=\"1.0\"?>' "
                  "'<plist version=\"1.0\"><dict><key>BatteryCurrentCapacity</key>' "
                  "'<integer>87</integer><key>BatteryIsCharging</key><false/></dict></plist>' ;;\n"
                  "*DeviceName*) echo 'Bench iPhone' ;;\n"
                  "*ProductType*) echo 'iPhone14,2' ;;\n"
                  "esac\n");
    }
    ~ToolFolder() {
        std::error_code error;
        if (!m_path.empty()) {
            fs::remove_all(m_path, error);
        }
    }
    ToolFolder(const ToolFolder&) = delete;
    ToolFolder& operator=(const ToolFolder&) = delete;

    const fs::path& path() const { return m_path; }

private:
    void write(const std::string& name, const std::string& body) {
        std::ofstream(m_path / name) << "#!/bin/sh\n" << body;
        fs::permissions(m_path / name, fs::perms(0755));
    }

    fs::path m_path;
};

const ToolFolder& tools() {
    static const ToolFolder folder;
    return folder;
}

// Runs one tool bare with its output on /dev/null and waits for it; false when it failed.
bool runBare(const std::vector<std::string>& arguments) {
    ambrel::testing::ProcessOptions options;
    options.arguments = arguments;
    options.output = ambrel::testing::OutputTo::discard;
    options.error = ambrel::testing::OutputTo::discard;
    ambrel::testing::ChildProcess tool(std::move(options));
    return tool.waitForExit(std::chrono::minutes(10)) == 0;
}

// The tool runs a successful Wi-Fi read makes, in order.
std::vector<std::vector<std::string>> toolRuns(bool identityKnown) {
    const std::string list = (tools().path() / "idevice_id").string();
    const std::string info = (tools().path() / "ideviceinfo").string();
    std::vector<std::vector<std::string>> runs = {
        {list, "-n"},
        {info, "-n", "-u", kUdid, "-q", "com.apple.mobile.battery", "-x"},
    };
    if (!identityKnown) {
        runs.push_back({info, "-n", "-u", kUdid, "-k", "DeviceName"});
        runs.push_back({info, "-n", "-u", kUdid, "-k", "ProductType"});
    }
    return runs;
}

void phoneRead(benchmark::State& state) {
    const bool identityKnown = state.range(0) != 0;
    if (tools().path().empty()) {
        state.SkipWithError("no temporary folder for the tools");
        return;
    }
    const ambrel::SystemClock clock;
    ambrel::SpawnProcessLauncher launcher;
    const std::optional<std::string> preferred =
        identityKnown ? std::optional<std::string>(kUdid) : std::nullopt;
    const std::optional<ambrel::PhoneIdentity> identity =
        identityKnown ? std::optional<ambrel::PhoneIdentity>(
                            ambrel::PhoneIdentity{kUdid, "Bench iPhone", "iPhone14,2"})
                      : std::nullopt;
    const auto runs = toolRuns(identityKnown);
    double readSeconds = 0.0;
    double bareSeconds = 0.0;
    for (auto _ : state) {
        const auto readStart = std::chrono::steady_clock::now();
        const auto result =
            ambrel::PhoneReader::readAttempt(tools().path(), preferred, identity, clock, launcher);
        const Seconds read = std::chrono::steady_clock::now() - readStart;
        if (!result || result.value().snapshot.percentage() != 87) {
            state.SkipWithError("the read did not succeed");
            return;
        }
        const auto bareStart = std::chrono::steady_clock::now();
        for (const auto& run : runs) {
            if (!runBare(run)) {
                state.SkipWithError("a bare tool run failed");
                return;
            }
        }
        const Seconds bare = std::chrono::steady_clock::now() - bareStart;
        state.SetIterationTime(read.count());
        readSeconds += read.count();
        bareSeconds += bare.count();
    }
    state.counters["tool_runs"] = static_cast<double>(runs.size());
    state.counters["read_ms"] = 1000.0 * readSeconds / static_cast<double>(state.iterations());
    state.counters["bare_ms"] = 1000.0 * bareSeconds / static_cast<double>(state.iterations());
    state.counters["overhead_pct"] = 100.0 * (readSeconds - bareSeconds) / bareSeconds;
}

double smallest(const std::vector<double>& values) {
    return *std::min_element(values.begin(), values.end());
}

double largest(const std::vector<double>& values) {
    return *std::max_element(values.begin(), values.end());
}

BENCHMARK(phoneRead)
    ->ArgName("identityKnown")
    ->Arg(0)
    ->Arg(1)
    ->UseManualTime()
    ->Iterations(3)
    ->Repetitions(3)
    ->ComputeStatistics("min", smallest)
    ->ComputeStatistics("max", largest)
    ->ReportAggregatesOnly(true)
    ->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
