#include "muxer/AvahiDiscovery.h"

#include <atomic>
#include <avahi-client/client.h>
#include <avahi-client/lookup.h>
#include <avahi-common/domain.h>
#include <avahi-common/malloc.h>
#include <avahi-common/strlst.h>
#include <avahi-common/thread-watch.h>
#include <cstring>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "muxer/WifiPhoneDirectory.h"

namespace ambrel {

// Everything of one discovery, shared by its owner and the thread that connects, so that an
// owner that stops while the connection is still being made can leave it to that thread.
struct AvahiDiscovery::State {
    using BrowseKey = std::tuple<int, int, std::string, std::string>;

    explicit State(WifiAdvertSink& sinkToReport) : sink(sinkToReport) {}

    // On the connecting thread.
    void open();
    // Stops avahi's thread and frees everything; not on avahi's thread.
    void close();

    // Calls `report` with the sink unless the owner stopped; a stop waits for a report under
    // way.
    template <typename Report> void tell(Report report) {
        const std::lock_guard lock(mutex);
        if (!isStopped) {
            report(sink);
        }
    }

    // Run on avahi's thread (or on the connecting thread, inside avahi_client_new).
    void clientState(AvahiClient* client, bool isRunning, bool isLost);
    void browseEvent(int interface, int protocol, bool isNew, const char* name, const char* type,
                     const char* domain);
    void browseListedAll();
    void resolved(int interface, const char* name, const char* type, const char* domain,
                  const NetworkAddress& address,
                  const std::vector<std::pair<std::string, std::string>>& txt);
    void forgetEverything();
    void resolverDone(AvahiServiceResolver* resolver, bool found);
    void settleIfDone();

    WifiAdvertSink& sink;
    // Guards the two flags; held while the sink is told something.
    std::mutex mutex;
    bool isOpening = true;
    // Only the owner's thread reads and writes it.
    bool hasStarted = false;
    bool isStopped = false;
    std::atomic<bool> isUsable{true};

    AvahiThreadedPoll* poll = nullptr;
    AvahiClient* client = nullptr;
    AvahiServiceBrowser* browser = nullptr;
    // The open resolvers (one per address family) of each browse result.
    std::map<BrowseKey, std::pair<AvahiServiceResolver*, AvahiServiceResolver*>> resolversOf;
    // Resolvers that have not answered yet, and whether the browser listed what was there.
    std::set<AvahiServiceResolver*> unanswered;
    bool listedAll = false;
    bool settled = false;
};

// The C callbacks, with avahi's exact signatures, handing over to the discovery. All run on
// avahi's thread, with its lock held.
struct AvahiCallbacks {
    static void client(AvahiClient* client, AvahiClientState state, void* self) {
        static_cast<AvahiDiscovery::State*>(self)->clientState(
            client, state == AVAHI_CLIENT_S_RUNNING,
            state == AVAHI_CLIENT_FAILURE || state == AVAHI_CLIENT_CONNECTING);
    }

    static void browse(AvahiServiceBrowser*, AvahiIfIndex interface, AvahiProtocol protocol,
                       AvahiBrowserEvent event, const char* name, const char* type,
                       const char* domain, AvahiLookupResultFlags, void* self) {
        if (event == AVAHI_BROWSER_NEW || event == AVAHI_BROWSER_REMOVE) {
            static_cast<AvahiDiscovery::State*>(self)->browseEvent(
                interface, protocol, event == AVAHI_BROWSER_NEW, name, type, domain);
        } else if (event == AVAHI_BROWSER_ALL_FOR_NOW || event == AVAHI_BROWSER_FAILURE) {
            // Nothing more is coming soon. (Cache exhausted comes before the daemon's own
            // answers, so it says nothing yet.)
            static_cast<AvahiDiscovery::State*>(self)->browseListedAll();
        }
    }

