#include "monitor/ReadingCache.h"

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ambrel::ReadingCache {

namespace {

// The cache file is a few hundred bytes; anything much larger is not ours.
constexpr std::size_t kMaxCacheSize = 64 * 1024;

// Makes every missing folder of `folder` with mode 0700. The mode is set again after mkdir
// because the umask may have taken the owner's own bits away. Existing folders, including one
// that another process makes meanwhile, are left as they are.
bool makeFolders(const std::filesystem::path& folder) {
    if (folder.empty()) {
        return true;
    }
    std::error_code error;
    if (std::filesystem::is_directory(folder, error)) {
        return true;
    }
    if (folder.has_parent_path() && folder.parent_path() != folder &&
        !makeFolders(folder.parent_path())) {
        return false;
    }
    if (::mkdir(folder.c_str(), 0700) == 0) {
        ::chmod(folder.c_str(), 0700);
        return true;
    }
    return errno == EEXIST && std::filesystem::is_directory(folder, error);
}

bool writeAll(int descriptor, const std::string& bytes) {
    std::size_t written = 0;
    while (written < bytes.size()) {
        const ssize_t result = ::write(descriptor, bytes.data() + written, bytes.size() - written);
        if (result < 0) {
            if (errno == EINTR) {
                continue;
            }
            return false;
        }
        written += static_cast<std::size_t>(result);
    }
    return true;
}

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

std::optional<std::string> readAll(const std::filesystem::path& file) {
    // Non-blocking so that a pipe or device put in the file's place cannot hang the launch; it is
    // then refused as not a regular file.
    const int descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor < 0) {
        return std::nullopt;
    }
    struct stat status {};
    if (::fstat(descriptor, &status) != 0 || !S_ISREG(status.st_mode)) {
        ::close(descriptor);
        return std::nullopt;
    }
    std::string bytes;
    char buffer[4096];
    while (true) {
        const ssize_t result = ::read(descriptor, buffer, sizeof buffer);
        if (result < 0 && errno == EINTR) {
            continue;
        }
        if (result < 0) {
            ::close(descriptor);
            return std::nullopt;
        }
        if (result == 0) {
            break;
        }
        bytes.append(buffer, static_cast<std::size_t>(result));
        if (bytes.size() > kMaxCacheSize) {
            ::close(descriptor);
            return std::nullopt;
        }
    }
    ::close(descriptor);
    return bytes;
}

} // namespace

void save(const std::filesystem::path& file, const BatteryDeviceSnapshot& snapshot) {
    const std::string bytes = snapshot.encodeJson();
    const auto folder = file.parent_path();
    if (!makeFolders(folder)) {
        return;
    }
    const std::string temporaryPrefix = "." + file.filename().string() + ".";
    std::string temporary = (folder / (temporaryPrefix + "XXXXXX")).string();
    const int descriptor = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (descriptor < 0) {
        return;
    }
    const bool written = writeAll(descriptor, bytes) && ::fsync(descriptor) == 0;
    // mkostemp's 0600 is cut by the umask, so the mode is set on the open file; the file thus has
    // it from the moment it takes the real name. A failure here keeps the new contents.
    ::fchmod(descriptor, 0600);
    if (::close(descriptor) != 0 || !written || ::rename(temporary.c_str(), file.c_str()) != 0) {
        ::unlink(temporary.c_str());
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
    removeAbandonedTemporaries(folder.empty() ? "." : folder, temporaryPrefix);
}

std::optional<BatteryDeviceSnapshot> load(const std::filesystem::path& file, Date now) {
    const auto bytes = readAll(file);
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
