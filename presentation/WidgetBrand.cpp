#include "presentation/WidgetBrand.h"

#include <utility>

#include "model/WhiteSpace.h"
#include "platform/Bundle.h"

namespace ambrel::WidgetBrand {

namespace {

std::optional<std::string>& cachedName() {
    static std::optional<std::string> name;
    return name;
}

std::shared_ptr<const Bundle>& givenBundle() {
    static std::shared_ptr<const Bundle> bundle;
    return bundle;
}

} // namespace

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

const std::string& name() {
    auto& cached = cachedName();
    if (!cached) {
        const auto& bundle = givenBundle();
        cached = brandName(bundle ? bundle->infoString("CFBundleDisplayName") : std::nullopt);
    }
    return *cached;
}

void readFrom(std::shared_ptr<const Bundle> bundle) {
    givenBundle() = std::move(bundle);
    cachedName().reset();
}

void setDisplayNameForTesting(std::optional<std::string> displayName) {
    auto& cached = cachedName();
    if (displayName) {
        cached = brandName(displayName);
    } else {
        cached.reset();
    }
}

} // namespace ambrel::WidgetBrand
