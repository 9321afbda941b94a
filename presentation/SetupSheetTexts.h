#pragma once

#include <array>
#include <string>

#include "presentation/SetupStepText.h"

namespace ambrel::SetupSheetTexts {

// The phone setup sheet's texts. They describe the Mac side of pairing, as the phone tools
// expect a phone that trusts a computer; product names come in as arguments.

inline constexpr const char* kHeading = "Connect your iPhone";
inline constexpr const char* kByline = "A Quenby desktop widget";
inline constexpr const char* kFinderNote =
    "Nothing in Finder? In Finder \u2192 Settings \u2192 Sidebar, enable \u201cCDs, DVDs, and iOS "
    "Devices.\u201d If it still only charges, try another data cable or Mac port.";
inline constexpr const char* kOpenFinder = "Open Finder";
inline constexpr const char* kDone = "Done";
inline constexpr const char* kCheckBatteries = "Check batteries";

// The four steps in order; the first names the product.
std::array<SetupStepText, 4> steps(const std::string& productName);
// The box about how often the readings are taken.
std::string cadenceNote(const std::string& productName);

} // namespace ambrel::SetupSheetTexts
