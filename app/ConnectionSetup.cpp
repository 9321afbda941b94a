#include "app/ConnectionSetup.h"

#include "app/SystemServices.h"
#include "muxer/PrivateMuxer.h"

#include <utility>

namespace ambrel {

SystemConnectionProbe::Setup connectionProbeSetup(const Bundle& bundle,
                                                  const Environment& environment,
                                                  const std::string& userMuxerAddress,
                                                  const std::filesystem::path& dataFolder,
                                                  std::shared_ptr<ProcessLauncher> launcher) {
    SystemConnectionProbe::Setup setup;
    setup.launcher = std::move(launcher);
    setup.toolDirectory = bundleToolDirectory(bundle).value_or(std::filesystem::path());
    const std::string unixPrefix = "UNIX:";
    if (userMuxerAddress.empty()) {
        setup.systemMuxerSocket = systemMuxerSocketPath(environment);
    } else if (userMuxerAddress.rfind(unixPrefix, 0) == 0 &&
               userMuxerAddress.size() > unixPrefix.size()) {
        // The user's own muxer stands for the system's.
        setup.systemMuxerSocket = userMuxerAddress.substr(unixPrefix.size());
    }
    if (!dataFolder.empty()) {
        setup.ownRecordsFolder = dataFolder / "pair-records";
    }
    return setup;
}

} // namespace ambrel
