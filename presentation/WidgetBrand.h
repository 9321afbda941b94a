#pragma once

#include <optional>
#include <string>

namespace ambrel {
class Bundle;
}

namespace ambrel::WidgetBrand {

// The name shown when the bundle gives none.
inline constexpr const char* kDefaultName = "Tovrin";

// The product name every place in the widget shows: the bundle's "CFBundleDisplayName",
// trimmed, or "Tovrin" (also without a bundle).
std::string nameFrom(const Bundle* bundle);

// The name for a bundle display name: the text trimmed of white space and line breaks at both
// ends, unless nothing is left (or there was no text), in which case "Tovrin".
std::string brandName(const std::optional<std::string>& displayName);

} // namespace ambrel::WidgetBrand
