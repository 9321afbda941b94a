#include "model/Date.h"

namespace ambrel {

Date Date::fromTimePoint(std::chrono::system_clock::time_point timePoint) {
    const std::chrono::duration<double> sinceEpoch = timePoint.time_since_epoch();
    return fromSecondsSince1970(sinceEpoch.count());
}

} // namespace ambrel
