#pragma once

#include <optional>
#include <string>
#include <vector>

#include "history/HistoryStore.h"
#include "model/Date.h"

namespace ambrel {

// What the history says of one device over a span, worked out without Qt for the window, its
// spoken summary and `tovrin --history`.
struct HistorySummary {
    // Readings further apart than this leave a gap: nothing is drawn or counted across it.
    double gapSeconds = 0.0;
    // Runs of readings with no gap between them, oldest first; each holds at least one row.
    std::vector<std::vector<HistoryRow>> runs;
    std::optional<int> lowest;
    std::optional<int> highest;
    std::optional<int> first;
    std::optional<int> last;
    // Time spent charging (between readings that both belong to a run), in seconds.
    double secondsOnCharge = 0.0;
    // How many times charging started within the span.
    int charges = 0;
    // Spans in which the device was charging, as (from, to), for shading.
    std::vector<std::pair<Date, Date>> chargingSpans;

    bool isEmpty() const { return runs.empty(); }
};

namespace HistorySummaries {

// The computer is read every minute and the phone every five: a gap is missing readings, more
// than two and a half times that apart.
double gapSecondsFor(const std::string& device);

// Summarises `rows` (one device, oldest first).
HistorySummary summarize(const std::vector<HistoryRow>& rows, double gapSeconds);

// The time to full (charging) or to empty (discharging) that the recent readings support, in
// minutes, with whether it is to full. Only when the newest reading is recent (within two gaps
// of `now`), the last 30 minutes hold at least three readings in the same charging state that
// moved at least 2 points in one direction, and the answer is under two days.
std::optional<std::pair<int, bool>> estimate(const std::vector<HistoryRow>& rows, Date now,
                                             double gapSeconds);

// "iPhone, last 24 hours, from 100 % to 43 %, charged twice"; "…, no readings" when empty.
std::string spokenSummary(const std::string& deviceName, const std::string& spanName,
                          const HistorySummary& summary);

} // namespace HistorySummaries

} // namespace ambrel
