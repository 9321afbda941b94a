#pragma once

namespace ambrel {

// Which device a battery gauge stands for.
enum class BatteryDeviceKind { mac, phone };

} // namespace ambrel
