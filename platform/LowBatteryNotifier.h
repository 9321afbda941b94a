#pragma once

#include <string>

#include "model/BatteryDeviceKind.h"

namespace ambrel {

// How low a battery is when it is worth telling.
enum class LowBatteryLevel { warning, critical };

// One low-battery alert as the desktop shows it.
struct LowBatteryNotice {
    BatteryDeviceKind device = BatteryDeviceKind::mac;
    LowBatteryLevel level = LowBatteryLevel::warning;
    std::string summary;
    std::string body;
    // The title of the one action, which snoozes the device's alerts.
    std::string snoozeTitle;
};

// Where low-battery alerts go: at most one alert per device is open at a time, and showing
// another for the same device replaces it in place. Main thread only.
class LowBatteryNotifier {
public:
    virtual ~LowBatteryNotifier() = default;
    virtual void show(const LowBatteryNotice& notice) = 0;
    // Closes the device's alert, if one is open.
    virtual void close(BatteryDeviceKind device) = 0;
};

} // namespace ambrel
