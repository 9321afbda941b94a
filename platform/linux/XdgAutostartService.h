#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "platform/Environment.h"
#include "platform/LoginItemService.h"

namespace ambrel {

// What the autostart entry starts and how it is named.
struct AutostartProgram {
    // Names the entry file: <identifier>.desktop.
    std::string identifier;
    // The entry's Name.
    std::string name;
    std::filesystem::path executable;
    // The installed program's resource folder; absent when the executable has none beside it.
    std::optional<std::filesystem::path> resourceFolder;
};

// Start at login through the user's XDG autostart folder ($XDG_CONFIG_HOME/autostart, else
// ~/.config/autostart). Only an installed copy can be registered: an executable in the
// temporary folder ($TMPDIR, else /tmp; also /var/tmp and /dev/shm), inside a build tree (a
// folder holding CMakeCache.txt above it) or without its resource folder is reported notFound,
// since an entry pointing at it would dangle once that folder is cleaned. An entry that the
// desktop's settings switched off (Hidden=true, X-GNOME-Autostart-enabled=false) is
// requiresApproval and is never switched back on from here. An entry that starts another
// executable (an older copy elsewhere) counts as not registered; registering replaces it.
class XdgAutostartService final : public LoginItemService {
public:
    static constexpr const char* kErrorDomain = "AmbrelLoginItemErrorDomain";
    static constexpr const char* kPosixErrorDomain = "POSIXErrorDomain";
    enum ErrorCode : long long { notInstalled = 1, turnedOffByDesktop = 2 };

    XdgAutostartService(AutostartProgram program, std::shared_ptr<const Environment> environment);

    LoginItemStatus status() const override;
    LoginItemResult registerItem() override;
    LoginItemResult unregisterItem() override;

    // The entry file this program owns.
    std::filesystem::path entryPath() const;
    // The autostart folder's parent, as the desktop's settings would show it.
    std::filesystem::path autostartFolder() const;
    std::optional<std::filesystem::path> settingsFolder() const override;
    // Why this copy cannot be started at login, in words for the user; absent when it can.
    std::optional<std::string> installationProblem() const;
    // The entry file's text for this program.
    std::string entryText() const;

private:
    std::filesystem::path configHome() const;
    std::filesystem::path temporaryFolder() const;

    AutostartProgram m_program;
    std::shared_ptr<const Environment> m_environment;
};

} // namespace ambrel
