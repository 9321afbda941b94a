#include "tests/fakes/ThreadActivity.h"

#include <filesystem>
#include <fstream>
#include <sstream>

namespace ambrel::testing {

namespace {

std::filesystem::path taskFolder(pid_t thread) {
    return std::filesystem::path("/proc/self/task") / std::to_string(thread);
}

std::string firstLine(const std::filesystem::path& file) {
    std::ifstream in(file);
    std::string line;
    std::getline(in, line);
    return line;
}

} // namespace

std::vector<pid_t> ThreadActivity::threads() {
    std::vector<pid_t> all;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task", error)) {
        all.push_back(static_cast<pid_t>(std::stol(entry.path().filename().string())));
    }
    return all;
}

std::vector<pid_t> ThreadActivity::threadsNamed(const std::string& name) {
    std::vector<pid_t> named;
    for (const pid_t thread : threads()) {
        if (firstLine(taskFolder(thread) / "comm") == name) {
            named.push_back(thread);
        }
    }
    return named;
}

std::optional<long> ThreadActivity::voluntarySwitches(pid_t thread) {
    std::ifstream in(taskFolder(thread) / "status");
    std::string line;
    const std::string key = "voluntary_ctxt_switches:";
    while (std::getline(in, line)) {
        if (line.rfind(key, 0) == 0) {
            return std::stol(line.substr(key.size()));
        }
    }
    return std::nullopt;
}

bool ThreadActivity::isAsleep(pid_t thread) {
    // The state follows the name, which is in parentheses and may itself hold spaces.
    const std::string stat = firstLine(taskFolder(thread) / "stat");
    const auto close = stat.rfind(')');
    return close != std::string::npos && close + 2 < stat.size() && stat[close + 2] == 'S';
}

} // namespace ambrel::testing
