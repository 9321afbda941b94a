#pragma once

#include <filesystem>
#include <string>

namespace ambrel::testing {

// The program as the build made it (build/bin/tovrin).
std::filesystem::path builtProgram();

// Where copyBuiltProgram put the program's parts.
struct ProgramBundle {
    std::filesystem::path executable;
    // share/tovrin: the bundle information and the tool folder.
    std::filesystem::path resources;
    // share/tovrin/Runtime/bin, made empty: the tests put the phone tools they want there.
    std::filesystem::path toolFolder;
    // Empty when the bundle is complete; otherwise what went wrong.
    std::string failure;
};

// Lays the built program out under `root` the way it is installed: a copy of the executable in
// bin/, its bundle information in share/tovrin/ and an empty tool folder. The program finds its
// resources from its own path, so a run of the copy reads only what the test put there.
ProgramBundle copyBuiltProgram(const std::filesystem::path& root);

} // namespace ambrel::testing
