#pragma once

#include <string>

namespace ambrel::CardTexts {

// The card's fixed texts, kept apart from the widgets so that they are checked without a
// display. Product names come in as arguments (the delegate reads the name from the bundle with
// WidgetBrand::nameFrom).

inline constexpr const char* kDragHelp = "Drag to move the widget";
inline constexpr const char* kRefreshHelp = "Check both batteries now";
inline constexpr const char* kRefreshLabel = "Refresh both batteries";

inline constexpr const char* kMenuRefresh = "Refresh batteries";
inline constexpr const char* kMenuSetup = "iPhone setup & connection";
inline constexpr const char* kMenuByline = "By Quenby";
inline constexpr const char* kMenuHide = "Hide widget";

inline constexpr const char* kCadence = "Every 5 min";
inline constexpr const char* kCadenceHelp =
    "Your Mac updates every minute while awake. Your iPhone is checked every five minutes, and "
    "whenever your Mac wakes.";
inline constexpr const char* kHelpButtonLabel = "iPhone connection help";

// The ellipsis button's tooltip and spoken label, e.g. "Tovrin options".
std::string optionsLabel(const std::string& productName);
// The menu's last item, e.g. "Quit Tovrin".
std::string quitTitle(const std::string& productName);

} // namespace ambrel::CardTexts
