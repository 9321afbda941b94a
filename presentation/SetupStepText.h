#pragma once

#include <string>

namespace ambrel {

// One numbered step of the phone setup sheet.
struct SetupStepText {
    std::string number;
    std::string title;
    std::string detail;
};

} // namespace ambrel
