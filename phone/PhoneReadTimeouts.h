#pragma once

#include <chrono>

namespace ambrel {

// The time limits of the tool runs of one phone read.
struct PhoneReadTimeouts {
    // `idevice_id -n` and `idevice_id -l`.
    std::chrono::milliseconds list{6000};
    // `ideviceinfo ... -q com.apple.mobile.battery -x`.
    std::chrono::milliseconds battery{8000};
    // `ideviceinfo ... -k DeviceName` and `-k ProductType`.
    std::chrono::milliseconds key{5000};
};

} // namespace ambrel
