#pragma once

#include <map>
#include <memory>
#include <set>
#include <string>
#include <tuple>

#include "muxer/WifiAdvertSink.h"

struct AvahiThreadedPoll;
struct AvahiClient;
struct AvahiServiceBrowser;
struct AvahiServiceResolver;

namespace ambrel {

// Finds phones on the network through the system's avahi-daemon (over the system bus): browses
// `_apple-mobdev2._tcp` on every interface and keeps a resolver open for each advert and
// address family, reporting to a sink. Runs on avahi's own thread. Without a system bus or
// avahi-daemon nothing is reported; a daemon that starts later is picked up, one that stops
// makes every advert gone.
class AvahiDiscovery {
public:
    static constexpr const char* kServiceType = "_apple-mobdev2._tcp";

    // `sink` must outlive the discovery.
    explicit AvahiDiscovery(WifiAdvertSink& sink);
    ~AvahiDiscovery();
    AvahiDiscovery(const AvahiDiscovery&) = delete;
    AvahiDiscovery& operator=(const AvahiDiscovery&) = delete;

    // False when avahi cannot be used at all (no system bus): the program goes on USB only.
    bool start();
    void stop();

private:
    using BrowseKey = std::tuple<int, int, std::string, std::string>;

    friend struct AvahiCallbacks;

    void clientState(AvahiClient* client, bool isRunning, bool isLost);
    void browseEvent(int interface, int protocol, bool isNew, const char* name, const char* type,
                     const char* domain);
    void browseListedAll();
    void resolved(AvahiServiceResolver* resolver, int interface, const char* name, const char* type,
                  const char* domain, const NetworkAddress& address);
    void forgetEverything();
    void resolverDone(AvahiServiceResolver* resolver, bool found);
    void settleIfDone();

    WifiAdvertSink& m_sink;
    AvahiThreadedPoll* m_poll = nullptr;
    AvahiClient* m_client = nullptr;
    AvahiServiceBrowser* m_browser = nullptr;
    // The open resolvers (one per address family) of each browse result.
    std::map<BrowseKey, std::pair<AvahiServiceResolver*, AvahiServiceResolver*>> m_resolvers;
    // Resolvers that have not answered yet, and whether the browser listed what was there.
    std::set<AvahiServiceResolver*> m_unanswered;
    bool m_listedAll = false;
    bool m_settled = false;
};

} // namespace ambrel
