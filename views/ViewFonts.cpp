#include "views/ViewFonts.h"

#include <QFontDatabase>

namespace ambrel::ViewFonts {

namespace {

struct Override {
    QString family;
    QFont::HintingPreference hinting = QFont::PreferDefaultHinting;
};

std::optional<Override>& familyOverride() {
    static std::optional<Override> value;
    return value;
}

} // namespace

QFont system(int pixelSize, QFont::Weight weight) {
    QFont font = QFontDatabase::systemFont(QFontDatabase::GeneralFont);
    if (const auto& forced = familyOverride()) {
        font = QFont(forced->family);
        font.setHintingPreference(forced->hinting);
    }
    font.setPixelSize(pixelSize);
    font.setWeight(weight);
    return font;
}

void setFamilyForTesting(const std::optional<QString>& family, QFont::HintingPreference hinting) {
    if (family) {
        familyOverride() = Override{*family, hinting};
    } else {
        familyOverride().reset();
    }
}

} // namespace ambrel::ViewFonts
