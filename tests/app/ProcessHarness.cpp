#include "tests/app/ProcessHarness.h"

#include <fstream>
#include <iterator>

namespace ambrel::testing {

std::filesystem::path makeBundle(const std::filesystem::path& root) {
    return copyBuiltProgram(root).executable;
}

EnvironmentChanges privateSession(const std::filesystem::path& root,
                                  const EnvironmentChanges& changes) {
    std::filesystem::create_directories(root / "run");
    std::filesystem::create_directories(root / "tmp");
    std::filesystem::permissions(root / "run", std::filesystem::perms::owner_all);
    EnvironmentChanges environment{{"HOME", (root / "home").string()},
                                   {"XDG_CONFIG_HOME", (root / "config").string()},
                                   {"XDG_DATA_HOME", (root / "data").string()},
                                   {"XDG_RUNTIME_DIR", (root / "run").string()},
                                   {"TMPDIR", (root / "tmp").string()},
                                   {"WAYLAND_DISPLAY", std::nullopt}};
    for (const auto& [name, value] : changes) {
        environment[name] = value;
    }
    return environment;
}

std::string readText(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
}

void writeText(const std::filesystem::path& path, const std::string& text) {
    std::filesystem::create_directories(path.parent_path());
    std::ofstream stream(path, std::ios::binary | std::ios::trunc);
    stream << text;
}

PrivateBus::PrivateBus(const std::filesystem::path& folder, const std::string& type)
    : m_socket(folder / "bus_socket") {
    std::filesystem::create_directories(folder);
    const auto config = folder / "bus.conf";
    testing::writeText(
        config,
        "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
        " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
        "<busconfig>\n"
        "  <type>" +
            type + "</type>\n  <listen>unix:path=" + m_socket.string() +
            "</listen>\n"
            "  <auth>EXTERNAL</auth>\n"
            "  <policy context=\"default\">\n"
            "    <allow user=\"*\"/>\n"
            "    <allow own=\"*\"/>\n"
            "    <allow send_destination=\"*\"/>\n"
            "    <allow receive_sender=\"*\"/>\n"
            "  </policy>\n"
            "</busconfig>\n");
    // The daemon tells its address once it listens. Its socket file is there a moment before
    // (between bind and listen): a client that connects then is turned away, and Qt keeps a
    // session bus it could not reach for the rest of the process.
    ProcessOptions options;
    options.arguments = {"/usr/bin/dbus-daemon", "--nofork", "--nopidfile", "--print-address=1",
                         "--config-file=" + config.string()};
    options.output = OutputTo::pipe;
    options.error = OutputTo::file;
    m_daemon = std::make_unique<ChildProcess>(std::move(options));
    const auto address = m_daemon->readLine(testing::kPatience);
    m_ready = address && address->rfind("unix:", 0) == 0;
}

} // namespace ambrel::testing
