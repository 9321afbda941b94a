#include "tests/phone/ScriptedTools.h"

#include <algorithm>
#include <csignal>
#include <cstdlib>

#include "tests/phone/FakeTools.h"

namespace ambrel {

namespace {

bool matches(const nlohmann::json& rule, const std::string& tool,
             const std::vector<std::string>& arguments) {
    const auto wantedTool = rule.value("tool", std::string("*"));
    if (wantedTool != "*" && wantedTool != tool) {
        return false;
    }
    if (rule.contains("args")) {
        const auto& wanted = rule.at("args");
        return wanted == "*" || wanted.get<std::vector<std::string>>() == arguments;
    }
    if (rule.contains("argsPrefix")) {
        const auto prefix = rule.at("argsPrefix").get<std::vector<std::string>>();
        return arguments.size() >= prefix.size() &&
               std::equal(prefix.begin(), prefix.end(), arguments.begin());
    }
    return true;
}

std::string fromHex(const std::string& hex) {
    std::string bytes;
    for (std::size_t index = 0; index + 1 < hex.size(); index += 2) {
        bytes.push_back(static_cast<char>(std::strtol(hex.substr(index, 2).c_str(), nullptr, 16)));
    }
    return bytes;
}

std::chrono::milliseconds secondsOf(const nlohmann::json& answer, const char* key) {
    return std::chrono::milliseconds(static_cast<std::int64_t>(answer.value(key, 0.0) * 1000.0));
}

} // namespace

ScriptedTools::ScriptedTools() {
    linkFakeTools(m_folder.path());
    m_launcher.setResponder([this](const LaunchOptions& options) { return answer(options); });
}

std::filesystem::path ScriptedTools::toolDirectory() const {
    return m_folder.path() / "Runtime" / "bin" / "";
}

void ScriptedTools::setRules(const nlohmann::json& rules) {
    m_rules = rules;
    m_uses.clear();
}

std::vector<std::vector<std::string>> ScriptedTools::commandLines() const {
    std::vector<std::vector<std::string>> lines;
    for (const auto& launch : m_launcher.launches()) {
        std::vector<std::string> line{launch.program.filename().string()};
        line.insert(line.end(), launch.arguments.begin(), launch.arguments.end());
        lines.push_back(std::move(line));
    }
    return lines;
}

std::vector<std::chrono::milliseconds> ScriptedTools::timeLimits() const {
    std::vector<std::chrono::milliseconds> limits;
    for (const auto& launch : m_launcher.launches()) {
        limits.push_back(launch.timeLimit);
    }
    return limits;
}

LaunchResult ScriptedTools::answer(const LaunchOptions& options) {
    const auto tool = options.program.filename().string();
    std::size_t index = 0;
    while (index < m_rules.size() && !matches(m_rules[index], tool, options.arguments)) {
        ++index;
    }
    if (index == m_rules.size()) {
        std::string line = "fake_tool: no rule for " + tool;
        for (const auto& argument : options.arguments) {
            line += " " + argument;
        }
        return testing::exitedWith(1, "", line + "\n");
    }
    const auto& rule = m_rules[index];
    const std::size_t used = m_uses[index]++;
    const auto& answer = rule.contains("answers") && !rule.at("answers").empty()
                             ? rule.at("answers").at(std::min(used, rule.at("answers").size() - 1))
                             : rule;

    const auto delay = secondsOf(answer, "delay");
    const auto delayAfter = secondsOf(answer, "delayAfter");
    auto standardOutput = answer.contains("stdoutHex")
                              ? fromHex(answer.at("stdoutHex").get<std::string>())
                              : answer.value("stdout", std::string());
    auto standardError = answer.value("stderr", std::string());
    standardOutput.resize(std::min(standardOutput.size(), options.outputCap));
    standardError.resize(std::min(standardError.size(), options.outputCap));
    if (delay + delayAfter <= options.timeLimit) {
        return testing::exitedWith(answer.value("status", 0), std::move(standardOutput),
                                   std::move(standardError));
    }
    LaunchResult stopped;
    stopped.end = LaunchEnd::killedAtTimeLimit;
    stopped.signal = answer.value("ignoreTerm", false) ? SIGKILL : SIGTERM;
    if (delay < options.timeLimit) {
        stopped.standardOutput = std::move(standardOutput);
        stopped.standardError = std::move(standardError);
    }
    return stopped;
}

} // namespace ambrel
