#include "views/ViewFonts.h"

#include <utility>

#include <QFontDatabase>

namespace ambrel {

ViewFonts::ViewFonts(QString family, QFont::HintingPreference hinting)
    : m_family(std::move(family)), m_hinting(hinting) {}

QFont ViewFonts::system(int pixelSize, QFont::Weight weight) const {
    QFont font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
    if (m_family) {
        font = QFont(*m_family);
        font.setHintingPreference(m_hinting);
    }
    font.setPixelSize(pixelSize);
    font.setWeight(weight);
    return font;
}

} // namespace ambrel
