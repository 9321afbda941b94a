#pragma once

#include <QFont>

namespace ambrel::ViewFonts {

// The desktop's UI font at `pixelSize` logical pixels. Sizes are given in pixels rather than
// points: a point in the widget's measures is one logical pixel, where Qt's points would draw
// everything a third larger at 96 dpi.
QFont system(int pixelSize, QFont::Weight weight = QFont::Normal);

} // namespace ambrel::ViewFonts
