#pragma once

#include <optional>
#include <vector>

#include <QPoint>
#include <QRect>
#include <QSize>

namespace ambrel::PanelPlacement {

// Logical pixels, in Qt's desktop coordinates: y grows downward, a rectangle's top-left is its
// origin.
inline constexpr QSize kPanelSize{360, 170};
inline constexpr int kFirstRunMargin = 24;
inline constexpr int kScreenInset = 8;
inline constexpr QRect kFallbackArea{0, 0, 1440, 900};

// Where a panel that has never been placed goes: the top-right corner of the main screen's
// available area (or of 1440 x 900 at 0,0 when there is no screen), 24 in from both edges.
QPoint firstPlacementOrigin(const std::optional<QRect>& mainScreenArea);

// The frame at its fixed size, keeping the top-left corner.
QRect withPanelSize(const QRect& frame);

// The index of the screen whose available area shares the most with `frame`; ties go to the
// earlier screen. Absent when there are no screens or none overlaps the frame.
std::optional<std::size_t> screenHolding(const QRect& frame, const std::vector<QRect>& screenAreas);

// The origin that keeps `frame` inside its screen's available area, inset by 8 on every side:
// the screen holding most of it, else the main screen. A frame larger than the area keeps its
// left and bottom edges inside. Absent when there is no screen to keep it on.
std::optional<QPoint> constrainedOrigin(const QRect& frame, const std::vector<QRect>& screenAreas,
                                        const std::optional<QRect>& mainScreenArea);

} // namespace ambrel::PanelPlacement
