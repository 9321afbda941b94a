#include "presentation/HistoryTexts.h"

#include <gtest/gtest.h>

namespace ambrel {
namespace {

TEST(HistoryTextsTest, HealthLineSaysWhatIsKnownAndNothingElse) {
    EXPECT_EQ(HistoryTexts::healthLine({87, 412, std::nullopt}),
              "Maximum capacity 87 % · 412 cycles");
    EXPECT_EQ(HistoryTexts::healthLine({87, std::nullopt, 31.5}), "Maximum capacity 87 %");
    EXPECT_EQ(HistoryTexts::healthLine({std::nullopt, 412, std::nullopt}), "412 cycles");
    EXPECT_EQ(HistoryTexts::healthLine({std::nullopt, 1, std::nullopt}), "1 cycle");
    EXPECT_EQ(HistoryTexts::healthLine({}), "");
    // The temperature is a reading, not wear: it is not part of the line.
    EXPECT_EQ(HistoryTexts::healthLine({std::nullopt, std::nullopt, 30.0}), "");
}

TEST(HistoryTextsTest, TimeLeftInHoursAndMinutes) {
    EXPECT_EQ(HistoryTexts::timeLeftLine(80, true), "About 1 h 20 min to full");
    EXPECT_EQ(HistoryTexts::timeLeftLine(45, false), "About 45 min to empty");
    EXPECT_EQ(HistoryTexts::timeLeftLine(180, false), "About 3 h to empty");
    EXPECT_EQ(HistoryTexts::timeLeftLine(0, true), "About 1 min to full");
    EXPECT_EQ(HistoryTexts::durationText(-5), "0 min");
    EXPECT_EQ(HistoryTexts::durationText(61), "1 h 1 min");
}

} // namespace
} // namespace ambrel
