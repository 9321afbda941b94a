#pragma once

#include <optional>
#include <string>

namespace ambrel {

// Who the phone read last time is, remembered between reads (in memory only).
struct PhoneIdentity {
    std::string udid;
    // The device's name, or "iPhone" when it could not be read.
    std::string name;
    // The hardware model identifier (for example "iPhone14,2"), when it could be read.
    std::optional<std::string> model;

    friend bool operator==(const PhoneIdentity&, const PhoneIdentity&) = default;
};

} // namespace ambrel
