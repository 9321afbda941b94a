#include "views/ViewFonts.h"

#include <QFontDatabase>

namespace ambrel::ViewFonts {

QFont system(int pixelSize, QFont::Weight weight) {
    QFont font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
    font.setPixelSize(pixelSize);
    font.setWeight(weight);
    return font;
}

} // namespace ambrel::ViewFonts
