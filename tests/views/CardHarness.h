#pragma once

#include <deque>
#include <memory>
#include <optional>
#include <string>

#include <QTemporaryDir>

#include "monitor/BatteryMonitor.h"
#include "presentation/UserLocale.h"
#include "tests/fakes/FakeMonitorServices.h"

namespace ambrel::testing {

// A BatteryMonitor on fakes for the views' tests: simulated time, a worker whose jobs run when
// the test says, this computer's battery set by the test and phone reads answered from a queue.
class CardHarness {
public:
    // 2026-11-14 14:41 UTC: 9:41 AM in New York.
    static constexpr double kStartUnixSeconds = 1794667260.0;

    CardHarness();

    BatteryMonitor& monitor() { return *m_monitor; }
    // The locale the test environment's user has, as the program would make it.
    const UserLocale& locale() const { return m_locale; }
    SimulatedScheduler& scheduler() { return *m_fakes.scheduler; }
    ManualWorker& worker() { return *m_fakes.worker; }
    FakePowerSourceProvider& powerSources() { return *m_fakes.power; }
    FakeHostInfo& host() { return *m_fakes.host; }

    // This computer's battery at `percentage` of capacity from now on.
    void setMacBattery(std::int64_t percentage, bool charging = false, bool pluggedIn = false);
    // The same, and the monitor reads it now.
    void readMacBattery(std::int64_t percentage, bool charging = false, bool pluggedIn = false);
    // The next phone reads succeed with this reading, dated at the moment of the read.
    void answerPhone(std::int64_t percentage, const std::string& name = "Work iPhone",
                     const std::string& source = "Wi-Fi");
    // The next phone reads fail this way.
    void failPhone(PhoneSetupState state, const std::string& message);
    // Runs the pending phone read and applies its outcome on the "main thread".
    void finishPhoneRead();
    // Starts a phone read and lets it finish.
    void readPhoneNow();
    // How many times this computer's battery was read.
    int macReads() const { return m_fakes.power->calls; }

private:
    UserLocale m_locale;
    QTemporaryDir m_folder;
    FakeMonitorServices m_fakes;
    struct PhoneAnswer {
        std::optional<std::int64_t> percentage;
        std::string name;
        std::string source;
        PhoneIssue issue;
    };
    std::shared_ptr<PhoneAnswer> m_answer;
    std::unique_ptr<BatteryMonitor> m_monitor;
};

} // namespace ambrel::testing
