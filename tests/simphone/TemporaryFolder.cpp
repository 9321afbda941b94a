#include "tests/simphone/TemporaryFolder.h"

#include <cstdlib>
#include <string>
#include <system_error>

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
    std::string pattern = (baseFolder() / "tovrin-e2e-XXXXXX").string();
    if (::mkdtemp(pattern.data()) != nullptr) {
        m_path = pattern;
    }
}

TemporaryFolder::~TemporaryFolder() {
    if (!m_path.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
}

} // namespace ambrel::testing
