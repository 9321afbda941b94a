#pragma once

namespace ambrel {

// The symbols a gauge draws: the device icon in the ring and the power symbol after the number.
enum class GaugeSymbol { laptop, phone, charging, pluggedIn };

} // namespace ambrel
