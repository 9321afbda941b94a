#pragma once

#include <string>

#include "platform/Bundle.h"

namespace ambrel::ShellTexts {

inline constexpr const char* kFallbackName = "Tovrin";
inline constexpr const char* kRefreshTitle = "Refresh Batteries";
inline constexpr const char* kStartAtLoginTitle = "Start at Login";
// Our own item, right after "Start at Login": low-battery alerts on or off.
inline constexpr const char* kLowBatteryAlertsTitle = "Low Battery Alerts";
inline constexpr const char* kStartAtLoginNeedsApprovalTitle = "Start at Login (Needs Approval)";
inline constexpr const char* kLoginChangeFailedTitle = "Couldn\u2019t change Start at Login";
inline constexpr const char* kOkButton = "OK";

// The name the shell shows: the bundle's "CFBundleDisplayName" when it is text and not empty,
// otherwise "Tovrin". Unlike the widget's brand it is not trimmed.
std::string displayName(const Bundle& bundle);

std::string showTitle(const std::string& name);
std::string aboutTitle(const std::string& name);
std::string quitTitle(const std::string& name);
// The tray item's tool tip: the name, an em dash and what it watches.
std::string toolTip(const std::string& name);
// The About box's text with the name where the widget's heading is meant.
std::string aboutText(const std::string& name);
// The notification after "Hide widget" on a desktop without a tray, where no menu can bring
// the card back: what to do instead.
std::string hiddenNoteSummary(const std::string& name);
std::string hiddenNoteBody(const std::string& name);

} // namespace ambrel::ShellTexts
