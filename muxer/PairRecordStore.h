#pragma once

#include <filesystem>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ambrel {

// The Wi-Fi MAC address in a pair record (its WiFiMACAddress), lower case; absent when the
// bytes are no property list with one. Pure.
std::optional<std::string> wifiMacOfPairRecord(std::string_view record);
// The record's SystemBUID; absent when it has none. Pure.
std::optional<std::string> systemBuidOfPairRecord(std::string_view record);
// The record's HostID: made anew for each pairing, it names this computer to that one phone.
std::optional<std::string> hostIdOfPairRecord(std::string_view record);
// The UDID as libimobiledevice names its records: a 24-character serial gets a dash after its
// eighth character. Pure.
std::string udidOfSerial(const std::string& serial);

// The pair records of phones that paired with this computer, for reaching them over Wi-Fi when
// the system muxer (which only runs while a phone is plugged in) cannot hand them out. They
// come from the system's lockdown folder when it is readable, else from the copies this store
// keeps of every record the system muxer gave out. The copies hold the host's private key: the
// folder is 0700, every file 0600, and nothing of a record is ever logged. The store also
// remembers which advertised MAC belongs to which phone when a private Wi-Fi address hides the
// record's own. Thread-safe.
class PairRecordStore {
public:
    struct KnownPhone {
        std::string udid;
        // Lower case; empty when the record has none.
        std::string wifiMac;
        // Empty when the record has none.
        std::string hostId;
        // The SystemBUID the record was made with; empty when it has none.
        std::string systemBuid;
    };

    // `systemFolder`: the system's lockdown folder (/var/lib/lockdown). `ownFolder`: where the
    // copies are kept; made 0700 when first needed.
    PairRecordStore(std::filesystem::path systemFolder, std::filesystem::path ownFolder);

    // Every phone with a readable record, each once (the system's record wins).
    std::vector<KnownPhone> knownPhones() const;
    // The record of `udid`: the system's, else our copy.
    std::optional<std::string> record(const std::string& udid) const;
    // The host's BUID: the system's, else the one in a kept record.
    std::optional<std::string> systemBuid() const;
    // Keeps a copy of a record the system muxer gave out (written only when it changed). False
    // when it could not be written privately.
    bool keepCopy(const std::string& udid, std::string_view record);

    // Advertised MACs learned for phones, MAC (lower case) to UDID.
    std::map<std::string, std::string> learnedMacs() const;
    void learnMac(const std::string& mac, const std::string& udid);

    const std::filesystem::path& ownFolder() const { return m_ownFolder; }

private:
    bool ensureOwnFolder() const;
    std::map<std::string, std::string> readLearned() const;

    std::filesystem::path m_systemFolder;
    std::filesystem::path m_ownFolder;
    mutable std::mutex m_mutex;
    // The copy last written or found in place, by UDID.
    std::map<std::string, std::string> m_kept;
};

} // namespace ambrel
