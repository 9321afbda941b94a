#include "presentation/HistorySummary.h"

#include <gtest/gtest.h>

namespace ambrel {
namespace {

const Date kStart = Date::fromSecondsSinceReferenceDate(800000000.0);

HistoryRow at(double minutes, int percentage, bool charging = false) {
    return HistoryRow{
        kStart.addingSeconds(minutes * 60), "mac", percentage, charging, charging, ""};
}

TEST(HistorySummaryTest, GapsSplitRunsAndChargingIsTimedWithinThem) {
    const double gap = HistorySummaries::gapSecondsFor("mac");
    EXPECT_EQ(gap, 150.0);
    EXPECT_EQ(HistorySummaries::gapSecondsFor("iphone"), 750.0);
    // Charging 0–2, a gap of an hour (asleep, say), charging 62–63, then on battery.
    const auto summary =
        HistorySummaries::summarize({at(0, 50, true), at(1, 52, true), at(2, 54, true),
                                     at(62, 70, true), at(63, 71, true), at(64, 71), at(65, 70)},
                                    gap);
    ASSERT_EQ(summary.runs.size(), 2u);
    EXPECT_EQ(summary.runs[0].size(), 3u);
    EXPECT_EQ(summary.runs[1].size(), 4u);
    EXPECT_EQ(summary.lowest, 50);
    EXPECT_EQ(summary.highest, 71);
    EXPECT_EQ(summary.first, 50);
    EXPECT_EQ(summary.last, 70);
    // Two minutes before the gap and two after it; the hour across the gap is not counted.
    EXPECT_EQ(summary.secondsOnCharge, 4 * 60.0);
    // Charging on both sides of a gap is one charge.
    EXPECT_EQ(summary.charges, 1);
    ASSERT_EQ(summary.chargingSpans.size(), 2u);
    EXPECT_EQ(summary.chargingSpans[0], std::make_pair(at(0, 0).time, at(2, 0).time));
    EXPECT_EQ(summary.chargingSpans[1], std::make_pair(at(62, 0).time, at(64, 0).time));
    EXPECT_TRUE(HistorySummaries::summarize({}, gap).isEmpty());
}

TEST(HistorySummaryTest, SpokenSummaryCountsTheCharges) {
    const double gap = 750.0;
    auto summary = HistorySummaries::summarize(
        {at(0, 100), at(5, 80, true), at(10, 90), at(15, 60, true), at(20, 43)}, gap);
    EXPECT_EQ(summary.charges, 2);
    EXPECT_EQ(HistorySummaries::spokenSummary("iPhone", "last 24 hours", summary),
              "iPhone, last 24 hours, from 100 % to 43 %, charged twice");
    summary = HistorySummaries::summarize({at(0, 80), at(5, 70)}, gap);
    EXPECT_EQ(HistorySummaries::spokenSummary("This computer", "last 10 days", summary),
              "This computer, last 10 days, from 80 % to 70 %, not charged");
    summary = HistorySummaries::summarize({at(0, 50, true)}, gap);
    EXPECT_EQ(HistorySummaries::spokenSummary("iPhone", "last 24 hours", summary),
              "iPhone, last 24 hours, from 50 % to 50 %, charged once");
    EXPECT_EQ(HistorySummaries::spokenSummary("iPhone", "last 24 hours", HistorySummary{}),
              "iPhone, last 24 hours, no readings");
}

TEST(HistorySummaryTest, EstimateOnlyWhenTheRecentReadingsSupportIt) {
    const double gap = 150.0;
    // Charging a point a minute, ten minutes: 40 points to go.
    std::vector<HistoryRow> rows;
    for (int minute = 0; minute <= 10; ++minute) {
        rows.push_back(at(minute, 50 + minute, true));
    }
    const Date now = at(10.5, 0).time;
    EXPECT_EQ(HistorySummaries::estimate(rows, now, gap), std::make_pair(40, true));
    // The same falling: 40 points at a point a minute to empty.
    for (auto& each : rows) {
        each.isCharging = false;
        each.percentage = 100 - each.percentage;
    }
    EXPECT_EQ(HistorySummaries::estimate(rows, now, gap), std::make_pair(40, false));
    // Too old: the newest reading is more than two gaps before now.
    EXPECT_FALSE(HistorySummaries::estimate(rows, at(16, 0).time, gap));
    // Two readings are not enough; one point of change is not enough.
    EXPECT_FALSE(HistorySummaries::estimate({at(9, 50), at(10, 48)}, now, gap));
    EXPECT_FALSE(HistorySummaries::estimate({at(8, 50), at(9, 50), at(10, 49)}, now, gap));
    // Up and down says nothing.
    EXPECT_FALSE(
        HistorySummaries::estimate({at(7, 50), at(8, 52), at(9, 49), at(10, 47)}, now, gap));
    // Charging but falling (a weak charger) gives no time to full.
    EXPECT_FALSE(
        HistorySummaries::estimate({at(8, 50, true), at(9, 49, true), at(10, 47, true)}, now, gap));
    // Only the readings since the last change of state count.
    EXPECT_FALSE(HistorySummaries::estimate(
        {at(6, 40), at(7, 45), at(8, 50, true), at(9, 51, true)}, now, gap));
    // Longer than two days at this rate: none.
    EXPECT_FALSE(
        HistorySummaries::estimate({at(0, 100), at(15, 99), at(29, 98)}, at(29, 0).time, gap));
    EXPECT_FALSE(HistorySummaries::estimate({}, now, gap));
}

} // namespace
} // namespace ambrel
