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

} // namespace ambrel::testing
