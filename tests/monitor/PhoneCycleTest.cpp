#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "model/BatteryRefreshPolicy.h"
#include "monitor/BatteryMonitor.h"
#include "monitor/ReadingCache.h"
#include "tests/fakes/ExpectedTexts.h"
#include "tests/monitor/PhoneCycleHarness.h"

namespace ambrel::testing::phonecycle {
namespace {

using namespace ::ambrel::testing::expected;

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class PhoneCycleTest : public ::testing::Test {
protected:
    // After `early` seconds no read has started; `rest` seconds later the next one has, as the
    // attempt of `due`.
    void expectNextReadAfter(const BatteryMonitor& monitor, double early, double rest, Date due) {
        h.scheduler->advance(early);
        EXPECT_EQ(h.worker->pendingJobs(), 0u);
        h.scheduler->advance(rest);
        EXPECT_EQ(h.worker->pendingJobs(), 1u);
        EXPECT_EQ(monitor.lastPhoneAttempt(), due);
    }

    // A monitor whose phone read has just started.
    std::unique_ptr<BatteryMonitor> monitorReadingPhone() {
        auto monitor = h.makeMonitor();
        monitor->refreshPhone();
        return monitor;
    }

    CycleHarness h;
};

TEST_F(PhoneCycleTest, ConstructionStartsNothingAndIsIdle) {
    auto monitor = h.makeMonitor();
    EXPECT_FALSE(monitor->isRefreshingPhone());
    EXPECT_EQ(monitor->phoneSetupState(), PhoneSetupState::checking);
    EXPECT_EQ(monitor->phoneStatus(), "Checking for your iPhone\u2026");
    EXPECT_FALSE(monitor->lastPhoneAttempt().has_value());
    EXPECT_FALSE(monitor->nextPhoneCheck().has_value());
    EXPECT_FALSE(monitor->phone().has_value());
    EXPECT_EQ(h.worker->pendingJobs(), 0u);
    EXPECT_EQ(h.scheduler->validTimerCount(), 0);
    h.scheduler->advance(3600);
    EXPECT_THAT(h.phone.calls(), IsEmpty());
}

TEST_F(PhoneCycleTest, RefreshPhoneChangesStateInOrderAndHandsCopiesToTheWorker) {
    auto monitor = h.makeMonitor();
    ChangeLog log(*monitor);
    // At each notification, the value as an observer sees it.
    std::vector<std::string> seen;
    monitor->addObserver([&](MonitorProperty property, ChangePhase) {
        if (property == MonitorProperty::phoneStatus) {
            seen.push_back(monitor->phoneStatus());
        }
        if (property == MonitorProperty::isRefreshingPhone) {
            seen.push_back(monitor->isRefreshingPhone() ? "refreshing" : "idle");
        }
    });
    const Date started = h.now();

    monitor->refreshPhone();

    EXPECT_THAT(log.take(),
                ElementsAre("will isRefreshingPhone", "did isRefreshingPhone",
                            "will phoneSetupState", "did phoneSetupState", "will phoneStatus",
                            "did phoneStatus", "will lastPhoneAttempt", "did lastPhoneAttempt",
                            "will nextPhoneCheck", "did nextPhoneCheck"));
    // Observers are told before the value changes and again after.
    EXPECT_THAT(
        seen, ElementsAre("idle", "refreshing", "Checking for your iPhone\u2026", kCheckingPhone));
    EXPECT_TRUE(monitor->isRefreshingPhone());
    EXPECT_EQ(monitor->phoneSetupState(), PhoneSetupState::checking);
    EXPECT_EQ(monitor->phoneStatus(), kCheckingPhone);
    EXPECT_EQ(monitor->lastPhoneAttempt(), started);
    EXPECT_FALSE(monitor->nextPhoneCheck().has_value());

    // The read has not run yet: it belongs to the worker, not to the main thread.
    EXPECT_EQ(h.worker->pendingJobs(), 1u);
    EXPECT_THAT(h.phone.calls(), IsEmpty());
    h.phone.enqueue(success(h.now()));
    h.worker->runJobs();
    ASSERT_EQ(h.phone.calls().size(), 1u);
    EXPECT_EQ(h.phone.calls()[0].toolDirectory, h.toolDirectory());
    EXPECT_FALSE(h.phone.calls()[0].preferredID.has_value());
    EXPECT_FALSE(h.phone.calls()[0].identity.has_value());
    // Nothing is applied until the main thread runs the posted outcome.
    EXPECT_TRUE(monitor->isRefreshingPhone());
    EXPECT_THAT(log.entries(), IsEmpty());
    EXPECT_EQ(h.scheduler->runPosted(), 1);
    EXPECT_FALSE(monitor->isRefreshingPhone());
}

TEST_F(PhoneCycleTest, TwoRefreshesInARowStartOneRead) {
    auto monitor = h.makeMonitor();
    const Date first = h.now();
    monitor->refreshPhone();
    h.scheduler->shiftClock(2);
    ChangeLog log(*monitor);
    monitor->refreshPhone();
    EXPECT_THAT(log.entries(), IsEmpty());
    EXPECT_EQ(monitor->lastPhoneAttempt(), first);
    EXPECT_EQ(h.worker->pendingJobs(), 1u);

    h.phone.enqueue(success(h.now()));
    h.finishReads();
    EXPECT_EQ(h.phone.calls().size(), 1u);
    EXPECT_EQ(monitor->lastPhoneAttempt(), first);
}

TEST_F(PhoneCycleTest, SuccessOverWiFiAppliesInOrderSavesAndArmsTheNextCheck) {
    auto monitor = monitorReadingPhone();
    ChangeLog log(*monitor);
    bool cacheWrittenBeforeIdle = false;
    monitor->addObserver([&](MonitorProperty property, ChangePhase phase) {
        if (property == MonitorProperty::isRefreshingPhone && phase == ChangePhase::willChange) {
            cacheWrittenBeforeIdle = std::filesystem::exists(h.cacheFile());
        }
    });
    const Date taken = h.now().addingSeconds(-0.25);
    h.phone.enqueue(success(taken, 64, "Wi-Fi"));
    h.worker->runJobs();
    h.scheduler->shiftClock(3);
    const Date applied = h.now();
    h.scheduler->runPosted();

    EXPECT_THAT(log.entries(),
                ElementsAre("will phone", "did phone", "will phoneSetupState",
                            "did phoneSetupState", "will phoneStatus", "did phoneStatus",
                            "will isRefreshingPhone", "did isRefreshingPhone",
                            "will nextPhoneCheck", "did nextPhoneCheck"));
    EXPECT_TRUE(cacheWrittenBeforeIdle);
    ASSERT_TRUE(monitor->phone().has_value());
    EXPECT_EQ(monitor->phone()->percentage(), 64);
    EXPECT_EQ(monitor->phone()->lastUpdated(), taken);
    EXPECT_EQ(monitor->phoneSetupState(), PhoneSetupState::ready);
    EXPECT_EQ(monitor->phoneStatus(), kConnectedOverWiFi);
    EXPECT_FALSE(monitor->isRefreshingPhone());
    EXPECT_EQ(monitor->nextPhoneCheck(), applied.addingSeconds(300));
    EXPECT_EQ(h.scheduler->validTimerCount(), 1);
    EXPECT_EQ(h.scheduler->scheduledIntervals().back(), 300.0);

    const auto saved = ReadingCache::load(h.cacheFile(), h.now());
    ASSERT_TRUE(saved.has_value());
    EXPECT_EQ(saved->percentage(), 64);
    EXPECT_EQ(saved->lastUpdated(), taken);
    EXPECT_EQ(saved->source(), "Wi-Fi");
}

TEST_F(PhoneCycleTest, WiFiStatusIsBuiltFromThePhoneInterval) {
    EXPECT_EQ(BatteryMonitor::wifiStatus(), kConnectedOverWiFi);
    EXPECT_EQ(BatteryMonitor::wifiStatus(),
              "Connected over Wi-Fi \u00b7 checks every " +
                  std::to_string(static_cast<int>(BatteryRefreshPolicy::phoneInterval / 60)) +
                  " min");
}

TEST_F(PhoneCycleTest, SuccessOverUsbShowsTheCableText) {
    auto monitor = monitorReadingPhone();
    h.phone.enqueue(success(h.now(), 90, "USB"));
    h.finishReads();
    EXPECT_EQ(monitor->phoneStatus(), kConnectedByUsb);
    EXPECT_EQ(monitor->phoneSetupState(), PhoneSetupState::ready);
    EXPECT_EQ(monitor->phone()->source(), "USB");
}

TEST_F(PhoneCycleTest, SourceComparisonIsExactAndCaseSensitive) {
    auto monitor = h.makeMonitor();
    for (const char* source : {"wi-fi", "WI-FI", "Wi-Fi ", "WiFi"}) {
        monitor->refreshPhone();
        h.phone.enqueue(success(h.now(), 50, source));
        h.finishReads();
        EXPECT_EQ(monitor->phoneStatus(), kConnectedByUsb) << source;
        EXPECT_EQ(monitor->phone()->source(), source);
    }
    monitor->refreshPhone();
    h.phone.enqueue(success(h.now(), 50, "Wi-Fi"));
    h.finishReads();
    EXPECT_EQ(monitor->phoneStatus(), kConnectedOverWiFi);
}

TEST_F(PhoneCycleTest, FailureAppliesStateThenMessageAndKeepsTheReading) {
    auto monitor = monitorReadingPhone();
    h.phone.enqueue(success(h.now(), 77, "Wi-Fi", kUdid));
    h.finishReads();
    const std::string savedText = readText(h.cacheFile());
    ASSERT_FALSE(savedText.empty());

    h.scheduler->advance(300);
    ASSERT_EQ(h.worker->pendingJobs(), 1u);
    ChangeLog log(*monitor);
    h.phone.enqueue(failure(PhoneSetupState::needsPairing, "pair it", false));
    h.finishReads();

    EXPECT_THAT(log.entries(),
                ElementsAre("will phoneSetupState", "did phoneSetupState", "will phoneStatus",
                            "did phoneStatus", "will isRefreshingPhone", "did isRefreshingPhone",
                            "will nextPhoneCheck", "did nextPhoneCheck"));
    EXPECT_EQ(monitor->phoneSetupState(), PhoneSetupState::needsPairing);
    EXPECT_EQ(monitor->phoneStatus(), "pair it");
    ASSERT_TRUE(monitor->phone().has_value());
    EXPECT_EQ(monitor->phone()->percentage(), 77);
    // A failed read leaves the saved reading as it was.
    EXPECT_EQ(readText(h.cacheFile()), savedText);

    // The remembered phone is kept: the next read asks for the same one, with its identity.
    h.scheduler->advance(300);
    h.phone.enqueue(failure(PhoneSetupState::notFound, kNotFound, false));
    h.finishReads();
    const auto calls = h.phone.calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_FALSE(calls[0].preferredID.has_value());
    for (std::size_t index = 1; index < calls.size(); ++index) {
        EXPECT_EQ(calls[index].preferredID, std::optional<std::string>(kUdid));
        ASSERT_TRUE(calls[index].identity.has_value());
        EXPECT_EQ(calls[index].identity->udid, kUdid);
        EXPECT_EQ(calls[index].identity->name, kPhoneName);
        EXPECT_EQ(calls[index].identity->model, std::optional<std::string>("iPhone14,2"));
    }
    EXPECT_EQ(monitor->phone()->percentage(), 77);
}

TEST_F(PhoneCycleTest, EveryIssueStateIsShownAsItComes) {
    auto monitor = h.makeMonitor();
    for (const PhoneSetupState state :
         {PhoneSetupState::needsPairing, PhoneSetupState::notFound, PhoneSetupState::unavailable,
          PhoneSetupState::ready, PhoneSetupState::checking}) {
        monitor->refreshPhone();
        h.phone.enqueue(
            failure(state, std::string("issue ") + std::string(rawValue(state)), false));
        h.finishReads();
        EXPECT_EQ(monitor->phoneSetupState(), state);
        EXPECT_EQ(monitor->phoneStatus(), "issue " + std::string(rawValue(state)));
        EXPECT_FALSE(monitor->isRefreshingPhone());
    }
    EXPECT_FALSE(monitor->phone().has_value());
}

TEST_F(PhoneCycleTest, NewReadingReplacesTheRememberedPhone) {
    auto monitor = monitorReadingPhone();
    h.phone.enqueue(success(h.now(), 40, "USB", kUdid));
    h.finishReads();
    monitor->refreshPhone();
    h.phone.enqueue(success(h.now(), 41, "Wi-Fi", kOtherUdid));
    h.finishReads();
    monitor->refreshPhone();
    h.phone.enqueue(failure(PhoneSetupState::notFound, kNotFound, false));
    h.finishReads();
    const auto calls = h.phone.calls();
    ASSERT_EQ(calls.size(), 3u);
    EXPECT_EQ(calls[1].preferredID, std::optional<std::string>(kUdid));
    EXPECT_EQ(calls[2].preferredID, std::optional<std::string>(kOtherUdid));
    EXPECT_EQ(calls[2].identity->udid, kOtherUdid);
}

TEST_F(PhoneCycleTest, TransientFailureIsRetriedOnceAfterHalfASecond) {
    auto monitor = monitorReadingPhone();
    ChangeLog log(*monitor);
    const Date started = h.now();
    h.phone.enqueue(failure(PhoneSetupState::notFound, kTemporarilyUnavailable, true));
    h.phone.enqueue(success(h.now(), 55, "Wi-Fi"));
    h.worker->runJobs();

    const auto calls = h.phone.calls();
    ASSERT_EQ(calls.size(), 2u);
    EXPECT_EQ(calls[1].at.secondsSince(calls[0].at), 0.5);
    EXPECT_EQ(calls[0].at, started);
    EXPECT_EQ(calls[1].toolDirectory, calls[0].toolDirectory);
    EXPECT_EQ(calls[1].preferredID, calls[0].preferredID);
    EXPECT_EQ(calls[1].identity, calls[0].identity);
    EXPECT_THAT(h.worker->pauses(), ElementsAre(0.5));
    // The first outcome never reaches the main thread: one outcome is posted.
    EXPECT_THAT(log.entries(), IsEmpty());
    EXPECT_EQ(h.scheduler->runPosted(), 1);

    EXPECT_THAT(log.entries(),
                ElementsAre("will phone", "did phone", "will phoneSetupState",
                            "did phoneSetupState", "will phoneStatus", "did phoneStatus",
                            "will isRefreshingPhone", "did isRefreshingPhone",
                            "will nextPhoneCheck", "did nextPhoneCheck"));
    EXPECT_EQ(monitor->phoneSetupState(), PhoneSetupState::ready);
    EXPECT_EQ(monitor->phoneStatus(), kConnectedOverWiFi);
    EXPECT_EQ(monitor->phone()->percentage(), 55);
}

TEST_F(PhoneCycleTest, TwoTransientFailuresShowTheSecondAndNeverTryAThirdTime) {
    auto monitor = monitorReadingPhone();
    h.phone.enqueue(failure(PhoneSetupState::notFound, kTemporarilyUnavailable, true));
    h.phone.enqueue(failure(PhoneSetupState::unavailable, "second transient", true));
    h.worker->runJobs();
    EXPECT_EQ(h.phone.calls().size(), 2u);
    EXPECT_THAT(h.worker->pauses(), ElementsAre(0.5));
    h.scheduler->runPosted();
    const Date finished = h.now();

    EXPECT_EQ(monitor->phoneSetupState(), PhoneSetupState::unavailable);
    EXPECT_EQ(monitor->phoneStatus(), "second transient");
    EXPECT_EQ(monitor->nextPhoneCheck(), finished.addingSeconds(300));
    EXPECT_EQ(h.worker->pendingJobs(), 0u);
    EXPECT_EQ(h.phone.calls().size(), 2u);

    // No quicker retry after a failure: the next read comes 300 s later, not before.
    expectNextReadAfter(*monitor, 299.999, 0.001, finished.addingSeconds(300));
}

TEST_F(PhoneCycleTest, TransientThenPermanentFailureShowsThePermanentOne) {
    auto monitor = monitorReadingPhone();
    h.phone.enqueue(failure(PhoneSetupState::notFound, kTemporarilyUnavailable, true));
    h.phone.enqueue(failure(PhoneSetupState::notFound, kLocked, false));
    h.finishReads();
    EXPECT_EQ(h.phone.calls().size(), 2u);
    EXPECT_EQ(monitor->phoneStatus(), kLocked);
}

TEST_F(PhoneCycleTest, NonTransientFailureIsNotRetried) {
    auto monitor = monitorReadingPhone();
    h.phone.enqueue(failure(PhoneSetupState::notFound, kLocked, false));
    h.finishReads();
    EXPECT_EQ(h.phone.calls().size(), 1u);
    EXPECT_THAT(h.worker->pauses(), IsEmpty());
    EXPECT_EQ(monitor->phoneStatus(), kLocked);
    EXPECT_EQ(monitor->phoneSetupState(), PhoneSetupState::notFound);
}

TEST_F(PhoneCycleTest, NextCheckIsAbsentDuringAReadAndDueThreeHundredSecondsAfterIt) {
    auto monitor = monitorReadingPhone();
    EXPECT_FALSE(monitor->nextPhoneCheck().has_value());
    // The read takes 7 s; the clock for the next check starts when its outcome is applied.
    h.phone.enqueue(success(h.now()));
    h.worker->runJobs();
    h.scheduler->shiftClock(7);
    EXPECT_FALSE(monitor->nextPhoneCheck().has_value());
    const Date applied = h.now();
    h.scheduler->runPosted();
    EXPECT_EQ(monitor->nextPhoneCheck(), applied.addingSeconds(300));

    h.scheduler->advance(299.5);
    EXPECT_EQ(h.worker->pendingJobs(), 0u);
    EXPECT_EQ(monitor->nextPhoneCheck(), applied.addingSeconds(300));
    h.scheduler->advance(0.5);
    // The timer fired: a new read runs and nothing is due meanwhile.
    EXPECT_EQ(h.worker->pendingJobs(), 1u);
    EXPECT_TRUE(monitor->isRefreshingPhone());
    EXPECT_FALSE(monitor->nextPhoneCheck().has_value());
    EXPECT_EQ(monitor->lastPhoneAttempt(), applied.addingSeconds(300));
    EXPECT_EQ(h.scheduler->validTimerCount(), 0);
}

TEST_F(PhoneCycleTest, AutomaticReadsFollowEveryThreeHundredSecondsAfterEachEnd) {
    auto monitor = monitorReadingPhone();
    std::vector<Date> starts;
    for (int round = 0; round < 4; ++round) {
        h.phone.enqueue(round % 2 == 0 ? success(h.now())
                                       : failure(PhoneSetupState::notFound, kNotFound, false));
        h.worker->runJobs();
        h.scheduler->shiftClock(4); // the read took 4 s
        h.scheduler->runPosted();
        h.scheduler->advance(300);
        ASSERT_EQ(h.worker->pendingJobs(), 1u);
        starts.push_back(*monitor->lastPhoneAttempt());
    }
    for (std::size_t index = 1; index < starts.size(); ++index) {
        EXPECT_EQ(starts[index].secondsSince(starts[index - 1]), 304.0);
    }
    EXPECT_EQ(h.scheduler->validTimerCount(), 0);
}

TEST_F(PhoneCycleTest, ManualRefreshBeforeADueCheckCancelsIt) {
    auto monitor = monitorReadingPhone();
    h.phone.enqueue(success(h.now()));
    h.finishReads();
    const Date firstEnd = h.now();
    EXPECT_EQ(monitor->nextPhoneCheck(), firstEnd.addingSeconds(300));

    // 10 s before the automatic check, the user asks for one.
    h.scheduler->advance(290);
    EXPECT_EQ(h.worker->pendingJobs(), 0u);
    monitor->refreshAll();
    EXPECT_EQ(h.worker->pendingJobs(), 1u);
    EXPECT_EQ(h.scheduler->validTimerCount(), 0);
    // The manual read takes 15 s, past the moment the automatic check was due: nothing fires.
    h.scheduler->advance(15);
    EXPECT_EQ(h.worker->pendingJobs(), 1u);
    h.phone.enqueue(success(h.now()));
    h.finishReads();
    const Date manualEnd = h.now();
    EXPECT_EQ(h.phone.calls().size(), 2u);
    EXPECT_EQ(monitor->nextPhoneCheck(), manualEnd.addingSeconds(300));

    expectNextReadAfter(*monitor, 299, 1, manualEnd.addingSeconds(300));
}

TEST_F(PhoneCycleTest, RefreshAllDuringAReadReadsTheMacAgainButNotThePhone) {
    auto monitor = monitorReadingPhone();
    const int macReads = h.power->calls;
    monitor->refreshAll();
    EXPECT_EQ(h.power->calls, macReads + 1);
    EXPECT_EQ(h.worker->pendingJobs(), 1u);
    h.phone.enqueue(success(h.now()));
    h.finishReads();
    EXPECT_EQ(h.phone.calls().size(), 1u);
}

TEST_F(PhoneCycleTest, StartTwiceReadsThePhoneOnce) {
    auto monitor = h.makeMonitor();
    monitor->start();
    monitor->start();
    EXPECT_EQ(h.worker->pendingJobs(), 1u);
    h.phone.enqueue(success(h.now()));
    h.finishReads();
    EXPECT_EQ(h.phone.calls().size(), 1u);
    // The computer's repeating timer and the phone's one-shot check.
    EXPECT_EQ(h.scheduler->validTimerCount(), 2);
}

TEST_F(PhoneCycleTest, OutcomeForAMonitorThatIsGoneIsDropped) {
    auto monitor = monitorReadingPhone();
    h.phone.enqueue(success(h.now()));
    h.worker->runJobs();
    // The outcome is on its way to the main thread when the monitor goes.
    monitor.reset();
    EXPECT_EQ(h.scheduler->runPosted(), 1);
    EXPECT_FALSE(std::filesystem::exists(h.cacheFile()));
    EXPECT_EQ(h.scheduler->validTimerCount(), 0);
    h.scheduler->advance(3600);
    EXPECT_EQ(h.phone.calls().size(), 1u);
}

TEST_F(PhoneCycleTest, ReadNotYetStartedForAMonitorThatIsGoneNeverRuns) {
    auto monitor = monitorReadingPhone();
    monitor.reset();
    EXPECT_EQ(h.worker->runJobs(), 1);
    EXPECT_THAT(h.phone.calls(), IsEmpty());
    EXPECT_EQ(h.scheduler->runPosted(), 0);
}

TEST_F(PhoneCycleTest, MonitorGoneDuringATransientFailureIsNotRetried) {
    std::unique_ptr<BatteryMonitor> monitor;
    MonitorServices services = h.services();
    // The read fails transiently, and by the time it returns the monitor is gone.
    services.readPhone =
        [&monitor, inner = services.readPhone](const std::filesystem::path& tools,
                                               const std::optional<std::string>& preferred,
                                               const std::optional<PhoneIdentity>& identity) {
            auto result = inner(tools, preferred, identity);
            monitor.reset();
            return result;
        };
    monitor =
        std::make_unique<BatteryMonitor>(std::move(services), h.toolDirectory(), h.cacheFile());
    monitor->refreshPhone();
    h.phone.enqueue(failure(PhoneSetupState::notFound, kTemporarilyUnavailable, true));
    h.worker->runJobs();
    EXPECT_EQ(monitor, nullptr);
    EXPECT_EQ(h.phone.calls().size(), 1u);
    EXPECT_THAT(h.worker->pauses(), IsEmpty());
    EXPECT_EQ(h.scheduler->runPosted(), 0);
}

TEST_F(PhoneCycleTest, PendingCheckOfAMonitorThatIsGoneDoesNothing) {
    auto monitor = monitorReadingPhone();
    h.phone.enqueue(success(h.now()));
    h.finishReads();
    EXPECT_EQ(h.scheduler->validTimerCount(), 1);
    monitor.reset();
    h.scheduler->advance(600);
    EXPECT_EQ(h.worker->pendingJobs(), 0u);
    EXPECT_EQ(h.phone.calls().size(), 1u);
}

TEST_F(PhoneCycleTest, ReadingStaysOnScreenAndTurnsStaleAcrossFailures) {
    auto monitor = monitorReadingPhone();
    h.phone.enqueue(success(h.now()));
    h.finishReads();
    const Date taken = monitor->phone()->lastUpdated();
    h.scheduler->advance(300);
    h.phone.enqueue(failure(PhoneSetupState::notFound, kNotFound, false));
    h.finishReads();
    EXPECT_FALSE(monitor->phone()->isStale(h.now()));
    h.scheduler->advance(300);
    h.phone.enqueue(failure(PhoneSetupState::notFound, kNotFound, false));
    h.finishReads();
    EXPECT_EQ(monitor->phone()->lastUpdated(), taken);
    // Exactly 600 s old is not stale yet; a second later it is.
    EXPECT_EQ(h.now().secondsSince(taken), 600.0);
    EXPECT_FALSE(monitor->phone()->isStale(h.now()));
    h.scheduler->shiftClock(1);
    EXPECT_TRUE(monitor->phone()->isStale(h.now()));
    EXPECT_EQ(monitor->phoneStatus(), kNotFound);
}

} // namespace
} // namespace ambrel::testing::phonecycle
