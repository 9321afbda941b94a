#include "presentation/CardTexts.h"

namespace ambrel::CardTexts {

std::string optionsLabel(const std::string& productName) {
    return productName + " options";
}

std::string quitTitle(const std::string& productName) {
    return "Quit " + productName;
}

} // namespace ambrel::CardTexts
