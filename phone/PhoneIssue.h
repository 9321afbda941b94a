#pragma once

#include <string>

#include "model/PhoneSetupState.h"

namespace ambrel {

// Why a phone read gave no reading, worded for the user.
struct PhoneIssue {
    PhoneSetupState state = PhoneSetupState::notFound;
    std::string message;
    // The failure may well clear by itself if tried again at once.
    bool isTransient = false;

    friend bool operator==(const PhoneIssue&, const PhoneIssue&) = default;
};

} // namespace ambrel
