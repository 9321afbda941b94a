#include "tests/e2e/TestBundle.h"

#include "tests/fakes/ProgramBundle.h"

#include <cstdlib>
#include <system_error>

namespace ambrel::testing {

namespace fs = std::filesystem;

TestBundle::TestBundle(const fs::path& root, Tools tools)
    : m_root(root), m_executable(root / "bin" / "tovrin"), m_home(root / "home"),
      m_dataHome(root / "data"), m_configHome(root / "config"), m_runtime(root / "runtime") {
    const auto bundle = copyBuiltProgram(root);
    if (!bundle.failure.empty()) {
        m_failure = bundle.failure;
        return;
    }
    std::error_code error;
    for (const auto& folder : {m_home, m_dataHome, m_configHome, m_runtime}) {
        fs::create_directories(folder, error);
    }
    fs::permissions(m_runtime, fs::perms::owner_all, error);
    if (tools == Tools::missing) {
        return;
    }
    const std::pair<const char*, const char*> links[] = {{"idevice_id", TOVRIN_REAL_IDEVICE_ID},
                                                         {"ideviceinfo", TOVRIN_REAL_IDEVICEINFO}};
    for (const auto& [name, target] : links) {
        fs::create_symlink(target, bundle.toolFolder / name, error);
        if (error || !fs::exists(bundle.toolFolder / name)) {
            m_failure = std::string("cannot link the real ") + name + " (" + target + ")";
            return;
        }
    }
}

std::vector<std::string> TestBundle::environment(const std::string& socketAddress,
                                                 const std::string& display) const {
    EnvironmentChanges changes = {
        {"USBMUXD_SOCKET_ADDRESS", socketAddress},
        {"HOME", m_home.string()},
        {"XDG_DATA_HOME", m_dataHome.string()},
        {"XDG_CONFIG_HOME", m_configHome.string()},
        {"XDG_RUNTIME_DIR", m_runtime.string()},
        {"WAYLAND_DISPLAY", std::nullopt},
        {"DBUS_SESSION_BUS_ADDRESS", std::nullopt},
        {"LANG", "en_US.UTF-8"},
        {"LC_ALL", std::nullopt},
    };
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
