#pragma once

#include <QColor>
#include <QIcon>
#include <QImage>

namespace ambrel::PairedCellIcon {

// The tray item's mark, 18 x 18 logical pixels.
inline constexpr int kSize = 18;

// The colour the mark is drawn in: the label colour of the look in force.
QColor labelColor(bool dark);

// Two battery cells tilted 12 degrees clockwise about the centre: the left one outlined, the
// right one solid, in `color` on transparency, at `devicePixelRatio` (the image is 18 x 18 times
// it, and says so).
QImage draw(const QColor& color, qreal devicePixelRatio);

// The mark at 1x, 2x and 3x, so it stays sharp on high-density panels.
QIcon icon(const QColor& color);

} // namespace ambrel::PairedCellIcon
