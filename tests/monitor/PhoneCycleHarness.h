#pragma once

// Shared by the phone-cycle, saved-reading and lifetime tests: a scripted phone, a log of the
// monitor's change notifications, temporary folders and a monitor wired to simulated time.

#include <cstdint>
#include <cstdlib>
#include <deque>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "model/BatteryDeviceSnapshot.h"
#include "monitor/BatteryMonitor.h"
#include "phone/PhoneIssue.h"
#include "phone/PhoneReader.h"
#include "phone/PhoneReading.h"
#include "tests/fakes/FakeMonitorServices.h"
#include "tests/fakes/TemporaryFolder.h"

namespace ambrel::testing::phonecycle {

inline constexpr const char* kPhoneName = "Anna\u2019s iPhone";
inline constexpr const char* kUdid = "00008110-001A2B3C4D5E6F70";
inline constexpr const char* kOtherUdid = "00008030-000C11D22E33F44A";

inline BatteryDeviceSnapshot phoneSnapshot(Date when, std::int64_t percentage = 80,
                                           std::string source = "Wi-Fi",
                                           std::optional<std::string> model = "iPhone14,2") {
    return BatteryDeviceSnapshot("iphone", kPhoneName, percentage, false, true, when,
                                 std::move(source), std::move(model));
}

inline PhoneReadResult success(Date when, std::int64_t percentage = 80,
                               std::string source = "Wi-Fi", std::string udid = kUdid) {
    PhoneIdentity identity{udid, kPhoneName, std::string("iPhone14,2")};
    // As the reader gives it: the link, and its word as the reading's source. Any other word
    // (a misspelt one, say) stands for a reading whose link the word does not name: a cable.
    const auto link = phoneLinkFromText(source).value_or(PhoneLink::usb);
    return PhoneReading{phoneSnapshot(when, percentage, std::move(source)), link, std::move(udid),
                        std::move(identity)};
}

inline PhoneReadResult failure(PhoneSetupState state, std::string message, bool isTransient) {
    return unexpected(PhoneIssue{state, std::move(message), isTransient});
}

// A phone read function that hands out queued outcomes in order and remembers every call. It may
// be called from any thread. Once the queue runs dry it fails the test and reports a plain
// "not found" issue.
class ScriptedPhone {
public:
    struct Call {
        std::filesystem::path toolDirectory;
        std::optional<std::string> preferredID;
        std::optional<PhoneIdentity> identity;
        Date at;
    };

    explicit ScriptedPhone(std::shared_ptr<const Clock> clock)
        : m_state(std::make_shared<State>()) {
        m_state->clock = std::move(clock);
    }

    void enqueue(PhoneReadResult result) {
        std::lock_guard lock(m_state->mutex);
        m_state->results.push_back(std::move(result));
    }

    std::vector<Call> calls() const {
        std::lock_guard lock(m_state->mutex);
        return m_state->calls;
    }

    PhoneReadFunction function() const {
        return [state = m_state](const std::filesystem::path& toolDirectory,
                                 const std::optional<std::string>& preferredID,
                                 const std::optional<PhoneIdentity>& identity) {
            std::lock_guard lock(state->mutex);
            state->calls.push_back({toolDirectory, preferredID, identity, state->clock->now()});
            if (state->results.empty()) {
                ADD_FAILURE() << "an unexpected phone read";
                return failure(PhoneSetupState::notFound, "unexpected read", false);
            }
            PhoneReadResult result = std::move(state->results.front());
            state->results.pop_front();
            return result;
        };
    }

private:
    struct State {
        std::mutex mutex;
        std::shared_ptr<const Clock> clock;
        std::deque<PhoneReadResult> results;
        std::vector<Call> calls;
    };
    std::shared_ptr<State> m_state;
};

inline const char* propertyName(MonitorProperty property) {
    switch (property) {
    case MonitorProperty::mac:
        return "mac";
    case MonitorProperty::phone:
        return "phone";
    case MonitorProperty::isRefreshingPhone:
        return "isRefreshingPhone";
    case MonitorProperty::phoneStatus:
        return "phoneStatus";
    case MonitorProperty::macStatus:
        return "macStatus";
    case MonitorProperty::lastPhoneAttempt:
        return "lastPhoneAttempt";
    case MonitorProperty::nextPhoneCheck:
        return "nextPhoneCheck";
    case MonitorProperty::phoneSetupState:
        return "phoneSetupState";
    case MonitorProperty::macHealth:
        return "macHealth";
    case MonitorProperty::macTimeLeft:
        return "macTimeLeft";
    }
    return "?";
}

// Every notification the monitor sends, written as "will phoneStatus" / "did phoneStatus".
class ChangeLog {
public:
    explicit ChangeLog(BatteryMonitor& monitor) : m_monitor(monitor) {
        m_id = monitor.addObserver([this](MonitorProperty property, ChangePhase phase) {
            m_entries.push_back(std::string(phase == ChangePhase::willChange ? "will " : "did ") +
                                propertyName(property));
        });
    }
    ~ChangeLog() { m_monitor.removeObserver(m_id); }
    ChangeLog(const ChangeLog&) = delete;
    ChangeLog& operator=(const ChangeLog&) = delete;

    const std::vector<std::string>& entries() const { return m_entries; }
    // The entries logged since the last call.
    std::vector<std::string> take() {
        std::vector<std::string> taken;
        taken.swap(m_entries);
        return taken;
    }

private:
    BatteryMonitor& m_monitor;
    BatteryMonitor::ObserverId m_id = 0;
    std::vector<std::string> m_entries;
};

using ::ambrel::testing::TemporaryFolder;

inline std::string readText(const std::filesystem::path& file) {
    std::ifstream stream(file, std::ios::binary);
    return std::string{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

inline void writeText(const std::filesystem::path& file, const std::string& text) {
    std::filesystem::create_directories(file.parent_path());
    std::ofstream stream(file, std::ios::binary | std::ios::trunc);
    stream << text;
}

// The permission bits of `path` (not following a final symbolic link), or -1 when it is absent.
inline int modeOf(const std::filesystem::path& path) {
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
        return -1;
    }
    return static_cast<int>(status.st_mode & 07777);
}

// A monitor in simulated time with a manual worker and a scripted phone; its cache file lives
// in a temporary folder.
class CycleHarness : public FakeMonitorServices {
public:
    CycleHarness() : phone(scheduler) {
        folders->support = folder.path() / "data";
        folders->temp = folder.path() / "tmp";
    }

    MonitorServices services() const { return FakeMonitorServices::services(phone.function()); }

    std::filesystem::path toolDirectory() const { return folder.path() / "Runtime" / "bin"; }
    std::filesystem::path cacheFile() const {
        return folder.path() / "data" / "Ambrel" / "battery-cache.json";
    }

    std::unique_ptr<BatteryMonitor> makeMonitor() {
        return std::make_unique<BatteryMonitor>(services(), toolDirectory(), cacheFile());
    }

    // Runs the reads started so far and applies their outcomes, as the main thread would once
    // the worker hands them back.
    void finishReads() {
        worker->runJobs();
        scheduler->runPosted();
    }

    Date now() const { return scheduler->now(); }

    TemporaryFolder folder;
    ScriptedPhone phone;
};

} // namespace ambrel::testing::phonecycle
