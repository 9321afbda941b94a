#include "shell/PanelPlacement.h"

#include <gtest/gtest.h>

namespace ambrel {
namespace {

using PanelPlacement::constrainedOrigin;
using PanelPlacement::firstPlacementOrigin;
using PanelPlacement::screenHolding;
using PanelPlacement::withPanelSize;

const QRect kLaptop{0, 0, 1440, 900};
const QRect kRightMonitor{1440, 0, 1920, 1080};

TEST(PanelPlacementTest, FirstRunSitsTopRight24In) {
    // The macOS origin (1056, 706) on a 900-high area is this top-left corner.
    EXPECT_EQ(firstPlacementOrigin(kLaptop), QPoint(1056, 24));
}

TEST(PanelPlacementTest, FirstRunFollowsTheAvailableArea) {
    EXPECT_EQ(firstPlacementOrigin(QRect(0, 32, 1920, 1048)), QPoint(1536, 56));
    EXPECT_EQ(firstPlacementOrigin(kRightMonitor), QPoint(2976, 24));
}

TEST(PanelPlacementTest, FirstRunWithoutScreenUsesTheFallbackArea) {
    EXPECT_EQ(firstPlacementOrigin(std::nullopt), QPoint(1056, 24));
}

TEST(PanelPlacementTest, SavedFrameOfAnotherSizeKeepsItsTopLeft) {
    EXPECT_EQ(withPanelSize(QRect(100, 200, 400, 200)), QRect(100, 200, 360, 170));
    EXPECT_EQ(withPanelSize(QRect(-50, 7, 10, 10)), QRect(-50, 7, 360, 170));
}

TEST(PanelPlacementTest, PanelInsideTheInsetStaysPut) {
    EXPECT_EQ(constrainedOrigin(QRect(1056, 24, 360, 170), {kLaptop}, kLaptop), QPoint(1056, 24));
}

TEST(PanelPlacementTest, PanelNearAnEdgeIsPulledEightIn) {
    EXPECT_EQ(constrainedOrigin(QRect(1100, 2, 360, 170), {kLaptop}, kLaptop), QPoint(1072, 8));
    EXPECT_EQ(constrainedOrigin(QRect(-20, 800, 360, 170), {kLaptop}, kLaptop), QPoint(8, 722));
}

TEST(PanelPlacementTest, StraddlingPanelGoesToTheScreenHoldingMoreOfIt) {
    // 260 of its 360 wide on the right monitor.
    const QRect frame(1340, 100, 360, 170);
    EXPECT_EQ(screenHolding(frame, {kLaptop, kRightMonitor}), 1u);
    EXPECT_EQ(constrainedOrigin(frame, {kLaptop, kRightMonitor}, kLaptop), QPoint(1448, 100));
    // 260 on the laptop.
    const QRect other(1180, 100, 360, 170);
    EXPECT_EQ(screenHolding(other, {kLaptop, kRightMonitor}), 0u);
    EXPECT_EQ(constrainedOrigin(other, {kLaptop, kRightMonitor}, kRightMonitor), QPoint(1072, 100));
}

TEST(PanelPlacementTest, TieGoesToTheEarlierScreen) {
    const QRect frame(1260, 100, 360, 170); // 180 on each
    EXPECT_EQ(screenHolding(frame, {kLaptop, kRightMonitor}), 0u);
    EXPECT_EQ(screenHolding(frame, {kRightMonitor, kLaptop}), 0u);
    EXPECT_EQ(constrainedOrigin(frame, {kRightMonitor, kLaptop}, kLaptop), QPoint(1448, 100));
}

TEST(PanelPlacementTest, FrameOffEveryScreenGoesToTheMainScreen) {
    const QRect lost(5000, 3000, 360, 170);
    EXPECT_FALSE(screenHolding(lost, {kLaptop, kRightMonitor}).has_value());
    EXPECT_EQ(constrainedOrigin(lost, {kLaptop, kRightMonitor}, kRightMonitor),
              QPoint(1440 + 1920 - 8 - 360, 1080 - 8 - 170));
    EXPECT_EQ(constrainedOrigin(QRect(-3000, -3000, 360, 170), {kLaptop}, kLaptop), QPoint(8, 8));
}

TEST(PanelPlacementTest, TouchingEdgeIsNoOverlap) {
    EXPECT_FALSE(screenHolding(QRect(1440, 0, 360, 170), {kLaptop}).has_value());
}

TEST(PanelPlacementTest, NoScreensLeavesThePanelWhereItIs) {
    EXPECT_FALSE(constrainedOrigin(QRect(10, 10, 360, 170), {}, std::nullopt).has_value());
    EXPECT_FALSE(screenHolding(QRect(10, 10, 360, 170), {}).has_value());
}

TEST(PanelPlacementTest, NoScreensButAMainScreenUsesIt) {
    EXPECT_EQ(constrainedOrigin(QRect(2000, 10, 360, 170), {}, kLaptop), QPoint(1072, 10));
}

TEST(PanelPlacementTest, NoOverlapAndNoMainScreenLeavesItWhereItIs) {
    EXPECT_FALSE(constrainedOrigin(QRect(5000, 10, 360, 170), {kLaptop}, std::nullopt));
}

TEST(PanelPlacementTest, PanelLargerThanTheScreenKeepsLeftAndBottomInside) {
    const QRect tiny(0, 0, 300, 150); // inset: 8..292 wide, 8..142 high
    EXPECT_EQ(constrainedOrigin(QRect(50, 50, 360, 170), {tiny}, tiny), QPoint(8, 142 - 170));
    EXPECT_EQ(constrainedOrigin(QRect(-100, -100, 360, 170), {tiny}, tiny), QPoint(8, 142 - 170));
}

TEST(PanelPlacementTest, ScreensAtNegativeCoordinates) {
    const QRect leftMonitor(-1920, -200, 1920, 1080);
    EXPECT_EQ(constrainedOrigin(QRect(-100, -250, 360, 170), {kLaptop, leftMonitor}, kLaptop),
              QPoint(-368, -192));
}

} // namespace
} // namespace ambrel
