#pragma once

namespace ambrel {

// The time limits, in seconds, of the tool runs of one phone read.
struct PhoneReadTimeouts {
    // `idevice_id -n` and `idevice_id -l`.
    double list = 6.0;
    // `ideviceinfo ... -q com.apple.mobile.battery -x`.
    double battery = 8.0;
    // `ideviceinfo ... -k DeviceName` and `-k ProductType`.
    double key = 5.0;
};

} // namespace ambrel
