// How much the command runner costs: (a) one run of /bin/true through the runner against a bare
// posix_spawn + waitpid of the same program; (b) draining 1 GiB of standard output through the
// runner against the same producer piped into dd reading 4,096 bytes at a time.
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <benchmark/benchmark.h>

#include "phone/CommandRunner.h"
#include "platform/linux/SpawnProcessLauncher.h"

extern char** environ;

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

// Spawns `arguments[0]` with no redirections and waits for it; the exit status, or -1.
int spawnAndWait(std::vector<std::string> arguments) {
    std::vector<char*> argv;
    for (auto& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    pid_t pid = -1;
    if (posix_spawn(&pid, argv[0], nullptr, nullptr, argv.data(), environ) != 0) {
        return -1;
    }
    int status = 0;
    while (waitpid(pid, &status, 0) < 0) {
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
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
