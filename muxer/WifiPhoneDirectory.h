#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "muxer/LockdownProbe.h"
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
// that paired with this computer. An advert matches the phone whose pairing one of its tags
// names (a phone on a private Wi-Fi address), else the phone whose pair record has its MAC, or
// whose MAC was learned while that phone was on USB. An advert with tags of none of our
// pairings is someone else's phone. As a last resort, an advert that matches nothing is asked,
// pairing by pairing, whether it holds one of ours (see LockdownProbe); the answers are kept in
// memory only, and tries are spaced and not repeated for an hour once an advert answered to
// none. When only one phone ever paired and nothing else decides, a lone unmatched advert is
// offered as that phone, and its lockdown accepts or refuses. A phone stays listed for a grace
// period after its advert went, since a sleeping phone drops off and comes back. Thread-safe:
// discovery reports on its own thread, the muxer asks on its client threads, and tries run on a
// thread of the directory's own that lives only while there are tries to make.
class WifiPhoneDirectory : public NetworkPhoneSource, public WifiAdvertSink {
public:
    using Clock = std::function<std::chrono::steady_clock::time_point()>;
    // Asks lockdown at an address whether it holds the pairing of a HostID, given the
    // computer's SystemBUID (probeLockdown in the program).
    using Prober = std::function<ProbeAnswer(
        const NetworkAddress& address, const std::string& hostId, const std::string& systemBuid)>;

    // How long a phone stays listed after its advert went.
    static constexpr std::chrono::minutes kGracePeriod{15};
    // Device IDs of Wi-Fi phones start here, far above the system muxer's own counter.
    static constexpr std::uint32_t kFirstDeviceId = 0x10000;
    // The port lockdown listens on; libimobiledevice connects to it whatever is listed.
    static constexpr std::uint16_t kLockdownPort = 62078;

    // An advert that answered to none of our pairings is not asked again for this long.
    static constexpr std::chrono::hours kForeignQuiet{1};
    // An advert that gave no answer (a locked phone, a timeout) is asked again after this.
    static constexpr std::chrono::minutes kUnansweredQuiet{5};
    // The least time between two tries, whichever adverts they go to.
    static constexpr std::chrono::seconds kTrySpacing{1};
    // One try's time limit, connection and reply included.
    static constexpr std::chrono::seconds kTryLimit{3};
    // How long a listing waits for the tries it started.
    static constexpr std::chrono::seconds kListingWaitsForTries{5};

    WifiPhoneDirectory(PairRecordStore& records, Clock clock, Prober prober);
    // Stops the tries under way, at once.
    ~WifiPhoneDirectory() override;
    WifiPhoneDirectory(const WifiPhoneDirectory&) = delete;
    WifiPhoneDirectory& operator=(const WifiPhoneDirectory&) = delete;

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

    // What tries have taught about one advert.
    struct TryResult {
        // The phone whose pairing it holds; empty while none is known.
        std::string udid;
        // The HostIDs of the pairings asked about, or to be asked about, since `askedSince`.
        std::set<std::string> asked;
        // Those it answered "not mine" to.
        std::set<std::string> otherPairings;
        // Until then, a pairing is asked about once; afterwards everything is forgotten and
        // asked again.
        std::chrono::steady_clock::time_point quietUntil{};
    };
    struct Try {
        AdvertKey advert;
        NetworkAddress address;
        std::string udid;
        std::string hostId;
        std::string systemBuid;
    };
    // The outcome of matching the adverts to the known phones; the pointers are valid while the
    // caller holds m_mutex.
    struct Matching {
        std::map<std::string, const Advert*> chosen;
        std::vector<const Advert*> unmatched;
    };

    Matching match(const std::vector<PairRecordStore::KnownPhone>& known,
                   const std::map<std::string, std::string>& learned) const;
    // Queues tries of the unmatched adverts with the pairings no advert stands for, and starts
    // the thread that makes them; whether it queued any. The caller holds m_mutex.
    bool queueTries(const Matching& matching,
                    const std::vector<PairRecordStore::KnownPhone>& known);
    void runTries();
    void dropExpired();
    // Takes in a resolved advert; the caller holds m_mutex.
    static void remember(Advert& entry, const WifiAdvert& advert);
    std::uint32_t deviceIdOf(const std::string& udid);

    PairRecordStore& m_records;
    Clock m_clock;
    Prober m_prober;
    PhoneArrivalSink* m_arrivals = nullptr;
    std::mutex m_mutex;
    std::map<AdvertKey, Advert> m_adverts;
    std::map<std::string, std::uint32_t> m_deviceIds;
    std::condition_variable m_settledChanged;
    bool m_settled = true;
    std::chrono::steady_clock::time_point m_settleDeadline{};
    std::map<AdvertKey, TryResult> m_tried;
    std::vector<Try> m_tries;
    // The computer's SystemBUID, for a record that lacks its own.
    std::string m_systemBuid;
    std::condition_variable m_triesChanged;
    std::thread m_tryThread;
    bool m_trying = false;
    bool m_tryUnderWay = false;
    bool m_stopping = false;
};

} // namespace ambrel
