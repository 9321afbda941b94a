#pragma once

#include <string>

#include "model/BatteryDeviceSnapshot.h"
#include "model/PhoneLink.h"
#include "phone/PhoneIdentity.h"

namespace ambrel {

// A successful phone read.
struct PhoneReading {
    // Its source is the link's word (phoneLinkText).
    BatteryDeviceSnapshot snapshot;
    PhoneLink link = PhoneLink::usb;
    std::string udid;
    PhoneIdentity identity;
};

} // namespace ambrel
