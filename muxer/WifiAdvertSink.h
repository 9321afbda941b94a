#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "muxer/NetworkAddress.h"

namespace ambrel {

// One resolved `_apple-mobdev2._tcp` advert: a phone with Wi-Fi connections turned on names
// itself "<wifi-mac>@<ipv6-link-local>".
struct WifiAdvert {
    std::string name;
    // The escaped full service name ("<name>._apple-mobdev2._tcp.local.").
    std::string fullServiceName;
    std::uint32_t interfaceIndex = 0;
    NetworkAddress address;
    // From the TXT record of a phone on a private Wi-Fi address (iOS 26.4 on): its
    // "identifier", and one "authTag" per computer it paired with ("authTag", "authTag#1", …).
    std::string identifier;
    std::vector<std::string> authTags;
};

// Where discovery reports what it sees. Called on discovery's own thread; implementations are
// thread-safe and return at once.
class WifiAdvertSink {
public:
    virtual ~WifiAdvertSink() = default;
    // An advert resolved, or resolved again with new data.
    virtual void advertResolved(const WifiAdvert& advert) = 0;
    // The advert went.
    virtual void advertRemoved(const std::string& name, std::uint32_t interfaceIndex) = 0;
    // Discovery lost its daemon: every advert is gone as of now.
    virtual void everyAdvertRemoved() = 0;
    // Discovery has reported what was there when it started (or knows it will find nothing).
    virtual void discoverySettled() = 0;
};

} // namespace ambrel
