#pragma once

#include <memory>
#include <optional>
#include <string>

namespace ambrel {
class Bundle;
}

namespace ambrel::WidgetBrand {

// The name shown when the bundle gives none.
inline constexpr const char* kDefaultName = "Tovrin";

// The bundle the program read at start; name() reads its display name. Called once, before the
// first widget is made; without it the name is "Tovrin". Main thread only.
void readFrom(std::shared_ptr<const Bundle> bundle);

// The product name every place in the widget shows: the bundle's "CFBundleDisplayName",
// trimmed, or "Tovrin". Read once, on first use. Main thread only.
const std::string& name();

// The name for a bundle display name: the text trimmed of white space and line breaks at both
// ends, unless nothing is left (or there was no text), in which case "Tovrin".
std::string brandName(const std::optional<std::string>& displayName);

// Makes name() answer as if the bundle's display name were `displayName`; with no value, the
// next name() reads the bundle given to readFrom() again.
void setDisplayNameForTesting(std::optional<std::string> displayName);

} // namespace ambrel::WidgetBrand
