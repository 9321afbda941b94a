#include "model/PhoneSetupState.h"

#include <array>
#include <utility>

namespace ambrel {

namespace {

constexpr std::array<std::pair<PhoneSetupState, std::string_view>, 5> kRawValues{{
    {PhoneSetupState::checking, "checking"},
    {PhoneSetupState::ready, "ready"},
    {PhoneSetupState::needsPairing, "needsPairing"},
    {PhoneSetupState::notFound, "notFound"},
    {PhoneSetupState::unavailable, "unavailable"},
}};

} // namespace

std::string_view rawValue(PhoneSetupState state) {
    for (const auto& [candidate, raw] : kRawValues) {
        if (candidate == state) {
            return raw;
        }
    }
    return "checking";
}

std::optional<PhoneSetupState> phoneSetupStateFromRawValue(std::string_view raw) {
    for (const auto& [state, candidate] : kRawValues) {
        if (candidate == raw) {
            return state;
        }
    }
    return std::nullopt;
}

} // namespace ambrel
