#pragma once

#include <filesystem>
#include <string>

#include "tests/fakes/ChildProcess.h"

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

// The user folders of the program's runs under `root`, so that a run touches nothing of the
// user's and parallel runs never meet.
struct UserFolders {
    explicit UserFolders(const std::filesystem::path& root);

    // Makes the folders, the runtime folder private as XDG wants it.
    void create() const;
    // HOME and the XDG folders set to these, no Wayland display or session bus, in English.
    EnvironmentChanges environment() const;

    std::filesystem::path home;
    std::filesystem::path dataHome;
    std::filesystem::path configHome;
    std::filesystem::path runtime;
};

} // namespace ambrel::testing
