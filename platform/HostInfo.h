#pragma once

#include <optional>
#include <string>

namespace ambrel {

// What the system says about this computer.
class HostInfo {
public:
    virtual ~HostInfo() = default;
    // The computer's user-visible name; absent when the system gives none.
    virtual std::optional<std::string> localizedName() const = 0;
    // The raw model identifier bytes as the system stores them, terminating zero byte included
    // where the system keeps one; absent when it cannot be read.
    virtual std::optional<std::string> rawModelIdentifier() const = 0;
};

} // namespace ambrel
