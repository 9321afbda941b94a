#include "muxer/PairRecordStore.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <fcntl.h>
#include <fstream>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

#include "muxer/MuxMessage.h"
#include "muxer/PlistNode.h"

namespace ambrel {

namespace {

constexpr const char* kRecordSuffix = ".plist";
constexpr const char* kLearnedFile = "learned-wifi-addresses";
// A pair record is a few KiB; anything far larger is not one.
constexpr std::uintmax_t kLargestRecord = 256 * 1024;

std::optional<std::string> stringOfRecord(std::string_view record, const char* key) {
    if (record.empty() || record.size() > kLargestRecord) {
        return std::nullopt;
    }
    plist_t raw = nullptr;
    plist_from_memory(record.data(), static_cast<std::uint32_t>(record.size()), &raw);
    const PlistNode root(raw);
    if (!root || plist_get_node_type(root.get()) != PLIST_DICT) {
        return std::nullopt;
    }
    auto text = stringIn(root.get(), key);
    if (!text || text->empty()) {
        return std::nullopt;
    }
    return text;
}

std::string lowerCase(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return text;
}

// A record file's name is its UDID: hexadecimal digits and dashes.
bool isUdid(const std::string& name) {
    return !name.empty() && name.size() <= 64 &&
           std::all_of(name.begin(), name.end(),
                       [](unsigned char c) { return std::isxdigit(c) != 0 || c == '-'; });
}

std::optional<std::string> readSmallFile(const std::filesystem::path& path) {
    std::error_code error;
    const auto size = std::filesystem::file_size(path, error);
    if (error || size > kLargestRecord) {
        return std::nullopt;
    }
    std::ifstream stream(path, std::ios::binary);
    if (!stream) {
        return std::nullopt;
    }
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

std::vector<std::pair<std::string, std::filesystem::path>>
recordsIn(const std::filesystem::path& folder) {
    std::vector<std::pair<std::string, std::filesystem::path>> records;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
        const auto& path = entry.path();
        if (path.extension() != kRecordSuffix) {
            continue;
        }
        const auto udid = path.stem().string();
        if (isUdid(udid)) {
            records.emplace_back(udid, path);
        }
    }
    std::sort(records.begin(), records.end());
    return records;
}

// Writes `bytes` to `path` through a 0600 temporary file and a rename, so that the file is
// never readable by others, not even for a moment, and never half written.
bool writePrivately(const std::filesystem::path& path, std::string_view bytes) {
    const auto temporary = path.string() + ".new";
    const int fd =
        ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW, 0600);
    if (fd < 0) {
        return false;
    }
    bool written = ::fchmod(fd, 0600) == 0;
    for (std::size_t done = 0; written && done < bytes.size();) {
        const auto count = ::write(fd, bytes.data() + done, bytes.size() - done);
        written = count > 0;
        done += written ? static_cast<std::size_t>(count) : 0;
    }
    written = ::fsync(fd) == 0 && written;
    written = ::close(fd) == 0 && written;
    if (!written || std::rename(temporary.c_str(), path.c_str()) != 0) {
        ::unlink(temporary.c_str());
        return false;
    }
    return true;
}

} // namespace

std::optional<std::string> wifiMacOfPairRecord(std::string_view record) {
    auto mac = stringOfRecord(record, "WiFiMACAddress");
    return mac ? std::optional(lowerCase(*mac)) : std::nullopt;
}

std::optional<std::string> systemBuidOfPairRecord(std::string_view record) {
    return stringOfRecord(record, "SystemBUID");
}

std::optional<std::string> hostIdOfPairRecord(std::string_view record) {
    return stringOfRecord(record, "HostID");
}

std::string udidOfSerial(const std::string& serial) {
    if (serial.size() == 24) {
        return serial.substr(0, 8) + "-" + serial.substr(8);
    }
    return serial;
}

PairRecordStore::PairRecordStore(std::filesystem::path systemFolder,
                                 std::filesystem::path ownFolder)
    : m_systemFolder(std::move(systemFolder)), m_ownFolder(std::move(ownFolder)) {}

bool PairRecordStore::ensureOwnFolder() const {
    if (m_ownFolder.empty()) {
        return false;
    }
    // Every folder made on the way is private too: the program's data folder holds the reading
    // cache, which keeps its folder 0700.
    std::vector<std::filesystem::path> missing;
    for (auto folder = m_ownFolder; !folder.empty() && !std::filesystem::exists(folder);
         folder = folder.parent_path()) {
        missing.push_back(folder);
        if (folder == folder.parent_path()) {
            break;
        }
    }
    for (auto it = missing.rbegin(); it != missing.rend(); ++it) {
        ::mkdir(it->c_str(), 0700);
    }
    struct stat info {};
    if (::lstat(m_ownFolder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode) ||
        info.st_uid != ::getuid()) {
        return false;
    }
    return (info.st_mode & 0777) == 0700 || ::chmod(m_ownFolder.c_str(), 0700) == 0;
}

