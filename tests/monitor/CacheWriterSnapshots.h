#pragma once

#include <string>

#include "model/BatteryDeviceSnapshot.h"

namespace ambrel::testing::phonecycle {

// The two readings the cache writer saves in turn. They differ in every field and in length, so
// that a file holding a part of one, or a mix of both, cannot pass for either.
inline BatteryDeviceSnapshot cacheWriterSnapshot(bool first) {
    if (first) {
        return BatteryDeviceSnapshot("iphone", "Short", 7, false, false,
                                     Date::fromSecondsSinceReferenceDate(800000000.25), "USB");
    }
    return BatteryDeviceSnapshot("iphone", "Long \u00b7 " + std::string(3000, 'x'), 93, true, true,
                                 Date::fromSecondsSinceReferenceDate(800000123.5), "Wi-Fi",
                                 std::string("iPhone15,3"));
}

} // namespace ambrel::testing::phonecycle
