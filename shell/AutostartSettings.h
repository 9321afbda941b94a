#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "platform/Environment.h"

namespace ambrel::AutostartSettings {

// Whether a program of that name can be found on the PATH.
using ProgramLookup = std::function<bool(const std::string& program)>;

// Finds programs in the folders of `searchPath` (a PATH value: colon-separated folders); an
// empty one finds nothing.
ProgramLookup programsOn(const std::string& searchPath);

// The command that opens the desktop's own startup-programs settings, where the user turns the
// program back on: KDE's autostart module on Plasma, GNOME's startup-applications tool where it
// is installed, otherwise the autostart folder in the file manager. `desktops` is
// $XDG_CURRENT_DESKTOP (colon-separated).
std::vector<std::string> command(const std::string& desktops, const ProgramLookup& isInstalled,
                                 const std::filesystem::path& autostartFolder);

// Starts command() for this session, detached, looking for the programs on the session's PATH
// and reading its XDG_CURRENT_DESKTOP from `environment`. Creates the folder first so the file
// manager has something to open. Fails silently: the menu shows the real status next time
// anyway.
void open(const std::filesystem::path& autostartFolder, const Environment& environment);

} // namespace ambrel::AutostartSettings
