#pragma once

#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

#include <nlohmann/json.hpp>

#include "tests/fakes/ChildProcess.h"
#include "tests/fakes/ProgramBundle.h"
#include "tests/fakes/TemporaryFolder.h"
#include "tests/simphone/Scenario.h"

namespace ambrel::testing {

// The time limits of the phone tools' runs and what one run may add to its limit at worst:
// 0.5 s after SIGTERM, 1 s after SIGKILL, 1 s to collect the output. Written out here rather
// than taken from the program, so that a shorter limit there shows up as a run that ended too
// soon. The worst cases only size how long the harness lets a run go.
inline constexpr double kListTimeout = 6.0;
inline constexpr double kBatteryTimeout = 8.0;
inline constexpr double kKeyTimeout = 5.0;
inline constexpr double kRunOverhead = 2.5;
inline constexpr double kTransientRetryPause = 0.5;
// Starting the program, reading this computer's battery and printing the report.
inline constexpr double kLaunchAllowance = 4.0;

// The longest one tool run with `timeout` may take.
constexpr double worstRun(double timeout) {
    return timeout + kRunOverhead;
}

// The seconds since 2001-01-01 00:00:00 UTC, the readings' time origin, of now.
double secondsSinceReferenceDate();

// What `tovrin --readings` printed and how it ended.
struct Readings {
    ProcessOutcome outcome;
    // The one JSON line of the report; discarded (is_discarded()) when there was none.
    nlohmann::json report;
};

// A private copy of the built program laid out as an installed bundle, with phone tools that
// the test writes itself (small shell scripts) and its own home, data, config, runtime and
// temporary folders:
//   <root>/bundle/bin/tovrin, <root>/bundle/share/tovrin/Info,
//   <root>/bundle/share/tovrin/Runtime/bin/{idevice_id,ideviceinfo}
// When the tests run as root the program runs as an unprivileged user (nobody), so that file
// modes mean for it what they mean for a user: a file root cannot be kept out of is still
// unreadable to the program.
class FaultBundle {
public:
    explicit FaultBundle(const std::filesystem::path& root);

    // Empty when the bundle is complete; otherwise what went wrong.
    const std::string& failure() const { return m_failure; }

    const std::filesystem::path& root() const { return m_root; }
    const std::filesystem::path& executable() const { return m_executable; }
    const std::filesystem::path& toolFolder() const { return m_tools; }
    const std::filesystem::path& dataHome() const { return m_folders.dataHome; }
    const std::filesystem::path& configHome() const { return m_folders.configHome; }
    const std::filesystem::path& runtimeFolder() const { return m_folders.runtime; }
    std::filesystem::path cacheFile() const {
        return m_folders.dataHome / "Ambrel" / "battery-cache.json";
    }
    // Every tool run appends one line here: the tool's name, then each argument in brackets.
    std::filesystem::path toolLog() const { return m_root / "tool-runs.log"; }

    // Writes the tool `name` ("idevice_id" or "ideviceinfo") as a /bin/sh script whose body
    // is `script`; it logs its run first. `mode` is the file's mode.
    void writeTool(const std::string& name, const std::string& script,
                   std::filesystem::perms mode = std::filesystem::perms(0755)) const;

    // Writes `bytes` as the cache file (making its folder with mode 0700).
    void writeCache(const std::string& bytes) const;

    // The lines of the tool log.
    std::vector<std::string> toolRuns() const;

    // The user id the program runs as.
    static unsigned runningUser();

    // The program's environment for a run without a display (the offscreen platform).
    std::vector<std::string> environment() const;
    // The same for a run under xvfb-run, which sets DISPLAY itself.
    std::vector<std::string> environmentForXvfbRun() const;

    // The command that starts the program with `arguments`, as the running user.
    std::vector<std::string> command(const std::vector<std::string>& arguments) const;

    // Hands the whole tree to the running user, except `keepOwner` (left as it is).
    void handOver(const std::vector<std::filesystem::path>& keepOwner = {}) const;

    // Runs `tovrin --readings` (after handOver(keepOwner)) and parses its report. Killed at
    // `limit`.
    Readings readings(std::chrono::duration<double> limit,
                      const std::vector<std::filesystem::path>& keepOwner = {}) const;

private:
    std::vector<std::string> environmentWithDisplay(bool underXvfbRun) const;

    std::filesystem::path m_root;
    std::filesystem::path m_executable;
    std::filesystem::path m_tools;
    UserFolders m_folders;
    std::filesystem::path m_temporary;
    std::string m_failure;
};

// The processes whose executable is `executable`, leaving out a child of one of them that is
// caught between its fork and its exec.
std::vector<pid_t> processesRunning(const std::filesystem::path& executable);

// Whether process `pid` exists and has not ended (a zombie has ended).
bool isAlive(pid_t pid);

// The bytes of a file; absent when it cannot be read.
std::optional<std::string> fileBytes(const std::filesystem::path& path);

// A saved phone reading as the program writes it: compact JSON of one snapshot.
std::string savedReading(const std::string& name, int percentage, double lastUpdated,
                         const std::string& source = "Wi-Fi");

// Shell text that prints a battery answer with `percentage` as a property list, the way
// `ideviceinfo -x` does.
std::string batteryAnswer(int percentage, bool charging = false);

// A script body for ideviceinfo answering the battery query with `batteryScript` and the
// name and model keys with a phone's.
std::string infoTool(const std::string& batteryScript);

// idevice_id that lists the phone (kUdid) over Wi-Fi only.
inline const std::string kListsWiFiPhone = "case \"$1\" in -n) echo " + kUdid + " ;; esac\n";

} // namespace ambrel::testing
