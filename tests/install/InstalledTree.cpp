#include "tests/install/InstalledTree.h"

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <system_error>
#include <vector>

namespace ambrel::installtest {

std::filesystem::path makeTemporaryFolder(const std::string& stem) {
    std::string pattern = (std::filesystem::temp_directory_path() / (stem + "-XXXXXX")).string();
    std::vector<char> buffer(pattern.begin(), pattern.end());
    buffer.push_back('\0');
    if (::mkdtemp(buffer.data()) == nullptr) {
        return {};
    }
    return std::filesystem::path(buffer.data());
}

std::string readText(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    return std::string{std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

InstalledTree::InstalledTree() : m_root(makeTemporaryFolder("tovrin-install")) {
    if (m_root.empty()) {
        return;
    }
    m_prefix = m_root / "prefix";
    for (const auto* folder : {"home", "config", "data", "tmp"}) {
        std::filesystem::create_directories(m_root / folder);
    }
    m_installation = runCommand(TOVRIN_CMAKE_COMMAND,
                                {"--install", TOVRIN_BINARY_DIR, "--prefix", m_prefix.string()});
}

InstalledTree::~InstalledTree() {
    if (!m_root.empty()) {
        std::error_code ignored;
        std::filesystem::remove_all(m_root, ignored);
    }
}

CommandResult InstalledTree::runProgram(const std::vector<std::string>& arguments) const {
    CommandOptions options;
    // The temporary folder is the tree's own, beside (not above) the prefix: a copy inside the
    // temporary folder could not be started at login.
    options.environment = {
        {"HOME", (m_root / "home").string()},
        {"XDG_CONFIG_HOME", configHome().string()},
        {"XDG_DATA_HOME", dataHome().string()},
        {"TMPDIR", (m_root / "tmp").string()},
        {"USBMUXD_SOCKET_ADDRESS", "UNIX:" + (m_root / "no-usbmuxd").string()},
        {"QT_QPA_PLATFORM", "offscreen"},
    };
    options.workingDirectory = m_root;
    return runCommand(program().string(), arguments, options);
}

} // namespace ambrel::installtest