    static void resolve(AvahiServiceResolver* resolver, AvahiIfIndex interface, AvahiProtocol,
                        AvahiResolverEvent event, const char* name, const char* type,
                        const char* domain, const char*, const AvahiAddress* address, uint16_t port,
                        AvahiStringList* txt, AvahiLookupResultFlags, void* self) {
        auto* discovery = static_cast<AvahiDiscovery::State*>(self);
        discovery->resolverDone(resolver, event == AVAHI_RESOLVER_FOUND);
        // A resolver that fails (no address of its family) stays quiet; the other family's
        // may well succeed.
        if (event != AVAHI_RESOLVER_FOUND || address == nullptr || interface < 0) {
            return;
        }
        NetworkAddress found;
        found.port = port;
        if (address->proto == AVAHI_PROTO_INET) {
            found.family = NetworkAddress::Family::ipv4;
            std::memcpy(found.bytes.data(), &address->data.ipv4.address, 4);
        } else if (address->proto == AVAHI_PROTO_INET6) {
            found.family = NetworkAddress::Family::ipv6;
            std::memcpy(found.bytes.data(), address->data.ipv6.address, 16);
            // A link-local address only means something on its own interface.
            if (found.bytes[0] == 0xfe && (found.bytes[1] & 0xc0) == 0x80) {
                found.scopeId = static_cast<std::uint32_t>(interface);
            }
        } else {
            return;
        }
        discovery->resolved(interface, name, type, domain, found, txtEntries(txt));
    }

