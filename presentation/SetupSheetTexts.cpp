#include "presentation/SetupSheetTexts.h"

namespace ambrel::SetupSheetTexts {

std::array<SetupStepText, 4> steps(const std::string& productName) {
    return {{
        {"1", "Connect directly with a USB data cable",
         "For the first pairing, bypass docks and hubs. Keep " + productName +
             " running and unlock both devices. A cable can charge without carrying data."},
        {"2", "Allow the connection and Trust this Mac",
         "Click Allow if the Mac asks to connect an accessory. Open your iPhone in Finder and "
         "choose Trust if asked. On your iPhone, tap Trust and enter your passcode."},
        {"3", "Enable Wi-Fi connection in Finder",
         "Select \u201cShow this iPhone when on Wi-Fi\u201d in the General tab and click Apply. "
         "Keep both devices on the same Wi-Fi network."},
        {"4", "Check, unplug, and check again",
         "Refresh below while connected, then unplug your iPhone and refresh again to confirm "
         "wireless access."},
    }};
}

std::string cadenceNote(const std::string& productName) {
    return productName +
           " checks your iPhone every 5 minutes and your Mac every minute while awake. If a "
           "connection is missed, it shows the last confirmed reading and its timestamp. Your "
           "battery data stays on this Mac.";
}

} // namespace ambrel::SetupSheetTexts
