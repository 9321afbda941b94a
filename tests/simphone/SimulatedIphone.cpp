#include "tests/simphone/SimulatedIphone.h"

#include <fstream>
#include <sstream>
#include <thread>

#include <signal.h>

namespace ambrel::testing {

namespace {

// Python starts in about 50 ms; a loaded CI machine gets a wide margin.
constexpr std::chrono::seconds kStartLimit{10};
// The service handles a signal between two of its own steps: at once on an idle machine.
constexpr std::chrono::seconds kUnplugLimit{10};

std::string readFile(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

} // namespace

SimulatedIphone::SimulatedIphone(const std::filesystem::path& folder,
                                 const nlohmann::json& scenario, std::chrono::seconds lifetime)
    : m_folder(folder), m_socket(folder / "usbmuxd.sock"), m_statsFile(folder / "simphone.json"),
      m_logFile(folder / "simphone.log") {
    const auto scenarioFile = folder / "scenario.json";
    {
        std::ofstream stream(scenarioFile, std::ios::binary | std::ios::trunc);
        stream << scenario.dump(1);
        if (!stream) {
            m_failure = "cannot write " + scenarioFile.string();
            return;
        }
    }
    m_process = std::make_unique<ChildProcess>(
        std::vector<std::string>{TOVRIN_PYTHON, TOVRIN_SIMPHONE_SCRIPT, "--scenario",
                                 scenarioFile.string(), "--socket", m_socket.string(), "--stats",
                                 m_statsFile.string(), "--lifetime",
                                 std::to_string(lifetime.count())},
        environmentWith({}), m_logFile);
    if (!m_process->isStarted()) {
        m_failure = std::string("cannot start ") + TOVRIN_PYTHON;
        return;
    }
    const auto line = m_process->readLine(kStartLimit);
    if (!line) {
        m_failure = "the simulated iPhone did not report ready";
        return;
    }
    m_readyLine = nlohmann::json::parse(*line, nullptr, false);
    m_ready = m_readyLine.is_object() && m_readyLine.value("ready", false);
    if (!m_ready) {
        m_failure = "unexpected first line from the simulated iPhone: " + *line;
    }
}

SimulatedIphone::~SimulatedIphone() {
    stop();
}

std::string SimulatedIphone::failure() const {
    return m_failure + "\n" + readFile(m_logFile);
}

std::string SimulatedIphone::addressOf(const std::string& udid) const {
    if (!m_readyLine.is_object() || !m_readyLine.contains("addresses")) {
        return {};
    }
    return m_readyLine["addresses"].value(udid, std::string());
}

nlohmann::json SimulatedIphone::stats() const {
    auto json = nlohmann::json::parse(readFile(m_statsFile), nullptr, false);
    return json.is_object() ? json : nlohmann::json::object();
}

int SimulatedIphone::connectionsTo(const std::string& udid) const {
    const auto json = stats();
    if (!json.contains("devices") || !json["devices"].contains(udid)) {
        return 0;
    }
    return json["devices"][udid].value("connections", 0);
}

bool SimulatedIphone::unplug() {
    if (!m_process || !m_process->isStarted() || ::kill(m_process->pid(), SIGUSR1) != 0) {
        return false;
    }
    const auto limit = std::chrono::steady_clock::now() + kUnplugLimit;
    while (std::chrono::steady_clock::now() < limit) {
        if (stats().value("unplugged", false)) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

bool SimulatedIphone::setWifiAsleep(bool asleep) {
    if (!m_process || !m_process->isStarted() || ::kill(m_process->pid(), SIGUSR2) != 0) {
        return false;
    }
    const auto limit = std::chrono::steady_clock::now() + kUnplugLimit;
    while (std::chrono::steady_clock::now() < limit) {
        const auto json = stats();
        const auto devices = json.value("devices", nlohmann::json::object());
        bool settled = !devices.empty();
        for (const auto& [udid, device] : devices.items()) {
            if (device.value("wifiAsleep", asleep) != asleep) {
                settled = false;
            }
        }
        if (settled) {
            return true;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
}

void SimulatedIphone::stop() {
    if (m_process) {
        m_process->stop();
    }
}

} // namespace ambrel::testing
