#pragma once

#include <chrono>
#include <filesystem>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace ambrel::installtest {

// What one finished (or abandoned) run of an external program left behind.
struct CommandResult {
    bool started = false;
    // False when the program was still running at the time limit and was killed.
    bool finished = false;
    int exitCode = -1;
    std::string standardOutput;
    std::string standardError;

    bool succeeded() const { return started && finished && exitCode == 0; }
    // Both streams with the exit code, for failure messages.
    std::string describe() const;
};

struct CommandOptions {
    // Added to (or replacing in) the test's own environment.
    std::map<std::string, std::string> environment;
    // Removed from the environment passed on.
    std::vector<std::string> unset;
    std::optional<std::filesystem::path> workingDirectory;
    std::chrono::milliseconds timeLimit{60000};
};

// Runs `program` with `arguments` (no shell), standard input closed, and waits for it.
CommandResult runCommand(const std::string& program, const std::vector<std::string>& arguments,
                         const CommandOptions& options = {});

// The program's path when it is on PATH.
std::optional<std::filesystem::path> findOnPath(const std::string& program);

} // namespace ambrel::installtest
