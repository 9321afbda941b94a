#include "platform/linux/SystemClock.h"

#include <chrono>

namespace ambrel {

Date SystemClock::now() const {
    return Date::fromTimePoint(std::chrono::system_clock::now());
}

} // namespace ambrel
