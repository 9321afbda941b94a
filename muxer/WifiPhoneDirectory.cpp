#include "muxer/WifiPhoneDirectory.h"

#include <algorithm>
#include <cctype>

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

WifiPhoneDirectory::WifiPhoneDirectory(PairRecordStore& records, Clock clock)
    : m_records(records), m_clock(std::move(clock)) {}

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
        return entry.second.goneSince && now - *entry.second.goneSince >= kGracePeriod;
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
    lock.lock();
    dropExpired();

    // udid -> the advert that stands for it; a current advert beats one in its grace period.
    std::map<std::string, const Advert*> chosen;
    std::vector<const Advert*> unmatched;
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
        if (udid.empty()) {
            unmatched.push_back(&advert);
            continue;
        }
        auto& slot = chosen[udid];
        if (slot == nullptr || (slot->goneSince && !advert.goneSince)) {
            slot = &advert;
        }
    }
    if (chosen.empty() && known.size() == 1 && unmatched.size() == 1) {
        chosen[known.front().udid] = unmatched.front();
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
