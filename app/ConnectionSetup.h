#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "diagnosis/SystemConnectionProbe.h"
#include "platform/Bundle.h"
#include "platform/Environment.h"
#include "platform/ProcessLauncher.h"

namespace ambrel {

// Where the connection check and the phone settings look on this computer. `userMuxerAddress`
// is USBMUXD_SOCKET_ADDRESS as the user set it before the program's own muxer started (empty:
// not set); `dataFolder` the program's own data folder (empty: none); `launcher` the program's
// own, which runs the helper and the tools.
SystemConnectionProbe::Setup connectionProbeSetup(const Bundle& bundle,
                                                  const Environment& environment,
                                                  const std::string& userMuxerAddress,
                                                  const std::filesystem::path& dataFolder,
                                                  std::shared_ptr<ProcessLauncher> launcher);

} // namespace ambrel
