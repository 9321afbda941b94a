#pragma once

#include <filesystem>

namespace ambrel::testing {

// A fresh folder under $TMPDIR (or /tmp), removed with everything in it when the object goes.
// Its path stays short so that a UNIX socket inside it fits the 108-byte address limit.
// Folders a test left without permissions are opened up first so that they can be removed.
class TemporaryFolder {
public:
    TemporaryFolder();
    ~TemporaryFolder();
    TemporaryFolder(const TemporaryFolder&) = delete;
    TemporaryFolder& operator=(const TemporaryFolder&) = delete;

    // Empty when the folder could not be made.
    const std::filesystem::path& path() const { return m_path; }

private:
    std::filesystem::path m_path;
};

} // namespace ambrel::testing
