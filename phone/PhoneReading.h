#pragma once

#include <string>

#include "model/BatteryDeviceSnapshot.h"
#include "phone/PhoneIdentity.h"

namespace ambrel {

// A successful phone read.
struct PhoneReading {
    BatteryDeviceSnapshot snapshot;
    std::string udid;
    PhoneIdentity identity;
};

} // namespace ambrel