    // The TXT record's key and value pairs in order; an entry without "=" has an empty value.
    static std::vector<std::pair<std::string, std::string>> txtEntries(AvahiStringList* txt) {
        std::vector<std::pair<std::string, std::string>> entries;
        for (AvahiStringList* entry = txt; entry != nullptr;
             entry = avahi_string_list_get_next(entry)) {
            char* key = nullptr;
            char* value = nullptr;
            std::size_t size = 0;
            if (avahi_string_list_get_pair(entry, &key, &value, &size) != 0 || key == nullptr) {
                continue;
            }
            entries.emplace_back(key, value != nullptr ? std::string(value, size) : std::string());
            avahi_free(key);
            avahi_free(value);
        }
        return entries;
    }
};

AvahiDiscovery::AvahiDiscovery(WifiAdvertSink& sink) : m_state(std::make_shared<State>(sink)) {}

AvahiDiscovery::~AvahiDiscovery() {
    stop();
}

void AvahiDiscovery::start() {
    if (!m_state || m_state->hasStarted) {
        return;
    }
    m_state->hasStarted = true;
    std::thread([state = m_state] { state->open(); }).detach();
}

void AvahiDiscovery::stop() {
    if (!m_state) {
        return;
    }
    const auto state = std::move(m_state);
    {
        const std::lock_guard lock(state->mutex);
        state->isStopped = true;
        if (state->isOpening) {
            return;
        }
    }
    state->close();
}

bool AvahiDiscovery::isUsable() const {
    return m_state && m_state->isUsable.load();
}

void AvahiDiscovery::State::open() {
    poll = avahi_threaded_poll_new();
    if (poll != nullptr) {
        int error = 0;
        // NO_FAIL: an avahi-daemon that is not running yet is waited for.
        client = avahi_client_new(avahi_threaded_poll_get(poll), AVAHI_CLIENT_NO_FAIL,
                                  &AvahiCallbacks::client, this, &error);
    }
    const bool isRunning = client != nullptr && avahi_threaded_poll_start(poll) >= 0;
    isUsable = isRunning;
    bool isClosing = !isRunning;
    {
        const std::lock_guard lock(mutex);
        isOpening = false;
        isClosing = isClosing || isStopped;
    }
    if (isClosing) {
        close();
    }
    if (!isRunning) {
        // Nothing is coming: a listing need not wait for discovery.
        tell([](WifiAdvertSink& to) { to.discoverySettled(); });
    }
}

void AvahiDiscovery::State::close() {
    if (poll == nullptr) {
        return;
    }
    avahi_threaded_poll_stop(poll);
    forgetEverything();
    if (client != nullptr) {
        avahi_client_free(client);
        client = nullptr;
    }
    avahi_threaded_poll_free(poll);
    poll = nullptr;
}

void AvahiDiscovery::State::forgetEverything() {
    for (auto& [key, pair] : resolversOf) {
        if (pair.first != nullptr) {
            avahi_service_resolver_free(pair.first);
        }
        if (pair.second != nullptr) {
            avahi_service_resolver_free(pair.second);
        }
    }
    resolversOf.clear();
    unanswered.clear();
    listedAll = false;
    if (browser != nullptr) {
        avahi_service_browser_free(browser);
        browser = nullptr;
    }
}

void AvahiDiscovery::State::clientState(AvahiClient* current, bool isRunning, bool isLost) {
    if (isRunning && browser == nullptr) {
        browser = avahi_service_browser_new(current, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC,
                                            kServiceType, nullptr, static_cast<AvahiLookupFlags>(0),
                                            &AvahiCallbacks::browse, this);
    } else if (isLost) {
        // The daemon went (with NO_FAIL the client waits for it to come back): what it
        // found is gone with it, and nothing is coming soon.
        forgetEverything();
        tell([](WifiAdvertSink& to) { to.everyAdvertRemoved(); });
        listedAll = true;
        settleIfDone();
    }
}

void AvahiDiscovery::State::browseListedAll() {
    listedAll = true;
    settleIfDone();
}

void AvahiDiscovery::State::resolverDone(AvahiServiceResolver* resolver, bool found) {
    unanswered.erase(resolver);
    // One address is enough for the advert: a phone without IPv6 need not hold up the rest.
    if (found) {
        for (const auto& [key, pair] : resolversOf) {
            if (pair.first == resolver || pair.second == resolver) {
                unanswered.erase(pair.first);
                unanswered.erase(pair.second);
            }
        }
    }
    settleIfDone();
}

void AvahiDiscovery::State::settleIfDone() {
    if (!settled && listedAll && unanswered.empty()) {
        settled = true;
        tell([](WifiAdvertSink& to) { to.discoverySettled(); });
    }
}

void AvahiDiscovery::State::browseEvent(int interface, int protocol, bool isNew, const char* name,
                                        const char* type, const char* domain) {
    if (interface < 0 || name == nullptr || type == nullptr || domain == nullptr) {
        return;
    }
    const BrowseKey key{interface, protocol, name, domain};
    if (isNew) {
        if (resolversOf.count(key) != 0) {
            return;
        }
        auto& resolvers = resolversOf[key];
        for (const auto family : {AVAHI_PROTO_INET, AVAHI_PROTO_INET6}) {
            auto* resolver = avahi_service_resolver_new(
                client, interface, protocol, name, type, domain, family,
                static_cast<AvahiLookupFlags>(0), &AvahiCallbacks::resolve, this);
            (family == AVAHI_PROTO_INET ? resolvers.first : resolvers.second) = resolver;
            if (resolver != nullptr) {
                unanswered.insert(resolver);
            }
        }
        return;
    }
    const auto found = resolversOf.find(key);
    if (found == resolversOf.end()) {
        return;
    }
    for (auto* resolver : {found->second.first, found->second.second}) {
        if (resolver != nullptr) {
            unanswered.erase(resolver);
            avahi_service_resolver_free(resolver);
        }
    }
    resolversOf.erase(found);
    // The advert may still be seen over the other transport.
    for (const auto& [other, pair] : resolversOf) {
        if (std::get<0>(other) == interface && std::get<2>(other) == name) {
            return;
        }
    }
    tell(
        [&](WifiAdvertSink& to) { to.advertRemoved(name, static_cast<std::uint32_t>(interface)); });
}

void AvahiDiscovery::State::resolved(int interface, const char* name, const char* type,
                                     const char* domain, const NetworkAddress& address,
                                     const std::vector<std::pair<std::string, std::string>>& txt) {
    if (name == nullptr || type == nullptr || domain == nullptr) {
        return;
    }
    char full[AVAHI_DOMAIN_NAME_MAX] = {};
    if (avahi_service_name_join(full, sizeof full, name, type, domain) < 0) {
        return;
    }
    WifiAdvert advert;
    advert.name = name;
    advert.fullServiceName = full;
    advert.interfaceIndex = static_cast<std::uint32_t>(interface);
    advert.address = address;
    readAdvertTxt(advert, txt);
    tell([&](WifiAdvertSink& to) { to.advertResolved(advert); });
}

} // namespace ambrel
