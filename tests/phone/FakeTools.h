#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "tests/fakes/TemporaryFolder.h"

namespace ambrel {

using testing::TemporaryFolder;

// A temporary "Runtime/bin" holding links to the fake idevice_id and ideviceinfo, with the
// scenario and log the fakes read and write named in this process's environment (so the tools
// the runner starts see them). One at a time per process.
class FakeTools {
public:
    FakeTools();
    ~FakeTools();
    FakeTools(const FakeTools&) = delete;
    FakeTools& operator=(const FakeTools&) = delete;

    // The tool folder, with a trailing slash as the program's own bundle gives it.
    std::filesystem::path toolDirectory() const;
    const std::filesystem::path& root() const { return m_folder.path(); }

    // Writes the scenario: an ordered list of rules (see the fixture's README).
    void setRules(const nlohmann::json& rules);

    // Every run so far, in order: the tool's name followed by its arguments.
    std::vector<std::vector<std::string>> commandLines() const;

private:
    TemporaryFolder m_folder;
    std::filesystem::path m_scenario;
    std::filesystem::path m_log;
    std::optional<std::string> m_previousScenario;
    std::optional<std::string> m_previousLog;
};

// Makes `root`/Runtime/bin with links to the fake idevice_id and ideviceinfo.
void linkFakeTools(const std::filesystem::path& root);

// A rule answering `tool` run with exactly `arguments`.
nlohmann::json answerRule(const std::string& tool, const std::vector<std::string>& arguments,
                          const std::string& standardOutput, const std::string& standardError = "",
                          int status = 0);

// The XML that `ideviceinfo -q com.apple.mobile.battery -x` prints, with the given property
// elements (for example "<key>BatteryCurrentCapacity</key><integer>87</integer>").
std::string batteryXml(const std::string& entries);

} // namespace ambrel
