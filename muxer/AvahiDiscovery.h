#pragma once

#include <memory>

#include "muxer/WifiAdvertSink.h"

namespace ambrel {

// Finds phones on the network through the system's avahi-daemon (over the system bus): browses
// `_apple-mobdev2._tcp` on every interface and keeps a resolver open for each advert and
// address family, reporting to a sink. Connecting to avahi talks to the system bus and waits
// for its answers, so it happens on a thread of its own; after that, avahi's own thread runs
// everything. Without a system bus or avahi-daemon nothing is reported but that discovery
// settled; a daemon that starts later is picked up, one that stops makes every advert gone.
class AvahiDiscovery {
public:
    static constexpr const char* kServiceType = "_apple-mobdev2._tcp";

    // `sink` must outlive the discovery, or its stop().
    explicit AvahiDiscovery(WifiAdvertSink& sink);
    // Stops, as stop() does.
    ~AvahiDiscovery();
    AvahiDiscovery(const AvahiDiscovery&) = delete;
    AvahiDiscovery& operator=(const AvahiDiscovery&) = delete;

    // Starts connecting and returns at once, whatever the system bus does.
    void start();
    // Ends discovery; the sink hears nothing more once it returns. Returns at once also while
    // the connection is still being made: that thread then finishes and cleans up by itself.
    void stop();
    // False once avahi could not be used at all (no system bus); true while connecting and
    // after.
    bool isUsable() const;

private:
    struct State;
    friend struct AvahiCallbacks;

    std::shared_ptr<State> m_state;
};

} // namespace ambrel
