#include "muxer/AvahiDiscovery.h"

#include <avahi-client/client.h>
#include <avahi-client/lookup.h>
#include <avahi-common/domain.h>
#include <avahi-common/thread-watch.h>
#include <cstring>

namespace ambrel {

// The C callbacks, with avahi's exact signatures, handing over to the discovery. All run on
// avahi's thread, with its lock held.
struct AvahiCallbacks {
    static void client(AvahiClient* client, AvahiClientState state, void* self) {
        static_cast<AvahiDiscovery*>(self)->clientState(client, state == AVAHI_CLIENT_S_RUNNING,
                                                        state == AVAHI_CLIENT_FAILURE ||
                                                            state == AVAHI_CLIENT_CONNECTING);
    }

    static void browse(AvahiServiceBrowser*, AvahiIfIndex interface, AvahiProtocol protocol,
                       AvahiBrowserEvent event, const char* name, const char* type,
                       const char* domain, AvahiLookupResultFlags, void* self) {
        if (event == AVAHI_BROWSER_NEW || event == AVAHI_BROWSER_REMOVE) {
            static_cast<AvahiDiscovery*>(self)->browseEvent(
                interface, protocol, event == AVAHI_BROWSER_NEW, name, type, domain);
        } else if (event == AVAHI_BROWSER_ALL_FOR_NOW || event == AVAHI_BROWSER_FAILURE) {
            // Nothing more is coming soon. (Cache exhausted comes before the daemon's own
            // answers, so it says nothing yet.)
            static_cast<AvahiDiscovery*>(self)->browseListedAll();
        }
    }

    static void resolve(AvahiServiceResolver* resolver, AvahiIfIndex interface, AvahiProtocol,
                        AvahiResolverEvent event, const char* name, const char* type,
                        const char* domain, const char*, const AvahiAddress* address, uint16_t port,
                        AvahiStringList*, AvahiLookupResultFlags, void* self) {
        auto* discovery = static_cast<AvahiDiscovery*>(self);
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
        discovery->resolved(resolver, interface, name, type, domain, found);
    }
};

AvahiDiscovery::AvahiDiscovery(WifiAdvertSink& sink) : m_sink(sink) {}

AvahiDiscovery::~AvahiDiscovery() {
    stop();
}

bool AvahiDiscovery::start() {
    if (m_poll != nullptr) {
        return true;
    }
    m_poll = avahi_threaded_poll_new();
    if (m_poll == nullptr) {
        return false;
    }
    int error = 0;
    // NO_FAIL: an avahi-daemon that is not running yet is waited for.
    m_client = avahi_client_new(avahi_threaded_poll_get(m_poll), AVAHI_CLIENT_NO_FAIL,
                                &AvahiCallbacks::client, this, &error);
    if (m_client == nullptr || avahi_threaded_poll_start(m_poll) < 0) {
        stop();
        return false;
    }
    return true;
}

void AvahiDiscovery::stop() {
    if (m_poll == nullptr) {
        return;
    }
    avahi_threaded_poll_stop(m_poll);
    forgetEverything();
    if (m_client != nullptr) {
        avahi_client_free(m_client);
        m_client = nullptr;
    }
    avahi_threaded_poll_free(m_poll);
    m_poll = nullptr;
}

void AvahiDiscovery::forgetEverything() {
    for (auto& [key, resolvers] : m_resolvers) {
        if (resolvers.first != nullptr) {
            avahi_service_resolver_free(resolvers.first);
        }
        if (resolvers.second != nullptr) {
            avahi_service_resolver_free(resolvers.second);
        }
    }
    m_resolvers.clear();
    m_unanswered.clear();
    m_listedAll = false;
    if (m_browser != nullptr) {
        avahi_service_browser_free(m_browser);
        m_browser = nullptr;
    }
}

void AvahiDiscovery::clientState(AvahiClient* client, bool isRunning, bool isLost) {
    if (isRunning && m_browser == nullptr) {
        m_browser = avahi_service_browser_new(
            client, AVAHI_IF_UNSPEC, AVAHI_PROTO_UNSPEC, kServiceType, nullptr,
            static_cast<AvahiLookupFlags>(0), &AvahiCallbacks::browse, this);
    } else if (isLost) {
        // The daemon went (with NO_FAIL the client waits for it to come back): what it
        // found is gone with it, and nothing is coming soon.
        forgetEverything();
        m_sink.everyAdvertRemoved();
        m_listedAll = true;
        settleIfDone();
    }
}

void AvahiDiscovery::browseListedAll() {
    m_listedAll = true;
    settleIfDone();
}

void AvahiDiscovery::resolverDone(AvahiServiceResolver* resolver, bool found) {
    m_unanswered.erase(resolver);
    // One address is enough for the advert: a phone without IPv6 need not hold up the rest.
    if (found) {
        for (const auto& [key, resolvers] : m_resolvers) {
            if (resolvers.first == resolver || resolvers.second == resolver) {
                m_unanswered.erase(resolvers.first);
                m_unanswered.erase(resolvers.second);
            }
        }
    }
    settleIfDone();
}

void AvahiDiscovery::settleIfDone() {
    if (!m_settled && m_listedAll && m_unanswered.empty()) {
        m_settled = true;
        m_sink.discoverySettled();
    }
}

void AvahiDiscovery::browseEvent(int interface, int protocol, bool isNew, const char* name,
                                 const char* type, const char* domain) {
    if (interface < 0 || name == nullptr || type == nullptr || domain == nullptr) {
        return;
    }
    const BrowseKey key{interface, protocol, name, domain};
    if (isNew) {
        if (m_resolvers.count(key) != 0) {
            return;
        }
        auto& resolvers = m_resolvers[key];
        for (const auto family : {AVAHI_PROTO_INET, AVAHI_PROTO_INET6}) {
            auto* resolver = avahi_service_resolver_new(
                m_client, interface, protocol, name, type, domain, family,
                static_cast<AvahiLookupFlags>(0), &AvahiCallbacks::resolve, this);
            (family == AVAHI_PROTO_INET ? resolvers.first : resolvers.second) = resolver;
            if (resolver != nullptr) {
                m_unanswered.insert(resolver);
            }
        }
        return;
    }
    const auto found = m_resolvers.find(key);
    if (found == m_resolvers.end()) {
        return;
    }
    for (auto* resolver : {found->second.first, found->second.second}) {
        if (resolver != nullptr) {
            m_unanswered.erase(resolver);
            avahi_service_resolver_free(resolver);
        }
    }
    m_resolvers.erase(found);
    // The advert may still be seen over the other transport.
    for (const auto& [other, resolvers] : m_resolvers) {
        if (std::get<0>(other) == interface && std::get<2>(other) == name) {
            return;
        }
    }
    m_sink.advertRemoved(name, static_cast<std::uint32_t>(interface));
}

void AvahiDiscovery::resolved(AvahiServiceResolver*, int interface, const char* name,
                              const char* type, const char* domain, const NetworkAddress& address) {
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
    m_sink.advertResolved(advert);
}

} // namespace ambrel
