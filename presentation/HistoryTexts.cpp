#include "presentation/HistoryTexts.h"

#include <algorithm>

namespace ambrel::HistoryTexts {

namespace {

constexpr const char* kSeparator = " · ";

} // namespace

std::string healthLine(const BatteryHealth& health) {
    std::string line;
    if (health.maximumCapacity) {
        line = "Maximum capacity " + std::to_string(*health.maximumCapacity) + " %";
    }
    if (health.cycleCount) {
        if (!line.empty()) {
            line += kSeparator;
        }
        line +=
            std::to_string(*health.cycleCount) + (*health.cycleCount == 1 ? " cycle" : " cycles");
    }
    return line;
}

std::string durationText(int minutes) {
    minutes = std::max(minutes, 0);
    const int hours = minutes / 60;
    const int rest = minutes % 60;
    if (hours == 0) {
        return std::to_string(rest) + " min";
    }
    if (rest == 0) {
        return std::to_string(hours) + " h";
    }
    return std::to_string(hours) + " h " + std::to_string(rest) + " min";
}

std::string timeLeftLine(int minutes, bool toFull) {
    return "About " + durationText(std::max(minutes, 1)) + (toFull ? " to full" : " to empty");
}

} // namespace ambrel::HistoryTexts