std::vector<PairRecordStore::KnownPhone> PairRecordStore::knownPhones() const {
    const std::lock_guard lock(m_mutex);
    std::map<std::string, KnownPhone> phones;
    for (const auto& folder : {m_systemFolder, m_ownFolder}) {
        for (const auto& [udid, path] : recordsIn(folder)) {
            if (phones.count(udid) != 0) {
                continue;
            }
            if (const auto bytes = readSmallFile(path)) {
                if (systemBuidOfPairRecord(*bytes) || wifiMacOfPairRecord(*bytes)) {
                    phones[udid] = {udid, wifiMacOfPairRecord(*bytes).value_or(""),
                                    hostIdOfPairRecord(*bytes).value_or(""),
                                    systemBuidOfPairRecord(*bytes).value_or("")};
                }
            }
        }
    }
    std::vector<KnownPhone> known;
    for (auto& [udid, phone] : phones) {
        known.push_back(std::move(phone));
    }
    return known;
}

std::optional<std::string> PairRecordStore::record(const std::string& udid) const {
    if (!isUdid(udid)) {
        return std::nullopt;
    }
    const std::lock_guard lock(m_mutex);
    for (const auto& folder : {m_systemFolder, m_ownFolder}) {
        if (auto bytes = readSmallFile(folder / (udid + kRecordSuffix)); bytes && !bytes->empty()) {
            return bytes;
        }
    }
    return std::nullopt;
}

std::optional<std::string> PairRecordStore::systemBuid() const {
    const std::lock_guard lock(m_mutex);
    if (const auto configuration = readSmallFile(m_systemFolder / "SystemConfiguration.plist")) {
        if (auto buid = systemBuidOfPairRecord(*configuration)) {
            return buid;
        }
    }
    for (const auto& [udid, path] : recordsIn(m_ownFolder)) {
        if (const auto bytes = readSmallFile(path)) {
            if (auto buid = systemBuidOfPairRecord(*bytes)) {
                return buid;
            }
        }
    }
    return std::nullopt;
}

bool PairRecordStore::keepCopy(const std::string& udid, std::string_view record) {
    if (!isUdid(udid) || record.empty() || record.size() > kLargestRecord) {
        return false;
    }
    const std::lock_guard lock(m_mutex);
    const auto path = m_ownFolder / (udid + kRecordSuffix);
    // Every read of a phone on USB hands its record out again, nearly always unchanged: what
    // was written last is remembered, and the file is only looked for.
    struct stat info {};
    if (const auto kept = m_kept.find(udid); kept != m_kept.end() && kept->second == record &&
                                             ::lstat(path.c_str(), &info) == 0 &&
                                             S_ISREG(info.st_mode)) {
        return true;
    }
    if (!ensureOwnFolder()) {
        return false;
    }
    const auto existing = readSmallFile(path);
    if ((existing && *existing == record) || writePrivately(path, record)) {
        m_kept[udid] = std::string(record);
        return true;
    }
    return false;
}

std::map<std::string, std::string> PairRecordStore::readLearned() const {
    std::map<std::string, std::string> learned;
    const auto text = readSmallFile(m_ownFolder / kLearnedFile);
    if (!text) {
        return learned;
    }
    std::istringstream lines(*text);
    std::string mac;
    std::string udid;
    while (lines >> mac >> udid) {
        if (isUdid(udid)) {
            learned[lowerCase(mac)] = udid;
        }
    }
    return learned;
}

std::map<std::string, std::string> PairRecordStore::learnedMacs() const {
    const std::lock_guard lock(m_mutex);
    return readLearned();
}

void PairRecordStore::learnMac(const std::string& mac, const std::string& udid) {
    if (!isUdid(udid) || mac.empty() || mac.find_first_of(" \t\n") != std::string::npos) {
        return;
    }
    const std::lock_guard lock(m_mutex);
    auto learned = readLearned();
    const auto key = lowerCase(mac);
    if (learned[key] == udid || !ensureOwnFolder()) {
        return;
    }
    learned[key] = udid;
    std::string text;
    for (const auto& [address, phone] : learned) {
        text += address + " " + phone + "\n";
    }
    writePrivately(m_ownFolder / kLearnedFile, text);
}

} // namespace ambrel
