#pragma once

namespace ambrel {

// The published properties of BatteryMonitor, in declaration order.
enum class MonitorProperty {
    mac,
    phone,
    isRefreshingPhone,
    phoneStatus,
    macStatus,
    lastPhoneAttempt,
    nextPhoneCheck,
    phoneSetupState,
    macHealth,
    macTimeLeft,
};

// Observers hear of each change twice: just before the value changes (as views that batch
// their redraws want) and just after (as anything that reads the new value wants).
enum class ChangePhase { willChange, didChange };

} // namespace ambrel
