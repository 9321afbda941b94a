#pragma once

#include <optional>
#include <string_view>

namespace ambrel {

// How the last phone read turned out; drives the phone gauge's doubt and the status line.
enum class PhoneSetupState {
    checking,
    ready,
    needsPairing,
    notFound,
    unavailable,
};

std::string_view rawValue(PhoneSetupState state);

// Exactly the five raw values, case-sensitive; anything else has no state.
std::optional<PhoneSetupState> phoneSetupStateFromRawValue(std::string_view raw);

} // namespace ambrel
