#include "tests/phone/FakeTools.h"

#include <cstdlib>
#include <fstream>
#include <sstream>

namespace ambrel {

namespace {

std::optional<std::string> environmentValue(const char* name) {
    const char* value = std::getenv(name);
    return value ? std::optional<std::string>(value) : std::nullopt;
}

void restoreEnvironment(const char* name, const std::optional<std::string>& value) {
    if (value) {
        ::setenv(name, value->c_str(), 1);
    } else {
        ::unsetenv(name);
    }
}

} // namespace

FakeTools::FakeTools() {
    linkFakeTools(m_folder.path());
    m_scenario = m_folder.path() / "scenario.json";
    m_log = m_folder.path() / "runs.log";
    setRules(nlohmann::json::array());
    m_previousScenario = environmentValue("TOVRIN_FAKE_SCENARIO");
    m_previousLog = environmentValue("TOVRIN_FAKE_LOG");
    ::setenv("TOVRIN_FAKE_SCENARIO", m_scenario.c_str(), 1);
    ::setenv("TOVRIN_FAKE_LOG", m_log.c_str(), 1);
}

FakeTools::~FakeTools() {
    restoreEnvironment("TOVRIN_FAKE_SCENARIO", m_previousScenario);
    restoreEnvironment("TOVRIN_FAKE_LOG", m_previousLog);
}

std::filesystem::path FakeTools::toolDirectory() const {
    return m_folder.path() / "Runtime" / "bin" / "";
}

void FakeTools::setRules(const nlohmann::json& rules) {
    std::ofstream(m_scenario) << nlohmann::json{{"rules", rules}}.dump();
}

std::vector<std::vector<std::string>> FakeTools::commandLines() const {
    std::vector<std::vector<std::string>> lines;
    std::ifstream log(m_log);
    std::string line;
    while (std::getline(log, line)) {
        const auto entry = nlohmann::json::parse(line);
        std::vector<std::string> command{entry.at("tool").get<std::string>()};
        for (const auto& argument : entry.at("args")) {
            command.push_back(argument.get<std::string>());
        }
        lines.push_back(std::move(command));
    }
    return lines;
}

void linkFakeTools(const std::filesystem::path& root) {
    const auto bin = root / "Runtime" / "bin";
    std::filesystem::create_directories(bin);
    const auto fixture = std::filesystem::path(TOVRIN_FIXTURES_DIR) / "fake-tools";
    std::filesystem::create_symlink(fixture / "idevice_id", bin / "idevice_id");
    std::filesystem::create_symlink(fixture / "ideviceinfo", bin / "ideviceinfo");
}

nlohmann::json answerRule(const std::string& tool, const std::vector<std::string>& arguments,
                          const std::string& standardOutput, const std::string& standardError,
                          int status) {
    return nlohmann::json{{"tool", tool},
                          {"args", arguments},
                          {"stdout", standardOutput},
                          {"stderr", standardError},
                          {"status", status}};
}

std::string batteryXml(const std::string& entries) {
    std::ostringstream xml;
    xml << "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
        << "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
        << "<plist version=\"1.0\">\n<dict>\n"
        << entries << "\n</dict>\n</plist>\n";
    return xml.str();
}

} // namespace ambrel
