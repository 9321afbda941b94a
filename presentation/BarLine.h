#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "model/Date.h"
#include "monitor/BarState.h"
#include "presentation/UserLocale.h"

namespace ambrel {

// The status bars "tovrin --bar" speaks to.
enum class BarFormat { waybar, polybar, i3blocks };

// "waybar", "polybar" or "i3blocks" (exact); anything else has no format.
std::optional<BarFormat> barFormatFromName(std::string_view name);

// What one update of a bar prints, newline included, and the exit code that goes with it
// (i3blocks marks a block urgent on 33).
struct BarOutput {
    std::string text;
    int exitCode = 0;
};

// The bar's view of both batteries, worked out like the card's gauges: a reading is doubtful
// when it is stale or the phone was not reached, and "low" looks at the lower of the readings
// shown, doubtful or not, as the card's colours do.
namespace BarLine {

inline constexpr int kWarningLevel = 20;
inline constexpr int kCriticalLevel = 10;
// i3blocks shows a block as urgent when its command exits with this code.
inline constexpr int kI3blocksUrgentExitCode = 33;

// The card's colours for a low and a doubtful reading.
inline constexpr const char* kCriticalColor = "#FF3B30";
inline constexpr const char* kWarningColor = "#FF9500";

// "Computer 54% · iPhone ~80%⚡": "~" marks a doubtful reading, "⚡" charging, "—" no reading and "…"
// no reading yet while the phone is being checked.
std::string text(const BarState& state, Date now, const UserLocale& locale);
// "54% · ~80%", for bars that shorten blocks.
std::string shortText(const BarState& state, Date now, const UserLocale& locale);
// One line per device: its title, percentage, power state and the card's status line.
std::string tooltip(const BarState& state, Date now, const UserLocale& locale);

// One update: waybar's JSON object; polybar's text, in the colour below when low or marked
// (%{F#…}); i3blocks' three lines (full text, short text, colour).
BarOutput format(BarFormat format, const BarState& state, Date now, const UserLocale& locale);
// One line of "--follow": as format() for waybar and polybar; for i3blocks, whose persistent
// blocks read one line per update, a JSON object with "full_text", "short_text", "urgent" and,
// when low or marked, "color".
std::string followLine(BarFormat format, const BarState& state, Date now, const UserLocale& locale);

// Text made safe for Pango markup, which waybar applies to text and tooltip.
std::string pangoEscaped(std::string_view text);

// The next moment after `now` at which a reading turns stale, and so the line changes without
// any new reading; absent when no reading will.
std::optional<Date> nextAgeChange(const BarState& state, Date now);

} // namespace BarLine

} // namespace ambrel
