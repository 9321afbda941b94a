#include "tests/e2e/TestBundle.h"

#include "tests/fakes/ProgramBundle.h"

#include <cstdlib>
#include <system_error>

namespace ambrel::testing {

namespace fs = std::filesystem;

TestBundle::TestBundle(const fs::path& root, Tools tools)
    : m_root(root), m_executable(root / "bin" / "tovrin"), m_folders(root) {
    const auto bundle = copyBuiltProgram(root);
    if (!bundle.failure.empty()) {
        m_failure = bundle.failure;
        return;
    }
    m_folders.create();
    m_toolFolder = bundle.toolFolder;
    if (tools == Tools::missing) {
        return;
    }
    const std::pair<const char*, const char*> links[] = {{"idevice_id", TOVRIN_REAL_IDEVICE_ID},
                                                         {"ideviceinfo", TOVRIN_REAL_IDEVICEINFO}};
    std::error_code error;
    for (const auto& [name, target] : links) {
        fs::create_symlink(target, bundle.toolFolder / name, error);
        if (error || !fs::exists(bundle.toolFolder / name)) {
            m_failure = std::string("cannot link the real ") + name + " (" + target + ")";
            return;
        }
    }
}

bool TestBundle::linkDiagnostics() {
    const auto target = fs::path(TOVRIN_REAL_IDEVICEINFO).parent_path() / "idevicediagnostics";
    std::error_code error;
    fs::create_symlink(target, m_toolFolder / "idevicediagnostics", error);
    return !error && fs::exists(m_toolFolder / "idevicediagnostics");
}

std::vector<std::string> TestBundle::environment(const std::string& socketAddress,
                                                 const std::string& display) const {
    auto changes = m_folders.environment();
    changes["USBMUXD_SOCKET_ADDRESS"] = socketAddress;
    if (isThroughProgramsMuxer() && socketAddress.rfind("UNIX:", 0) == 0) {
        // The program starts its own muxer, with the simulated phone as the system's, and no
        // avahi-daemon: USB as the program passes it through.
        changes["USBMUXD_SOCKET_ADDRESS"] = std::nullopt;
        changes["TOVRIN_SYSTEM_USBMUXD"] = socketAddress.substr(5);
        changes["DBUS_SYSTEM_BUS_ADDRESS"] = "unix:path=" + (m_root / "no-system-bus").string();
    }
    if (display.empty()) {
        changes["DISPLAY"] = std::nullopt;
        changes["QT_QPA_PLATFORM"] = "offscreen";
    } else {
        changes["DISPLAY"] = display;
        changes["QT_QPA_PLATFORM"] = "xcb";
    }
    return environmentWith(changes);
}

bool TestBundle::isThroughProgramsMuxer() {
    const char* wanted = std::getenv("TOVRIN_E2E_THROUGH_MUXER");
    return wanted != nullptr && std::string(wanted) == "1";
}

ProcessOutcome TestBundle::run(const std::vector<std::string>& arguments,
                               const std::string& socketAddress,
                               std::chrono::duration<double> limit) const {
    std::vector<std::string> command{m_executable.string()};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return runProcess(command, environment(socketAddress), limit);
}

} // namespace ambrel::testing
