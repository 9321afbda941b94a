#include "tests/fakes/TemporaryFolder.h"

#include <cstdlib>
#include <string>
#include <system_error>

#include <sys/stat.h>

namespace ambrel::testing {

namespace {

// Long enough for a socket name and the files beside it.
constexpr std::size_t kMaxBaseLength = 60;

std::filesystem::path baseFolder() {
    const char* tmpdir = std::getenv("TMPDIR");
    if (tmpdir != nullptr && *tmpdir == '/' && std::string(tmpdir).size() <= kMaxBaseLength) {
        return tmpdir;
    }
    return "/tmp";
}

} // namespace

TemporaryFolder::TemporaryFolder() {
    std::string pattern = (baseFolder() / "tovrin-test-XXXXXX").string();
    if (::mkdtemp(pattern.data()) != nullptr) {
        m_path = pattern;
    }
}

TemporaryFolder::~TemporaryFolder() {
    if (m_path.empty()) {
        return;
    }
    std::error_code error;
    for (auto it = std::filesystem::recursive_directory_iterator(
             m_path, std::filesystem::directory_options::skip_permission_denied, error);
         !error && it != std::filesystem::recursive_directory_iterator(); it.increment(error)) {
        if (it->is_directory(error) && !it->is_symlink(error)) {
            ::chmod(it->path().c_str(), 0700);
        }
    }
    std::filesystem::remove_all(m_path, error);
}

} // namespace ambrel::testing
