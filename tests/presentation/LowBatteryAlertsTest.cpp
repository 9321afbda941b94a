#include "presentation/LowBatteryAlerts.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/fakes/SimulatedScheduler.h"

namespace ambrel {
namespace {

using testing::SimulatedScheduler;

// Records what the alerts asked of the desktop, one line per call.
class RecordingNotifier final : public LowBatteryNotifier {
public:
    std::vector<std::string> calls;
    void show(const LowBatteryNotice& notice) override {
        calls.push_back(std::string("show ") + name(notice.device) + " " +
                        (notice.level == LowBatteryLevel::critical ? "critical" : "warning") +
                        ": " + notice.summary + " / " + notice.body);
    }
    void close(BatteryDeviceKind device) override {
        calls.push_back(std::string("close ") + name(device));
    }
    static const char* name(BatteryDeviceKind device) {
        return device == BatteryDeviceKind::mac ? "mac" : "phone";
    }
};

class LowBatteryAlertsTest : public ::testing::Test {
protected:
    SimulatedScheduler m_scheduler;
    RecordingNotifier m_notifier;
    LowBatteryAlerts m_alerts{m_scheduler, m_scheduler, m_notifier};

    BatteryDeviceSnapshot phone(std::int64_t percentage, bool charging = false,
                                double ageSeconds = 0) const {
        return BatteryDeviceSnapshot("iphone", "Work iPhone", percentage, charging, charging,
                                     m_scheduler.now().addingSeconds(-ageSeconds), "Wi-Fi",
                                     std::nullopt);
    }
    BatteryDeviceSnapshot mac(std::int64_t percentage, bool charging = false) const {
        return BatteryDeviceSnapshot("mac", "Anna\u2019s MacBook Pro", percentage, charging,
                                     charging, m_scheduler.now(), "Mac", std::nullopt);
    }
    void feedPhone(std::int64_t percentage, bool charging = false) {
        m_alerts.update(BatteryDeviceKind::phone, phone(percentage, charging), true);
    }
    void feedPhoneLevels(std::initializer_list<std::int64_t> levels) {
        for (const auto level : levels) {
            feedPhone(level);
        }
    }
};

TEST_F(LowBatteryAlertsTest, OneAlertPerFallThenCriticalInPlace) {
    feedPhoneLevels({40, 30, 21});
    EXPECT_TRUE(m_notifier.calls.empty());
    feedPhoneLevels({20, 20, 19, 15, 11});
    ASSERT_EQ(m_notifier.calls.size(), 1U);
    EXPECT_EQ(m_notifier.calls[0],
              "show phone warning: iPhone battery low / Work iPhone is at 20%. Charge it soon.");
    feedPhoneLevels({10, 9, 8});
    ASSERT_EQ(m_notifier.calls.size(), 2U);
    EXPECT_EQ(m_notifier.calls[1], "show phone critical: iPhone battery very low / Work iPhone "
                                   "is at 10%. Charge it now.");
}

TEST_F(LowBatteryAlertsTest, FirstReadingBelowBothLevelsAlertsOnce) {
    m_alerts.update(BatteryDeviceKind::mac, mac(6), true);
    feedPhone(7);
    ASSERT_EQ(m_notifier.calls.size(), 2U);
    EXPECT_EQ(m_notifier.calls[0],
              "show mac critical: This computer battery very low / Anna\u2019s "
              "MacBook Pro is at 6%. Charge it now.");
    EXPECT_EQ(m_notifier.calls[1].substr(0, 20), "show phone critical:");
}

TEST_F(LowBatteryAlertsTest, StaleUnconfirmedOrMissingReadingsNeverAlert) {
    // 601 s old: stale for the phone.
    m_alerts.update(BatteryDeviceKind::phone, phone(5, false, 601), true);
    // Recent, but the phone was not reached (or it is the saved reading).
    m_alerts.update(BatteryDeviceKind::phone, phone(5), false);
    m_alerts.update(BatteryDeviceKind::phone, std::nullopt, true);
    EXPECT_TRUE(m_notifier.calls.empty());
    // 600 s old is still fresh.
    m_alerts.update(BatteryDeviceKind::phone, phone(5, false, 600), true);
    EXPECT_EQ(m_notifier.calls.size(), 1U);
}

TEST_F(LowBatteryAlertsTest, RearmsOnlyAfterClimbingFivePoints) {
    feedPhoneLevels({19, 22, 24, 19});
    EXPECT_EQ(m_notifier.calls.size(), 1U) << "22 and 24 are not 5 points above 20";
    feedPhoneLevels({25});
    ASSERT_EQ(m_notifier.calls.size(), 2U);
    EXPECT_EQ(m_notifier.calls[1], "close phone") << "well clear of the level";
    feedPhoneLevels({20});
    ASSERT_EQ(m_notifier.calls.size(), 3U);
    EXPECT_EQ(m_notifier.calls[2].substr(0, 19), "show phone warning:");

    // Critical re-arms at 15.
    feedPhoneLevels({10, 14, 10});
    EXPECT_EQ(m_notifier.calls.size(), 4U);
    feedPhoneLevels({15, 10});
    ASSERT_EQ(m_notifier.calls.size(), 6U);
    EXPECT_EQ(m_notifier.calls[4], "close phone");
    EXPECT_EQ(m_notifier.calls[5].substr(0, 20), "show phone critical:");
}

TEST_F(LowBatteryAlertsTest, ChargingClosesTheAlertAndRearms) {
    feedPhone(18);
    feedPhone(18, true);
    ASSERT_EQ(m_notifier.calls.size(), 2U);
    EXPECT_EQ(m_notifier.calls[1], "close phone");
    feedPhone(19, true);
    EXPECT_EQ(m_notifier.calls.size(), 2U) << "no alert while charging";
    // Unplugged again at 19: a new fall below the level.
    feedPhone(19);
    ASSERT_EQ(m_notifier.calls.size(), 3U);
    EXPECT_EQ(m_notifier.calls[2].substr(0, 19), "show phone warning:");
}

TEST_F(LowBatteryAlertsTest, DevicesAreIndependent) {
    feedPhone(15);
    m_alerts.update(BatteryDeviceKind::mac, mac(15), true);
    m_alerts.update(BatteryDeviceKind::mac, mac(15, true), true);
    ASSERT_EQ(m_notifier.calls.size(), 3U);
    EXPECT_EQ(m_notifier.calls[2], "close mac");
    feedPhone(14);
    EXPECT_EQ(m_notifier.calls.size(), 3U);
}

TEST_F(LowBatteryAlertsTest, SnoozeKeepsQuietForThirtyMinutesThenRemindsIfStillLow) {
    feedPhone(18);
    m_alerts.snooze(BatteryDeviceKind::phone);
    ASSERT_EQ(m_notifier.calls.size(), 2U);
    EXPECT_EQ(m_notifier.calls[1], "close phone");
    // Readings keep coming every 5 minutes, even across the critical level.
    for (int step = 0; step < 5; ++step) {
        m_scheduler.advance(300);
        feedPhone(step < 3 ? 17 : 9);
    }
    EXPECT_EQ(m_notifier.calls.size(), 2U);
    m_scheduler.advance(LowBatteryAlerts::kSnoozeSeconds - 5 * 300 - 0.001);
    EXPECT_EQ(m_notifier.calls.size(), 2U) << "not a moment early";
    m_scheduler.advance(0.001);
    ASSERT_EQ(m_notifier.calls.size(), 3U);
    EXPECT_EQ(m_notifier.calls[2], "show phone critical: iPhone battery very low / Work iPhone "
                                   "is at 9%. Charge it now.");
    EXPECT_EQ(m_scheduler.scheduledIntervals().back(), LowBatteryAlerts::kSnoozeSeconds);
}

TEST_F(LowBatteryAlertsTest, SnoozeEndsQuietlyWhenChargingOrStale) {
    feedPhone(18);
    m_alerts.snooze(BatteryDeviceKind::phone);
    feedPhone(18, true);
    m_scheduler.advance(LowBatteryAlerts::kSnoozeSeconds);
    EXPECT_EQ(m_notifier.calls.size(), 2U) << "charging ended the snooze";
    feedPhone(18);
    EXPECT_EQ(m_notifier.calls.size(), 3U) << "unplugged: a new fall";

    m_alerts.snooze(BatteryDeviceKind::phone);
    // No reading for the whole snooze: the last one is stale by its end.
    m_scheduler.advance(LowBatteryAlerts::kSnoozeSeconds);
    EXPECT_EQ(m_notifier.calls.size(), 4U);
    EXPECT_EQ(m_notifier.calls[3], "close phone");
}

TEST_F(LowBatteryAlertsTest, TurningOffClosesAndTurningOnStartsAfresh) {
    feedPhone(18);
    m_alerts.setEnabled(false);
    ASSERT_EQ(m_notifier.calls.size(), 2U);
    EXPECT_EQ(m_notifier.calls[1], "close phone");
    feedPhone(9);
    EXPECT_EQ(m_notifier.calls.size(), 2U);
    m_alerts.setEnabled(true);
    ASSERT_EQ(m_notifier.calls.size(), 3U);
    EXPECT_EQ(m_notifier.calls[2].substr(0, 20), "show phone critical:");
}

TEST_F(LowBatteryAlertsTest, DismissedAlertIsNotClosedAgain) {
    feedPhone(18);
    m_alerts.alertClosed(BatteryDeviceKind::phone);
    feedPhone(18, true);
    EXPECT_EQ(m_notifier.calls.size(), 1U);
}

TEST_F(LowBatteryAlertsTest, PendingSnoozeDoesNothingOnceAlertsAreGone) {
    auto alerts = std::make_unique<LowBatteryAlerts>(m_scheduler, m_scheduler, m_notifier);
    alerts->update(BatteryDeviceKind::phone, phone(18), true);
    alerts->snooze(BatteryDeviceKind::phone);
    alerts.reset();
    EXPECT_EQ(m_scheduler.validTimerCount(), 0);
    m_scheduler.advance(LowBatteryAlerts::kSnoozeSeconds);
    EXPECT_EQ(m_notifier.calls.size(), 2U);
}

} // namespace
} // namespace ambrel
