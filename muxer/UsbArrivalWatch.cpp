#include "muxer/UsbArrivalWatch.h"

#include <cstdint>
#include <sys/eventfd.h>
#include <unistd.h>

namespace ambrel {

std::unique_ptr<UsbArrivalWatch> UsbArrivalWatch::start(const std::string& address,
                                                        PhoneArrivalSink& arrivals) {
    const std::string prefix = "UNIX:";
    if (address.rfind(prefix, 0) != 0 || address.size() == prefix.size()) {
        return nullptr;
    }
    UniqueFd stop(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    if (!stop.isValid()) {
        return nullptr;
    }
    return std::unique_ptr<UsbArrivalWatch>(
        new UsbArrivalWatch(std::move(stop), address.substr(prefix.size()), arrivals));
}

UsbArrivalWatch::UsbArrivalWatch(UniqueFd stop, const std::string& path, PhoneArrivalSink& arrivals)
    : m_stop(std::move(stop)), m_watch(path, m_stop.get(), kMuxerLimit, &arrivals) {
    m_watch.start();
}

UsbArrivalWatch::~UsbArrivalWatch() {
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = ::write(m_stop.get(), &one, sizeof one);
    m_watch.join();
}

} // namespace ambrel
