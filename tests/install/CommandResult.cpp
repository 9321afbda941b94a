#include "tests/install/CommandResult.h"

#include <QProcess>
#include <QProcessEnvironment>
#include <QStandardPaths>
#include <QString>
#include <QStringList>

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
    QProcess process;
    QStringList list;
    for (const auto& argument : arguments) {
        list << QString::fromStdString(argument);
    }
    auto environment = QProcessEnvironment::systemEnvironment();
    for (const auto& name : options.unset) {
        environment.remove(QString::fromStdString(name));
    }
    for (const auto& [name, value] : options.environment) {
        environment.insert(QString::fromStdString(name), QString::fromStdString(value));
    }
    process.setProcessEnvironment(environment);
    if (options.workingDirectory) {
        process.setWorkingDirectory(QString::fromStdString(options.workingDirectory->string()));
    }
    process.setStandardInputFile(QProcess::nullDevice());
    process.start(QString::fromStdString(program), list);

    CommandResult result;
    result.started = process.waitForStarted();
    if (!result.started) {
        return result;
    }
    result.finished = process.waitForFinished(static_cast<int>(options.timeLimit.count()));
    if (!result.finished) {
        process.kill();
        process.waitForFinished();
    }
    result.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
    result.standardOutput = process.readAllStandardOutput().toStdString();
    result.standardError = process.readAllStandardError().toStdString();
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
