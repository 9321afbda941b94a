#pragma once

#include <filesystem>
#include <map>
#include <string>

#include "tests/install/CommandResult.h"

namespace ambrel::installtest {

// A private copy of the program installed from the build tree with `cmake --install` into a
// fresh temporary prefix, with its own empty home, data, config and temporary folders so that
// running it touches nothing of the user's. Everything is removed when the tree goes.
class InstalledTree {
public:
    InstalledTree();
    ~InstalledTree();
    InstalledTree(const InstalledTree&) = delete;
    InstalledTree& operator=(const InstalledTree&) = delete;

    // The output of the install step; succeeded() tells whether the tree is usable.
    const CommandResult& installation() const { return m_installation; }

    const std::filesystem::path& root() const { return m_root; }
    const std::filesystem::path& prefix() const { return m_prefix; }
    std::filesystem::path program() const { return m_prefix / "bin" / "tovrin"; }
    std::filesystem::path resources() const { return m_prefix / "share" / "tovrin"; }
    std::filesystem::path configHome() const { return m_root / "config"; }
    std::filesystem::path dataHome() const { return m_root / "data"; }

    // Runs the installed program with the private folders and no usbmuxd to talk to.
    CommandResult runProgram(const std::vector<std::string>& arguments) const;

private:
    std::filesystem::path m_root;
    std::filesystem::path m_prefix;
    CommandResult m_installation;
};

// A fresh, empty folder under the temporary folder; the caller removes it.
std::filesystem::path makeTemporaryFolder(const std::string& stem);

// The whole file, or an empty string when it cannot be read.
std::string readText(const std::filesystem::path& path);

} // namespace ambrel::installtest
