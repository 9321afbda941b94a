#include "presentation/WidgetBrand.h"

#include "model/WhiteSpace.h"
#include "platform/Bundle.h"

namespace ambrel::WidgetBrand {

std::string brandName(const std::optional<std::string>& displayName) {
    if (!displayName) {
        return kDefaultName;
    }
    const auto trimmed = trimmingWhitespaceAndNewlines(*displayName);
    if (trimmed.empty()) {
        return kDefaultName;
    }
    return std::string(trimmed);
}

std::string nameFrom(const Bundle* bundle) {
    return brandName(bundle ? bundle->infoString("CFBundleDisplayName") : std::nullopt);
}

} // namespace ambrel::WidgetBrand
