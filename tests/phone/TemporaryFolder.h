#pragma once

#include <filesystem>

namespace ambrel {

// A fresh folder under the system's temporary folder, removed with everything in it when the
// object goes away.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    const std::filesystem::path& path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

} // namespace ambrel
