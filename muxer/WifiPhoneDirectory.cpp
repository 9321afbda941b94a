#include "muxer/WifiPhoneDirectory.h"

#include <algorithm>
#include <cctype>
#include <pthread.h>

#include "muxer/AuthTag.h"

namespace ambrel {

std::optional<std::string> macOfAdvertName(const std::string& name) {
    const auto at = name.find('@');
    if (at != 17) {
        return std::nullopt;
    }
    std::string mac = name.substr(0, at);
    for (std::size_t i = 0; i < mac.size(); ++i) {
        const auto c = static_cast<unsigned char>(mac[i]);
        if (i % 3 == 2 ? c != ':' : std::isxdigit(c) == 0) {
            return std::nullopt;
        }
        mac[i] = static_cast<char>(std::tolower(c));
    }
    return mac;
}

void readAdvertTxt(WifiAdvert& advert,
                   const std::vector<std::pair<std::string, std::string>>& entries) {
    for (const auto& [key, value] : entries) {
        if (key == "identifier") {
            advert.identifier = value;
        } else if ((key == "authTag" || key.starts_with("authTag#")) && !value.empty()) {
            advert.authTags.push_back(value);
        }
    }
}

WifiPhoneDirectory::WifiPhoneDirectory(PairRecordStore& records, Clock clock, Prober prober)
    : m_records(records), m_clock(std::move(clock)), m_prober(std::move(prober)) {}

WifiPhoneDirectory::~WifiPhoneDirectory() {
    {
        const std::lock_guard lock(m_mutex);
        m_stopping = true;
    }
    m_triesChanged.notify_all();
    if (m_tryThread.joinable()) {
        m_tryThread.join();
    }
}

void WifiPhoneDirectory::advertResolved(const WifiAdvert& advert) {
    bool arrived = false;
    {
        const std::lock_guard lock(m_mutex);
        const auto key = AdvertKey{advert.name, advert.interfaceIndex};
        const auto known = m_adverts.find(key);
        // A second address of an advert that is here already is no arrival.
        arrived = known == m_adverts.end() || known->second.goneSince.has_value();
        remember(m_adverts[key], advert);
    }
    if (arrived && m_arrivals != nullptr) {
        m_arrivals->phoneAppeared(advert.name, true);
    }
}

void WifiPhoneDirectory::remember(Advert& entry, const WifiAdvert& advert) {
    entry.name = advert.name;
    entry.fullServiceName = advert.fullServiceName;
    entry.interfaceIndex = advert.interfaceIndex;
    entry.identifier = advert.identifier;
    entry.authTags = advert.authTags;
    if (advert.address.family == NetworkAddress::Family::ipv4) {
        entry.ipv4 = advert.address;
    } else {
        entry.ipv6 = advert.address;
    }
    entry.goneSince.reset();
}

void WifiPhoneDirectory::advertRemoved(const std::string& name, std::uint32_t interfaceIndex) {
    const std::lock_guard lock(m_mutex);
    const auto found = m_adverts.find({name, interfaceIndex});
    if (found != m_adverts.end() && !found->second.goneSince) {
        found->second.goneSince = m_clock();
    }
}

void WifiPhoneDirectory::everyAdvertRemoved() {
    const std::lock_guard lock(m_mutex);
    const auto now = m_clock();
    for (auto& [key, advert] : m_adverts) {
        if (!advert.goneSince) {
            advert.goneSince = now;
        }
    }
}

void WifiPhoneDirectory::discoverySettled() {
    {
        const std::lock_guard lock(m_mutex);
        m_settled = true;
    }
    m_settledChanged.notify_all();
}

void WifiPhoneDirectory::expectDiscovery(std::chrono::milliseconds limit) {
    const std::lock_guard lock(m_mutex);
    m_settled = false;
    // The wait is on the real clock: it only bounds how long a client waits.
    m_settleDeadline = std::chrono::steady_clock::now() + limit;
}

bool WifiPhoneDirectory::isAwaitingDiscovery() {
    const std::lock_guard lock(m_mutex);
    return awaitsDiscovery();
}

bool WifiPhoneDirectory::awaitsDiscovery() const {
    return !m_settled && std::chrono::steady_clock::now() < m_settleDeadline;
}

void WifiPhoneDirectory::dropExpired() {
    const auto now = m_clock();
    std::erase_if(m_adverts, [&](const auto& entry) {
        if (entry.second.goneSince && now - *entry.second.goneSince >= kGracePeriod) {
            // What tries taught about a phone gone for good is forgotten with it.
            m_tried.erase(entry.first);
            return true;
        }
        return false;
    });
}

std::uint32_t WifiPhoneDirectory::deviceIdOf(const std::string& udid) {
    const auto found = m_deviceIds.find(udid);
    if (found != m_deviceIds.end()) {
        return found->second;
    }
    const auto id = kFirstDeviceId + static_cast<std::uint32_t>(m_deviceIds.size());
    m_deviceIds.emplace(udid, id);
    return id;
}

WifiPhoneDirectory::Matching
WifiPhoneDirectory::match(const std::vector<PairRecordStore::KnownPhone>& known,
                          const std::map<std::string, std::string>& learned) const {
    const auto isKnown = [&](const std::string& udid) {
        return std::any_of(known.begin(), known.end(),
                           [&](const auto& phone) { return phone.udid == udid; });
    };
    const auto now = m_clock();
    Matching matching;
    for (const auto& [key, advert] : m_adverts) {
        const auto mac = macOfAdvertName(advert.name);
        std::string udid;
        // A phone on a private address names the computers it paired with by their tags.
        const bool tagged = !advert.identifier.empty() && !advert.authTags.empty();
        if (tagged) {
            for (const auto& phone : known) {
                if (!phone.hostId.empty() &&
                    std::find(advert.authTags.begin(), advert.authTags.end(),
                              authTagFor(phone.hostId, advert.identifier)) !=
                        advert.authTags.end()) {
                    udid = phone.udid;
                }
            }
            if (udid.empty()) {
                // Tags, none of them ours: a phone that never paired with this computer.
                continue;
            }
        }
        if (udid.empty() && mac) {
            for (const auto& phone : known) {
                if (!phone.wifiMac.empty() && phone.wifiMac == *mac) {
                    udid = phone.udid;
                }
            }
            if (const auto found = learned.find(*mac); udid.empty() && found != learned.end()) {
                udid = found->second;
            }
        }
        const auto tried = m_tried.find(key);
        if (udid.empty() && tried != m_tried.end()) {
            if (!tried->second.udid.empty() && isKnown(tried->second.udid)) {
                udid = tried->second.udid;
            } else if (now < tried->second.quietUntil &&
                       std::all_of(known.begin(), known.end(), [&](const auto& phone) {
                           return tried->second.otherPairings.contains(phone.hostId);
                       })) {
                // It said no to every pairing we hold, lately.
                continue;
            }
        }
        if (udid.empty()) {
            matching.unmatched.push_back(&advert);
            continue;
        }
        auto& slot = matching.chosen[udid];
        if (slot == nullptr || (slot->goneSince && !advert.goneSince)) {
            slot = &advert;
        }
    }
    return matching;
}

bool WifiPhoneDirectory::queueTries(const Matching& matching,
                                    const std::vector<PairRecordStore::KnownPhone>& known) {
    if (!m_prober || m_stopping) {
        return false;
    }
    const auto now = m_clock();
    bool queued = false;
    for (const Advert* advert : matching.unmatched) {
        if (advert->goneSince || (!advert->ipv4 && !advert->ipv6)) {
            continue;
        }
        const AdvertKey key{advert->name, advert->interfaceIndex};
        auto& result = m_tried[key];
        if (now >= result.quietUntil) {
            result.asked.clear();
            result.otherPairings.clear();
            result.quietUntil = now + kForeignQuiet;
        }
        for (const auto& phone : known) {
            // A pairing made since the advert was last asked is asked about at once.
            const auto& buid = phone.systemBuid.empty() ? m_systemBuid : phone.systemBuid;
            if (phone.hostId.empty() || buid.empty() || matching.chosen.contains(phone.udid) ||
                result.asked.contains(phone.hostId)) {
                continue;
            }
            result.asked.insert(phone.hostId);
            auto address = advert->ipv4 ? *advert->ipv4 : *advert->ipv6;
            address.port = kLockdownPort;
            m_tries.push_back(Try{key, address, phone.udid, phone.hostId, buid});
            queued = true;
        }
    }
    if (!m_tries.empty() && !m_trying) {
        if (m_tryThread.joinable()) {
            // It has left its loop (m_trying is false) and is ending.
            m_tryThread.join();
        }
        m_trying = true;
        m_tryThread = std::thread([this] { runTries(); });
    }
    return queued;
}

void WifiPhoneDirectory::runTries() {
    ::pthread_setname_np(::pthread_self(), "wifi-try");
    std::unique_lock lock(m_mutex);
    auto nextTry = std::chrono::steady_clock::now();
    while (!m_stopping && !m_tries.empty()) {
        // Spaced on the real clock: a busy network gets a trickle of connections, not a storm.
        if (m_triesChanged.wait_until(lock, nextTry, [this] { return m_stopping; }) ||
            m_tries.empty()) {
            break;
        }
        const Try attempt = m_tries.front();
        m_tries.erase(m_tries.begin());
        m_tryUnderWay = true;
        lock.unlock();
        const auto answer = m_prober(attempt.address, attempt.hostId, attempt.systemBuid);
        lock.lock();
        m_tryUnderWay = false;
        nextTry = std::chrono::steady_clock::now() + kTrySpacing;
        const bool found = answer == ProbeAnswer::holdsPairing;
        // An advert gone for good while it was asked leaves nothing to keep.
        if (m_adverts.contains(attempt.advert)) {
            auto& result = m_tried[attempt.advert];
            if (found) {
                result.udid = attempt.udid;
            } else if (answer == ProbeAnswer::otherPairing) {
                result.otherPairings.insert(attempt.hostId);
            } else {
                result.quietUntil = std::min(result.quietUntil, m_clock() + kUnansweredQuiet);
            }
        }
        if (answer != ProbeAnswer::otherPairing) {
            // Found, or nothing to learn there now: its other tries wait for another time, and
            // no other advert is asked about a phone that is found.
            std::erase_if(m_tries, [&](const Try& t) {
                return t.advert == attempt.advert || (found && t.udid == attempt.udid);
            });
        }
        lock.unlock();
        m_triesChanged.notify_all();
        if (found && m_arrivals != nullptr) {
            m_arrivals->phoneAppeared(attempt.udid, true);
        }
        lock.lock();
    }
    m_trying = false;
    lock.unlock();
    m_triesChanged.notify_all();
}

std::vector<MuxDevice> WifiPhoneDirectory::networkDevices() {
    std::unique_lock lock(m_mutex);
    if (awaitsDiscovery()) {
        m_settledChanged.wait_until(lock, m_settleDeadline, [this] { return m_settled; });
    }
    dropExpired();
    // Without adverts there is nothing to match: every USB listing and Connect comes here, and
    // the pair records stay unread.
    if (m_adverts.empty()) {
        return {};
    }
    lock.unlock();
    const auto known = m_records.knownPhones();
    const auto learned = m_records.learnedMacs();
    const auto buid = m_records.systemBuid();
    lock.lock();
    m_systemBuid = buid.value_or("");
    dropExpired();

    auto matching = match(known, learned);
    if (queueTries(matching, known)) {
        // The tools list just before they connect: give the tries a moment, so that a phone
        // they find is in this very listing.
        const auto deadline = std::chrono::steady_clock::now() + kListingWaitsForTries;
        m_triesChanged.wait_until(
            lock, deadline, [this] { return (m_tries.empty() && !m_tryUnderWay) || m_stopping; });
        // The tries that were under way when the wait ended go on without this listing.
        dropExpired();
        matching = match(known, learned);
    }
    auto& chosen = matching.chosen;
    if (chosen.empty() && known.size() == 1 && matching.unmatched.size() == 1) {
        chosen[known.front().udid] = matching.unmatched.front();
    }

    std::vector<MuxDevice> devices;
    for (const auto& [udid, advert] : chosen) {
        MuxDevice device;
        device.deviceId = deviceIdOf(udid);
        device.serialNumber = udid;
        device.connection = MuxDevice::Connection::network;
        device.address = advert->ipv4 ? advert->ipv4 : advert->ipv6;
        device.address->port = kLockdownPort;
        device.serviceName = advert->fullServiceName;
        device.interfaceIndex = advert->interfaceIndex;
        devices.push_back(std::move(device));
    }
    return devices;
}

std::optional<std::string> WifiPhoneDirectory::pairRecord(const std::string& udid) {
    return m_records.record(udid);
}

std::optional<std::string> WifiPhoneDirectory::systemBuid() {
    return m_records.systemBuid();
}

void WifiPhoneDirectory::noteUsbDevices(const std::vector<MuxDevice>& devices) {
    std::vector<std::string> phones;
    for (const auto& device : devices) {
        if (device.connection == MuxDevice::Connection::usb) {
            phones.push_back(udidOfSerial(device.serialNumber));
        }
    }
    if (phones.size() != 1) {
        return;
    }
    {
        const std::lock_guard lock(m_mutex);
        const bool anyCurrent =
            std::any_of(m_adverts.begin(), m_adverts.end(),
                        [](const auto& entry) { return !entry.second.goneSince; });
        if (!anyCurrent) {
            return;
        }
    }
    // With one phone on the cable, the one advert that matches no phone is that phone's,
    // under a private Wi-Fi address.
    const auto known = m_records.knownPhones();
    const auto learned = m_records.learnedMacs();
    const auto onCable = std::find_if(known.begin(), known.end(), [&](const auto& phone) {
        return phone.udid == phones.front();
    });
    if (onCable == known.end()) {
        return;
    }
    std::vector<std::string> strangers;
    {
        const std::lock_guard lock(m_mutex);
        for (const auto& [key, advert] : m_adverts) {
            const auto mac = macOfAdvertName(advert.name);
            if (!mac || advert.goneSince) {
                continue;
            }
            // The phone advertises its own MAC: nothing to learn, and the stranger is someone
            // else's phone.
            if (*mac == onCable->wifiMac) {
                return;
            }
            const bool isRecorded = std::any_of(known.begin(), known.end(), [&](const auto& phone) {
                return phone.wifiMac == *mac;
            });
            const auto learnedFor = learned.find(*mac);
            if (learnedFor != learned.end() && learnedFor->second == phones.front()) {
                return;
            }
            if (!isRecorded && learnedFor == learned.end()) {
                strangers.push_back(*mac);
            }
        }
    }
    if (strangers.size() == 1) {
        m_records.learnMac(strangers.front(), phones.front());
    }
}

void WifiPhoneDirectory::notePairRecord(const std::string& udid, const std::string& record) {
    m_records.keepCopy(udid, record);
}

} // namespace ambrel
