#include "platform/linux/XdgAutostartService.h"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>

#include <unistd.h>

#include "platform/linux/DesktopEntry.h"
#include "platform/linux/FileText.h"
#include "platform/linux/XdgFolders.h"

namespace ambrel {

namespace {

// An autostart entry is a few hundred bytes; anything this large is not one of ours.
constexpr std::size_t kEntrySizeLimit = 1024 * 1024;

std::filesystem::path resolved(const std::filesystem::path& path) {
    std::error_code error;
    auto canonical = std::filesystem::weakly_canonical(path, error);
    return error ? path.lexically_normal() : canonical;
}

// Whether `path` is `folder` itself or lies anywhere below it, compared by whole components.
bool isWithin(const std::filesystem::path& path, const std::filesystem::path& folder) {
    auto inner = path.begin();
    for (auto outer = folder.begin(); outer != folder.end(); ++outer) {
        if (outer->empty()) {
            continue; // the empty last component of a folder written with a trailing '/'
        }
        if (inner == path.end() || *inner != *outer) {
            return false;
        }
        ++inner;
    }
    return true;
}

std::optional<std::filesystem::path> buildTreeAbove(const std::filesystem::path& executable) {
    std::error_code error;
    for (auto folder = executable.parent_path(); !folder.empty(); folder = folder.parent_path()) {
        if (std::filesystem::exists(folder / "CMakeCache.txt", error)) {
            return folder;
        }
        if (folder == folder.root_path()) {
            break;
        }
    }
    return std::nullopt;
}

LoginItemResult posixFailure(const std::string& what, const std::error_code& error) {
    return unexpected(LoginItemError{what + ": " + error.message(),
                                     XdgAutostartService::kPosixErrorDomain, error.value()});
}

} // namespace

XdgAutostartService::XdgAutostartService(AutostartProgram program,
                                         std::shared_ptr<const Environment> environment)
    : m_program(std::move(program)), m_environment(std::move(environment)) {}

std::filesystem::path XdgAutostartService::configHome() const {
    if (auto configHome = XdgFolders::absolutePath(m_environment->value("XDG_CONFIG_HOME"))) {
        return *configHome;
    }
    return XdgFolders::absolutePath(m_environment->value("HOME")).value_or("/") / ".config";
}

std::filesystem::path XdgAutostartService::temporaryFolder() const {
    return XdgFolders::absolutePath(m_environment->value("TMPDIR")).value_or("/tmp");
}

std::filesystem::path XdgAutostartService::autostartFolder() const {
    return configHome() / "autostart";
}

std::optional<std::filesystem::path> XdgAutostartService::settingsFolder() const {
    return autostartFolder();
}

std::filesystem::path XdgAutostartService::entryPath() const {
    const auto& identifier = m_program.identifier;
    const bool usable = !identifier.empty() && identifier.find('/') == std::string::npos &&
                        identifier != "." && identifier != "..";
    return autostartFolder() / ((usable ? identifier : std::string("tovrin")) + ".desktop");
}

std::optional<std::string> XdgAutostartService::installationProblem() const {
    const auto& name = m_program.name;
    if (m_program.executable.empty() || !m_program.executable.is_absolute()) {
        return name + " could not find its own program file.";
    }
    const auto executable = resolved(m_program.executable);
    // /tmp counts only when it is the temporary folder: a TMPDIR set elsewhere makes /tmp an
    // ordinary folder for this user.
    for (const auto& folder : {temporaryFolder(), std::filesystem::path("/var/tmp"),
                               std::filesystem::path("/dev/shm")}) {
        if (isWithin(executable, resolved(folder))) {
            return name + " runs from the temporary folder " + folder.string() +
                   "; install it before turning on Start at Login.";
        }
    }
    if (const auto buildTree = buildTreeAbove(executable)) {
        return name + " runs from the build folder " + buildTree->string() +
               "; install it before turning on Start at Login.";
    }
    std::error_code error;
    if (!m_program.resourceFolder ||
        !std::filesystem::is_directory(*m_program.resourceFolder, error)) {
        return name + "\u2019s resources (share/tovrin) are missing beside " + executable.string() +
               "; reinstall it before turning on Start at Login.";
    }
    return std::nullopt;
}

std::string XdgAutostartService::entryText() const {
    return "[Desktop Entry]\n"
           "Type=Application\n"
           "Name=" +
           DesktopEntry::escapeStringValue(m_program.name) +
           "\n"
           "Exec=" +
           DesktopEntry::execValue(m_program.executable) +
           "\n"
           "Terminal=false\n"
           "X-GNOME-Autostart-enabled=true\n";
}

LoginItemStatus XdgAutostartService::status() const {
    if (installationProblem()) {
        return LoginItemStatus::notFound;
    }
    const auto text = readFileText(entryPath(), kEntrySizeLimit);
    if (!text) {
        return LoginItemStatus::notRegistered;
    }
    const auto fields = DesktopEntry::parseMainGroup(*text);
    const auto value = [&fields](const char* key) -> std::string {
        const auto found = fields.find(key);
        return found == fields.end() ? std::string() : found->second;
    };
    if (value("Hidden") == "true" || value("X-GNOME-Autostart-enabled") == "false") {
        return LoginItemStatus::requiresApproval;
    }
    if (value("Exec") != DesktopEntry::execValue(m_program.executable)) {
        return LoginItemStatus::notRegistered;
    }
    return LoginItemStatus::enabled;
}

LoginItemResult XdgAutostartService::registerItem() {
    if (auto problem = installationProblem()) {
        return unexpected(LoginItemError{std::move(*problem), kErrorDomain, notInstalled});
    }
    if (status() == LoginItemStatus::requiresApproval) {
        return unexpected(
            LoginItemError{"Start at Login is turned off for " + m_program.name +
                               " in your desktop\u2019s startup settings. Turn it on there.",
                           kErrorDomain, turnedOffByDesktop});
    }

    std::error_code error;
    const auto folder = autostartFolder();
    std::filesystem::create_directories(folder, error);
    if (error) {
        return posixFailure("Couldn\u2019t create " + folder.string(), error);
    }
    // Written beside the entry and renamed over it, so a desktop reading the folder at login
    // never sees half an entry.
    const auto target = entryPath();
    auto partial = target;
    partial += ".partial-" + std::to_string(::getpid());
    {
        std::ofstream stream(partial, std::ios::binary | std::ios::trunc);
        const auto text = entryText();
        stream.write(text.data(), static_cast<std::streamsize>(text.size()));
        stream.close();
        if (!stream) {
            const std::error_code writeError(errno != 0 ? errno : EIO, std::generic_category());
            std::filesystem::remove(partial, error);
            return posixFailure("Couldn\u2019t write " + target.string(), writeError);
        }
    }
    std::filesystem::rename(partial, target, error);
    if (error) {
        std::error_code ignored;
        std::filesystem::remove(partial, ignored);
        return posixFailure("Couldn\u2019t write " + target.string(), error);
    }
    return std::monostate{};
}

LoginItemResult XdgAutostartService::unregisterItem() {
    std::error_code error;
    std::filesystem::remove(entryPath(), error);
    if (error) {
        return posixFailure("Couldn\u2019t remove " + entryPath().string(), error);
    }
    return std::monostate{};
}

} // namespace ambrel
