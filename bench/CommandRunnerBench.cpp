// How much the command runner costs: (a) one run of /bin/true through the runner against the
// same program started bare, with nothing captured, and waited for; (b) draining 1 GiB of
// standard output through the runner against the same producer piped into dd reading 4,096
// bytes at a time.
#include <chrono>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <sys/resource.h>

#include <benchmark/benchmark.h>

#include "phone/CommandRunner.h"
#include "platform/linux/SpawnProcessLauncher.h"
#include "tests/fakes/ChildProcess.h"

namespace {

constexpr const char* kTrue = "/bin/true";
constexpr const char* kHead = "/usr/bin/head";
constexpr const char* kFloodBytes = "1073741824";

// Largest resident set of this process so far, in KiB.
double maxResidentKiB() {
    rusage usage{};
    getrusage(RUSAGE_SELF, &usage);
    return static_cast<double>(usage.ru_maxrss);
}

// Starts `arguments[0]` with its outputs left as they are and waits for it: its exit status,
// 128 + the signal that ended it, or -1 when it did not start or ran past any sane time.
int spawnAndWait(std::vector<std::string> arguments) {
    ambrel::testing::ProcessOptions options;
    options.arguments = std::move(arguments);
    options.output = ambrel::testing::OutputTo::inherit;
    options.error = ambrel::testing::OutputTo::inherit;
    ambrel::testing::ChildProcess child(std::move(options));
    return child.waitForExit(std::chrono::minutes(10)).value_or(-1);
}

// The program's one launcher.
ambrel::SpawnProcessLauncher& launcher() {
    static ambrel::SpawnProcessLauncher instance;
    return instance;
}

void runTrueThroughRunner(benchmark::State& state) {
    for (auto _ : state) {
        const auto output =
            ambrel::CommandRunner::run(launcher(), kTrue, {}, std::chrono::seconds(5));
        if (output.status != 0) {
            state.SkipWithError("/bin/true did not succeed");
            break;
        }
    }
}

void spawnTrueBare(benchmark::State& state) {
    for (auto _ : state) {
        if (spawnAndWait({kTrue}) != 0) {
            state.SkipWithError("/bin/true did not succeed");
            break;
        }
    }
}

void drainGibibyteThroughRunner(benchmark::State& state) {
    const double residentBefore = maxResidentKiB();
    for (auto _ : state) {
        const auto output = ambrel::CommandRunner::run(
            launcher(), kHead, {"-c", kFloodBytes, "/dev/zero"}, std::chrono::seconds(120));
        if (output.status != 0 || output.timedOut ||
            output.stdoutText.size() != ambrel::CommandRunner::kCapturedBytesLimit) {
            state.SkipWithError("the flood did not drain as expected");
            break;
        }
    }
    state.SetBytesProcessed(state.iterations() * std::int64_t{1073741824});
    state.counters["maxRSS_KiB_before"] = residentBefore;
    state.counters["maxRSS_KiB_after"] = maxResidentKiB();
}

void drainGibibyteThroughDd(benchmark::State& state) {
    const std::string pipeline = std::string(kHead) + " -c " + kFloodBytes +
                                 " /dev/zero | dd bs=4096 of=/dev/null status=none";
    for (auto _ : state) {
        if (spawnAndWait({"/bin/sh", "-c", pipeline}) != 0) {
            state.SkipWithError("the reference pipeline failed");
            break;
        }
    }
    state.SetBytesProcessed(state.iterations() * std::int64_t{1073741824});
}

BENCHMARK(runTrueThroughRunner)
    ->UseRealTime()
    ->Repetitions(10)
    ->ReportAggregatesOnly(true)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(spawnTrueBare)
    ->UseRealTime()
    ->Repetitions(10)
    ->ReportAggregatesOnly(true)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(drainGibibyteThroughRunner)
    ->UseRealTime()
    ->Iterations(1)
    ->Repetitions(7)
    ->ReportAggregatesOnly(true)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(drainGibibyteThroughDd)
    ->UseRealTime()
    ->Iterations(1)
    ->Repetitions(7)
    ->ReportAggregatesOnly(true)
    ->Unit(benchmark::kMillisecond);

} // namespace

BENCHMARK_MAIN();
