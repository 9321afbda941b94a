#include "tests/app/MutterHarness.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace ambrel::testing {

namespace {

// Once mutter has its Xwayland up it runs this: open the display to the user's own programs
// (the tests' tools do not have mutter's cookie), tell the display, then keep the session.
constexpr const char* kSessionScript = "xhost \"+si:localuser:$(id -un)\" >/dev/null && echo "
                                       "\"display $DISPLAY\" && exec sleep infinity";

} // namespace

MutterSession::MutterSession(const std::filesystem::path& folder) : m_bus(folder, "session") {
    if (!m_bus.isReady()) {
        return;
    }
    const auto runtime = folder / "mutter-runtime";
    std::filesystem::create_directories(runtime);
    std::filesystem::permissions(runtime, std::filesystem::perms::owner_all);
    std::filesystem::create_directories(folder / "mutter-home");
    ProcessOptions options;
    options.arguments = {"/usr/bin/mutter",   "--wayland", "--headless",
                         "--virtual-monitor", "1440x900",  "--",
                         "/bin/sh",           "-c",        kSessionScript};
    options.environment = environmentWith({{"DISPLAY", std::nullopt},
                                           {"WAYLAND_DISPLAY", std::nullopt},
                                           {"XAUTHORITY", std::nullopt},
                                           {"XDG_RUNTIME_DIR", runtime.string()},
                                           {"HOME", (folder / "mutter-home").string()},
                                           {"XDG_CONFIG_HOME", (folder / "mutter-home").string()},
                                           {"GSETTINGS_BACKEND", "memory"},
                                           {"DBUS_SESSION_BUS_ADDRESS", m_bus.address()},
                                           {"DBUS_SYSTEM_BUS_ADDRESS", kNoBus}});
    options.output = OutputTo::pipe;
    options.error = OutputTo::file;
    m_process = std::make_unique<ChildProcess>(std::move(options));
    // Starting a compositor and its X server on a loaded machine may take a while.
    while (const auto line = m_process->readLine(kPatience)) {
        if (line->rfind("display ", 0) == 0) {
            m_display = line->substr(8);
            break;
        }
    }
}

MutterSession::~MutterSession() = default;

std::string MutterSession::errorOutput() const {
    return m_process ? m_process->errorOutput() : "its session bus did not start";
}

MutterPointer::MutterPointer(const MutterSession& session, const std::filesystem::path& folder)
    : m_steps(folder / "pointer-steps") {
    if (::mkfifo(m_steps.c_str(), 0600) != 0) {
        return;
    }
    // Read and write: opening never waits for the other side, and the pipe stays open between
    // steps.
    m_stepsFd = ::open(m_steps.c_str(), O_RDWR | O_CLOEXEC);
    ProcessOptions options;
    options.arguments = {
        (std::filesystem::path(TOVRIN_BINARY_DIR) / "tests" / "tovrin_test_mutter_pointer")
            .string(),
        m_steps.string()};
    options.environment = environmentWith({{"DBUS_SESSION_BUS_ADDRESS", session.busAddress()}});
    options.output = OutputTo::pipe;
    options.error = OutputTo::file;
    m_process = std::make_unique<ChildProcess>(std::move(options));
}

MutterPointer::~MutterPointer() {
    if (m_stepsFd >= 0) {
        ::close(m_stepsFd);
    }
}

bool MutterPointer::moveTo(int x, int y) {
    return step("to " + std::to_string(x) + " " + std::to_string(y));
}

bool MutterPointer::press() {
    return step("down");
}

bool MutterPointer::release() {
    return step("up");
}

bool MutterPointer::step(const std::string& line) {
    if (m_stepsFd < 0 || !m_process || !m_process->isStarted()) {
        m_lastAnswer = "the pointer helper did not start";
        return false;
    }
    const std::string text = line + "\n";
    if (::write(m_stepsFd, text.data(), text.size()) != static_cast<ssize_t>(text.size())) {
        m_lastAnswer = "could not write the step";
        return false;
    }
    const auto answer = m_process->readLine(kPatience);
    m_lastAnswer = answer.value_or("no answer; " + m_process->errorOutput());
    return answer == "ok";
}

} // namespace ambrel::testing
