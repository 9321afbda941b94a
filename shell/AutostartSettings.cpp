#include "shell/AutostartSettings.h"

#include <system_error>

#include <QProcess>
#include <QStandardPaths>
#include <QString>
#include <QStringList>

namespace ambrel::AutostartSettings {

namespace {

bool mentions(const std::string& desktops, const std::string& wanted) {
    std::size_t start = 0;
    while (start <= desktops.size()) {
        const auto end = desktops.find(':', start);
        const auto name =
            desktops.substr(start, end == std::string::npos ? std::string::npos : end - start);
        if (name == wanted) {
            return true;
        }
        if (end == std::string::npos) {
            break;
        }
        start = end + 1;
    }
    return false;
}

} // namespace

ProgramLookup programsOn(const std::string& searchPath) {
    const QStringList folders =
        QString::fromStdString(searchPath).split(QLatin1Char(':'), Qt::SkipEmptyParts);
    return [folders](const std::string& program) {
        // Qt searches the process's own PATH when given no folders.
        return !folders.isEmpty() &&
               !QStandardPaths::findExecutable(QString::fromStdString(program), folders).isEmpty();
    };
}

std::vector<std::string> command(const std::string& desktops, const ProgramLookup& isInstalled,
                                 const std::filesystem::path& autostartFolder) {
    if (mentions(desktops, "KDE")) {
        for (const char* program : {"systemsettings", "kcmshell6", "kcmshell5"}) {
            if (isInstalled(program)) {
                return {program, "kcm_autostart"};
            }
        }
    }
    if (isInstalled("gnome-session-properties")) {
        return {"gnome-session-properties"};
    }
    return {"xdg-open", autostartFolder.string()};
}

void open(const std::filesystem::path& autostartFolder, const Environment& environment) {
    std::error_code ignored;
    std::filesystem::create_directories(autostartFolder, ignored);
    const auto parts = command(environment.value("XDG_CURRENT_DESKTOP").value_or(""),
                               programsOn(environment.value("PATH").value_or("")), autostartFolder);
    QStringList arguments;
    for (std::size_t i = 1; i < parts.size(); ++i) {
        arguments << QString::fromStdString(parts[i]);
    }
    QProcess::startDetached(QString::fromStdString(parts.front()), arguments);
}

} // namespace ambrel::AutostartSettings
