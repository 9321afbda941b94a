#pragma once

#include <QFont>
#include <QString>
#include <optional>

namespace ambrel::ViewFonts {

// The desktop's UI font at `pixelSize` logical pixels. Sizes are given in pixels rather than
// points: a point in the widget's measures is one logical pixel, where Qt's points would draw
// everything a third larger at 96 dpi.
QFont system(int pixelSize, QFont::Weight weight = QFont::Normal);

// Makes system() answer with `family` (and `hinting`) instead of the desktop's font, so views
// built afterwards can be checked in the UI fonts of other desktops. Main thread only.
void setFamilyForTesting(const std::optional<QString>& family,
                         QFont::HintingPreference hinting = QFont::PreferDefaultHinting);

} // namespace ambrel::ViewFonts
