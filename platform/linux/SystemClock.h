#pragma once

#include "platform/Clock.h"

namespace ambrel {

class SystemClock final : public Clock {
public:
    Date now() const override;
};

} // namespace ambrel
