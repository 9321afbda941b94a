#include "presentation/HistorySummary.h"

#include <algorithm>
#include <cmath>

namespace ambrel::HistorySummaries {

namespace {

constexpr double kComputerInterval = 60.0;
constexpr double kPhoneInterval = 300.0;
constexpr double kGapFactor = 2.5;
constexpr double kEstimateWindow = 30 * 60.0;
constexpr int kEstimateLeastRows = 3;
constexpr int kEstimateLeastPoints = 2;
constexpr double kEstimateLongestMinutes = 48 * 60.0;

std::string times(int count) {
    switch (count) {
    case 1:
        return "once";
    case 2:
        return "twice";
    default:
        return std::to_string(count) + " times";
    }
}

} // namespace

double gapSecondsFor(const std::string& device) {
    return (device == "mac" ? kComputerInterval : kPhoneInterval) * kGapFactor;
}

HistorySummary summarize(const std::vector<HistoryRow>& rows, double gapSeconds) {
    HistorySummary summary;
    summary.gapSeconds = gapSeconds;
    const HistoryRow* previous = nullptr;
    std::optional<Date> chargingSince;
    for (const auto& row : rows) {
        const bool gap = previous == nullptr || row.time.secondsSince(previous->time) > gapSeconds;
        if (gap) {
            summary.runs.emplace_back();
        }
        summary.runs.back().push_back(row);
        summary.lowest = std::min(summary.lowest.value_or(row.percentage), row.percentage);
        summary.highest = std::max(summary.highest.value_or(row.percentage), row.percentage);
        if (!summary.first) {
            summary.first = row.percentage;
        }
        summary.last = row.percentage;

        if (previous != nullptr && !gap && previous->isCharging) {
            summary.secondsOnCharge += row.time.secondsSince(previous->time);
        }
        // A charging span ends at the first reading that is not charging, or at a gap.
        if (chargingSince && (gap || !row.isCharging)) {
            summary.chargingSpans.emplace_back(*chargingSince, gap ? previous->time : row.time);
            chargingSince.reset();
        }
        if (row.isCharging) {
            if (!chargingSince) {
                chargingSince = row.time;
            }
            // Charging again after a gap is the same charge when it was charging before it.
            if (previous == nullptr || !previous->isCharging) {
                ++summary.charges;
            }
        }
        previous = &row;
    }
    if (chargingSince && previous != nullptr) {
        summary.chargingSpans.emplace_back(*chargingSince, previous->time);
    }
    return summary;
}

std::optional<std::pair<int, bool>> estimate(const std::vector<HistoryRow>& rows, Date now,
                                             double gapSeconds) {
    if (rows.empty()) {
        return std::nullopt;
    }
    const HistoryRow& newest = rows.back();
    if (now.secondsSince(newest.time) > 2 * gapSeconds || now.secondsSince(newest.time) < -60) {
        return std::nullopt;
    }
    // The readings of the last 30 minutes, back to the first gap or change of state.
    std::size_t start = rows.size() - 1;
    while (start > 0) {
        const HistoryRow& earlier = rows[start - 1];
        if (newest.time.secondsSince(earlier.time) > kEstimateWindow ||
            rows[start].time.secondsSince(earlier.time) > gapSeconds ||
            earlier.isCharging != newest.isCharging) {
            break;
        }
        --start;
    }
    const auto count = static_cast<int>(rows.size() - start);
    const HistoryRow& oldest = rows[start];
    const int moved = newest.percentage - oldest.percentage;
    const double seconds = newest.time.secondsSince(oldest.time);
    if (count < kEstimateLeastRows || std::abs(moved) < kEstimateLeastPoints || seconds <= 0) {
        return std::nullopt;
    }
    // Every step in the one direction: a level that goes up and down says nothing.
    for (std::size_t index = start + 1; index < rows.size(); ++index) {
        const int step = rows[index].percentage - rows[index - 1].percentage;
        if ((moved > 0 && step < 0) || (moved < 0 && step > 0)) {
            return std::nullopt;
        }
    }
    const bool toFull = newest.isCharging && moved > 0;
    if (!toFull && (newest.isCharging || moved > 0)) {
        return std::nullopt;
    }
    const double perMinute = std::abs(moved) / (seconds / 60.0);
    const double left = toFull ? 100.0 - newest.percentage : newest.percentage;
    const double minutes = std::round(left / perMinute);
    if (minutes < 1.0 || minutes > kEstimateLongestMinutes) {
        return std::nullopt;
    }
    return std::make_pair(static_cast<int>(minutes), toFull);
}

std::string spokenSummary(const std::string& deviceName, const std::string& spanName,
                          const HistorySummary& summary) {
    std::string text = deviceName + ", " + spanName;
    if (summary.isEmpty()) {
        return text + ", no readings";
    }
    text += ", from " + std::to_string(*summary.first) + " % to " + std::to_string(*summary.last) +
            " %";
    if (summary.charges == 0) {
        text += ", not charged";
    } else {
        text += ", charged " + times(summary.charges);
    }
    return text;
}

} // namespace ambrel::HistorySummaries
