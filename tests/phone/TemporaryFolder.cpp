#include "tests/phone/TemporaryFolder.h"

#include <cstdlib>
#include <string>
#include <system_error>

namespace ambrel {

TemporaryFolder::TemporaryFolder() {
    std::string pattern = (std::filesystem::temp_directory_path() / "tovrin-phone-XXXXXX").string();
    if (::mkdtemp(pattern.data()) == nullptr) {
        std::abort();
    }
    m_path = pattern;
}

TemporaryFolder::~TemporaryFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
}

} // namespace ambrel
