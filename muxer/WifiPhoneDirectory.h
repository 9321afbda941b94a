#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "muxer/NetworkAddress.h"
#include "muxer/NetworkPhoneSource.h"
#include "muxer/PairRecordStore.h"
#include "muxer/PhoneArrivalSink.h"
#include "muxer/WifiAdvertSink.h"

namespace ambrel {

// The advertised MAC of an instance name, lower case; absent when the name does not start with
// six colon-separated hexadecimal byte pairs followed by "@". Pure.
std::optional<std::string> macOfAdvertName(const std::string& name);

// Takes the "identifier" and the "authTag", "authTag#1", … entries of an advert's TXT record
// (key and value pairs, in the record's order) into `advert`; other keys are left. Pure.
void readAdvertTxt(WifiAdvert& advert,
                   const std::vector<std::pair<std::string, std::string>>& entries);

// The Wi-Fi phones the muxer lists: the adverts discovery reports, matched to the phones
// that paired with this computer. An advert matches a phone whose pair record has its MAC, or
// whose MAC was learned while that phone was on USB (a private Wi-Fi address); when only one
// phone ever paired, a lone unmatched advert is offered as that phone, and its lockdown
// accepts or refuses. A phone stays listed for a grace period after its advert went, since a
// sleeping phone drops off and comes back. Thread-safe: discovery reports on its own thread,
// the muxer asks on its client threads.
class WifiPhoneDirectory : public NetworkPhoneSource, public WifiAdvertSink {
public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;

    // How long a phone stays listed after its advert went.
    static constexpr std::chrono::minutes kGracePeriod{15};
    // Device IDs of Wi-Fi phones start here, far above the system muxer's own counter.
    static constexpr std::uint32_t kFirstDeviceId = 0x10000;
    // The port lockdown listens on; libimobiledevice connects to it whatever is listed.
    static constexpr std::uint16_t kLockdownPort = 62078;

    WifiPhoneDirectory(PairRecordStore& records, Clock clock);

    // Told of every advert that arrives, or comes back after it had gone; none until set.
    // Set before discovery starts.
    void setArrivalSink(PhoneArrivalSink* sink) { m_arrivals = sink; }

    // WifiAdvertSink. An advert's IPv4 address is preferred to its IPv6 one; a removed
    // advert starts its grace period.
    void advertResolved(const WifiAdvert& advert) override;
    void advertRemoved(const std::string& name, std::uint32_t interfaceIndex) override;
    void everyAdvertRemoved() override;
    void discoverySettled() override;

    // From now on networkDevices() waits up to `limit` for discoverySettled(), once; called
    // when discovery starts.
    void expectDiscovery(std::chrono::milliseconds limit);
    // Whether a listing now would wait for discovery to settle: discovery is under way and its
    // limit has not passed.
    bool isAwaitingDiscovery();

    // NetworkPhoneSource
    std::vector<MuxDevice> networkDevices() override;
    std::optional<std::string> pairRecord(const std::string& udid) override;
    std::optional<std::string> systemBuid() override;
    void noteUsbDevices(const std::vector<MuxDevice>& devices) override;
    void notePairRecord(const std::string& udid, const std::string& record) override;

private:
    // Main part of isAwaitingDiscovery(); the caller holds m_mutex.
    bool awaitsDiscovery() const;
    struct Advert {
        std::string name;
        std::string fullServiceName;
        std::uint32_t interfaceIndex = 0;
        std::optional<NetworkAddress> ipv4;
        std::optional<NetworkAddress> ipv6;
        std::string identifier;
        std::vector<std::string> authTags;
        std::optional<std::chrono::steady_clock::time_point> goneSince;
    };
    using AdvertKey = std::pair<std::string, std::uint32_t>;

    void dropExpired();
    // Takes in a resolved advert; the caller holds m_mutex.
    static void remember(Advert& entry, const WifiAdvert& advert);
    std::uint32_t deviceIdOf(const std::string& udid);

    PairRecordStore& m_records;
    Clock m_clock;
    PhoneArrivalSink* m_arrivals = nullptr;
    std::mutex m_mutex;
    std::map<AdvertKey, Advert> m_adverts;
    std::map<std::string, std::uint32_t> m_deviceIds;
    std::condition_variable m_settledChanged;
    bool m_settled = true;
    std::chrono::steady_clock::time_point m_settleDeadline{};
};

} // namespace ambrel
