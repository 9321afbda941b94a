#pragma once

#include <string>

#include "views/Appearance.h"
#include "views/ViewFonts.h"

namespace ambrel {

// What every view draws with: the look in force and its colours, the fonts, and the product
// name. The delegate makes one and hands it to each window it opens; it outlives them all.
struct ViewStyle {
    const Appearance& appearance;
    ViewFonts fonts;
    std::string brandName;
};

} // namespace ambrel
