#include "tests/install/CommandResult.h"

#include "tests/fakes/ChildProcess.h"

#include <QStandardPaths>
#include <QString>

namespace ambrel::installtest {

std::string CommandResult::describe() const {
    if (!started) {
        return "the program did not start";
    }
    std::string text =
        finished ? "exit code " + std::to_string(exitCode) : "killed at the time limit";
    text += "\n--- standard output ---\n" + standardOutput;
    text += "\n--- standard error ---\n" + standardError;
    return text;
}

CommandResult runCommand(const std::string& program, const std::vector<std::string>& arguments,
                         const CommandOptions& options) {
    CommandResult result;
    std::filesystem::path path = program;
    if (path.is_relative()) {
        const auto found = findOnPath(program);
        if (!found) {
            return result;
        }
        path = *found;
    }
    testing::EnvironmentChanges changes;
    for (const auto& name : options.unset) {
        changes[name] = std::nullopt;
    }
    for (const auto& [name, value] : options.environment) {
        changes[name] = value;
    }
    testing::ProcessOptions run;
    run.arguments = {path.string()};
    run.arguments.insert(run.arguments.end(), arguments.begin(), arguments.end());
    run.environment = testing::environmentWith(changes);
    run.workingDirectory = options.workingDirectory.value_or(std::filesystem::path());
    const auto outcome = testing::runToEnd(std::move(run), options.timeLimit);
    result.started = outcome.started;
    result.finished = outcome.started && !outcome.timedOut;
    result.exitCode = outcome.exitCode;
    result.standardOutput = outcome.out;
    result.standardError = outcome.err;
    return result;
}

std::optional<std::filesystem::path> findOnPath(const std::string& program) {
    const auto found = QStandardPaths::findExecutable(QString::fromStdString(program));
    if (found.isEmpty()) {
        return std::nullopt;
    }
    return std::filesystem::path(found.toStdString());
}

} // namespace ambrel::installtest
