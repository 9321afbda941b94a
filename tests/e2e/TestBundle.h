#pragma once

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/fakes/ChildProcess.h"
#include "tests/fakes/ProgramBundle.h"

namespace ambrel::testing {

// A private copy of the built program laid out as an installed bundle under `root`:
//   bin/tovrin, share/tovrin/Info, share/tovrin/Runtime/bin/{idevice_id,ideviceinfo}
// (links to the real libimobiledevice tools), plus its own home, data, config and runtime
// folders, so that a run touches nothing of the user's and parallel runs never meet.
class TestBundle {
public:
    enum class Tools { linked, missing };

    explicit TestBundle(const std::filesystem::path& root, Tools tools = Tools::linked);

    // Empty when the bundle is complete; otherwise what is missing.
    const std::string& failure() const { return m_failure; }

    const std::filesystem::path& executable() const { return m_executable; }
    // $XDG_DATA_HOME of the runs: the reading cache lives under it.
    const std::filesystem::path& dataHome() const { return m_folders.dataHome; }
    std::filesystem::path cacheFile() const {
        return m_folders.dataHome / "Ambrel" / "battery-cache.json";
    }

    // The program's environment: these folders, the usbmuxd address of `socketAddress`
    // (USBMUXD_SOCKET_ADDRESS) and no display unless `display` is given.
    std::vector<std::string> environment(const std::string& socketAddress,
                                         const std::string& display = {}) const;

    // Whether this run of the tests puts the program's own muxer between the tools and the
    // simulated phone (TOVRIN_E2E_THROUGH_MUXER=1): the program is then not given
    // USBMUXD_SOCKET_ADDRESS but the simulated phone as its system muxer.
    static bool isThroughProgramsMuxer();

    // Links the real idevicediagnostics beside the other tools, so that the program reads the
    // phone's battery health too; false when it cannot.
    bool linkDiagnostics();

    // Runs the program with `arguments`, killed at `limit`.
    ProcessOutcome run(const std::vector<std::string>& arguments, const std::string& socketAddress,
                       std::chrono::duration<double> limit) const;

private:
    std::filesystem::path m_toolFolder;
    std::filesystem::path m_root;
    std::filesystem::path m_executable;
    UserFolders m_folders;
    std::string m_failure;
};

} // namespace ambrel::testing
