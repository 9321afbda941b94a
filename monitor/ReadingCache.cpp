#include "monitor/ReadingCache.h"

#include <chrono>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

#include "monitor/PrivateFile.h"

namespace ambrel::ReadingCache {

namespace {

// The cache file is a few hundred bytes; anything much larger is not ours.
constexpr std::size_t kMaxCacheSize = 64 * 1024;

// A save cut short by a crash or a kill leaves its temporary file behind. Those older than a
// minute cannot belong to a save in progress (a save takes milliseconds) and are removed.
void removeAbandonedTemporaries(const std::filesystem::path& folder, const std::string& prefix) {
    constexpr auto kAbandonedAfter = std::chrono::minutes(1);
    std::error_code error;
    const auto now = std::filesystem::file_time_type::clock::now();
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
        const std::string name = entry.path().filename().string();
        if (name.size() != prefix.size() + 6 || !name.starts_with(prefix)) {
            continue;
        }
        std::error_code entryError;
        const auto modified = entry.last_write_time(entryError);
        if (!entryError && entry.is_regular_file(entryError) && now - modified > kAbandonedAfter) {
            ::unlink(entry.path().c_str());
        }
    }
}

} // namespace

void save(const std::filesystem::path& file, const BatteryDeviceSnapshot& snapshot) {
    const std::string bytes = snapshot.encodeJson();
    const auto folder = file.parent_path();
    if (!PrivateFile::makeFolders(folder) || !PrivateFile::replace(file, bytes, true)) {
        return;
    }
    // The rename is made durable by syncing the folder; failure here loses nothing already
    // written.
    const int folderDescriptor =
        ::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (folderDescriptor >= 0) {
        ::fsync(folderDescriptor);
        ::close(folderDescriptor);
    }
    removeAbandonedTemporaries(folder.empty() ? "." : folder, "." + file.filename().string() + ".");
}

std::optional<BatteryDeviceSnapshot> load(const std::filesystem::path& file, Date now) {
    const auto bytes = PrivateFile::read(file, kMaxCacheSize);
    if (!bytes) {
        return std::nullopt;
    }
    auto snapshot = BatteryDeviceSnapshot::decodeJson(*bytes);
    if (!snapshot || snapshot->id() != "iphone" || snapshot->percentage() < 0 ||
        snapshot->percentage() > 100 ||
        snapshot->lastUpdated() > now.addingSeconds(kFutureTolerance)) {
        return std::nullopt;
    }
    return snapshot;
}

} // namespace ambrel::ReadingCache
