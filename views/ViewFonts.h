#pragma once

#include <QFont>
#include <QString>
#include <optional>

namespace ambrel {

// The fonts the views draw in: the desktop's UI font unless a family is named (the card is
// checked in the UI fonts of other desktops that way). Sizes are given in pixels rather than
// points: a point in the widget's measures is one logical pixel, where Qt's points would draw
// everything a third larger at 96 dpi.
class ViewFonts {
public:
    // The desktop's UI font.
    ViewFonts() = default;
    // `family` in place of the desktop's font, with its own hinting.
    explicit ViewFonts(QString family,
                       QFont::HintingPreference hinting = QFont::PreferDefaultHinting);

    // The font at `pixelSize` logical pixels.
    QFont system(int pixelSize, QFont::Weight weight = QFont::Normal) const;

private:
    std::optional<QString> m_family;
    QFont::HintingPreference m_hinting = QFont::PreferDefaultHinting;
};

} // namespace ambrel
