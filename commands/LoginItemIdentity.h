#pragma once

#include <string>

namespace ambrel {

// Who asks to start at login, as the login reports name it: the bundle's identifier and the
// program's own path.
struct LoginItemIdentity {
    std::string bundleIdentifier;
    std::string appPath;
};

} // namespace ambrel
