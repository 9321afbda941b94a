#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "muxer/MuxChannel.h"
#include "muxer/PhoneArrivalSink.h"
#include "muxer/SystemDeviceWatch.h"

namespace ambrel {

// Where the user runs a muxer of their own (USBMUXD_SOCKET_ADDRESS names it) the program's own
// muxer does not run, so nothing of it hears of phones being plugged in: this keeps a Listen at
// the user's muxer instead, on a thread of its own, and tells `arrivals` of every phone it
// announces. Stops on destruction.
class UsbArrivalWatch {
public:
    // `address` as USBMUXD_SOCKET_ADDRESS has it; nothing for one that is no "UNIX:<path>"
    // (a TCP muxer is not watched).
    static std::unique_ptr<UsbArrivalWatch> start(const std::string& address,
                                                  PhoneArrivalSink& arrivals);
    ~UsbArrivalWatch();
    UsbArrivalWatch(const UsbArrivalWatch&) = delete;
    UsbArrivalWatch& operator=(const UsbArrivalWatch&) = delete;

    static constexpr std::chrono::milliseconds kMuxerLimit{3000};

private:
    UsbArrivalWatch(UniqueFd stop, const std::string& path, PhoneArrivalSink& arrivals);

    UniqueFd m_stop;
    SystemDeviceWatch m_watch;
};

} // namespace ambrel
