#pragma once

namespace ambrel::SettingsFile {

// The program's one settings file, $XDG_CONFIG_HOME/Quenby/Tovrin.conf. Every store names it
// here rather than through the application's name, which the tray takes for its title and so
// follows the display name.
inline constexpr const char* kOrganization = "Quenby";
inline constexpr const char* kApplication = "Tovrin";

} // namespace ambrel::SettingsFile
