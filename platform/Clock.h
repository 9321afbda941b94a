#pragma once

#include "model/Date.h"

namespace ambrel {

// The wall clock, injected so that tests can move time by hand.
class Clock {
public:
    virtual ~Clock() = default;
    // Thread-safe.
    virtual Date now() const = 0;
};

} // namespace ambrel
