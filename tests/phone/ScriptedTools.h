#pragma once

#include <filesystem>
#include <map>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "tests/fakes/FakeProcessLauncher.h"
#include "tests/fakes/TemporaryFolder.h"

namespace ambrel {

// The fake phone tools' scenario (the rules of tests/fixtures/fake-tools/README.md) played in
// this process by a fake launcher, so a reader test spawns nothing. The tool folder holds
// executable links, so the reader's tool check sees real files. Time is not spent either: an
// answer whose delays exceed the run's time limit comes back as stopped at the limit (by SIGTERM,
// or SIGKILL when it ignores SIGTERM), with its output only when it was written before the limit.
class ScriptedTools {
public:
    ScriptedTools();
    ScriptedTools(const ScriptedTools&) = delete;
    ScriptedTools& operator=(const ScriptedTools&) = delete;

    // The tool folder, with a trailing slash as the program's own bundle gives it.
    std::filesystem::path toolDirectory() const;
    const std::filesystem::path& root() const { return m_folder.path(); }
    ProcessLauncher& launcher() { return m_launcher; }

    // Replaces the scenario and forgets how often each rule answered.
    void setRules(const nlohmann::json& rules);

    // Every run so far, in order: the tool's name followed by its arguments.
    std::vector<std::vector<std::string>> commandLines() const;
    // The time limit of every run so far, in order.
    std::vector<std::chrono::milliseconds> timeLimits() const;

private:
    LaunchResult answer(const LaunchOptions& options);

    testing::TemporaryFolder m_folder;
    testing::FakeProcessLauncher m_launcher;
    nlohmann::json m_rules = nlohmann::json::array();
    std::map<std::size_t, std::size_t> m_uses;
};

} // namespace ambrel
