#include "tests/fakes/ProgramBundle.h"

#include <system_error>

namespace ambrel::testing {

namespace fs = std::filesystem;

fs::path builtProgram() {
    return fs::path(TOVRIN_BINARY_DIR) / "bin" / "tovrin";
}

ProgramBundle copyBuiltProgram(const fs::path& root) {
    ProgramBundle bundle{root / "bin" / "tovrin",
                         root / "share" / "tovrin",
                         root / "share" / "tovrin" / "Runtime" / "bin",
                         {}};
    if (root.empty()) {
        bundle.failure = "no folder for the bundle";
        return bundle;
    }
    std::error_code error;
    for (const auto& folder : {bundle.executable.parent_path(), bundle.toolFolder}) {
        if (!fs::create_directories(folder, error) && error) {
            bundle.failure = "cannot make " + folder.string() + ": " + error.message();
            return bundle;
        }
    }
    const fs::path built = builtProgram();
    if (!fs::copy_file(built, bundle.executable, fs::copy_options::overwrite_existing, error)) {
        bundle.failure = "cannot copy " + built.string() + ": " + error.message();
        return bundle;
    }
    const fs::path info = fs::path(TOVRIN_BINARY_DIR) / "share" / "tovrin" / "Info";
    if (!fs::copy_file(info, bundle.resources / "Info", fs::copy_options::overwrite_existing,
                       error)) {
        bundle.failure = "cannot copy " + info.string() + ": " + error.message();
    }
    return bundle;
}

UserFolders::UserFolders(const fs::path& root)
    : home(root / "home"), dataHome(root / "data"), configHome(root / "config"),
      runtime(root / "runtime") {}

void UserFolders::create() const {
    std::error_code error;
    for (const auto& folder : {home, dataHome, configHome, runtime}) {
        fs::create_directories(folder, error);
    }
    fs::permissions(runtime, fs::perms::owner_all, error);
}

EnvironmentChanges UserFolders::environment() const {
    return {
        {"HOME", home.string()},
        {"XDG_DATA_HOME", dataHome.string()},
        {"XDG_CONFIG_HOME", configHome.string()},
        {"XDG_RUNTIME_DIR", runtime.string()},
        {"WAYLAND_DISPLAY", std::nullopt},
        {"DBUS_SESSION_BUS_ADDRESS", std::nullopt},
        {"LANG", "en_US.UTF-8"},
        {"LC_ALL", std::nullopt},
    };
}

} // namespace ambrel::testing
