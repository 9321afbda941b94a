#include "monitor/PrivateFile.h"

#include <cerrno>
#include <system_error>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ambrel::PrivateFile {

namespace {

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

} // namespace

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

std::optional<std::string> read(const std::filesystem::path& file, std::size_t limit) {
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
        if (bytes.size() > limit) {
            ::close(descriptor);
            return std::nullopt;
        }
    }
    ::close(descriptor);
    return bytes;
}

bool replace(const std::filesystem::path& file, const std::string& bytes, bool durable) {
    std::string temporary =
        (file.parent_path() / ("." + file.filename().string() + ".XXXXXX")).string();
    const int descriptor = ::mkostemp(temporary.data(), O_CLOEXEC);
    if (descriptor < 0) {
        return false;
    }
    const bool written = writeAll(descriptor, bytes) && (!durable || ::fsync(descriptor) == 0);
    // mkostemp's 0600 is cut by the umask, so the mode is set on the open file; the file thus has
    // it from the moment it takes the real name. A failure here keeps the new contents.
    ::fchmod(descriptor, 0600);
    if (::close(descriptor) != 0 || !written || ::rename(temporary.c_str(), file.c_str()) != 0) {
        ::unlink(temporary.c_str());
        return false;
    }
    return true;
}

} // namespace ambrel::PrivateFile
