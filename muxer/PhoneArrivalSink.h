#pragma once

#include <string>

namespace ambrel {

// Told when a phone becomes reachable: plugged in (the system muxer's Attached event) or its
// Wi-Fi advert arrived or came back after it had gone. `phone` is the udid for a cable, the
// advert's name for Wi-Fi. Called on the muxer's own threads, so it must be thread-safe and must
// not block; it hands the news on and returns.
class PhoneArrivalSink {
public:
    virtual ~PhoneArrivalSink() = default;
    virtual void phoneAppeared(const std::string& phone, bool overWifi) = 0;
};

} // namespace ambrel
