#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ambrel {

// The environment variables the program was started with. Every variable the program looks at
// is read here, from one object made at start and handed to whoever needs it; nothing changes
// the process's own environment (what the phone tools get is given to the launcher instead).
class Environment {
public:
    virtual ~Environment() = default;
    // The variable's value; nothing when it is not set.
    virtual std::optional<std::string> value(std::string_view name) const = 0;
    // Every variable as "NAME=value", for the programs the program starts.
    virtual std::vector<std::string> entries() const = 0;

    // The value when it is set and not empty.
    std::optional<std::string> nonEmpty(std::string_view name) const {
        auto found = value(name);
        return found && !found->empty() ? found : std::nullopt;
    }
};

} // namespace ambrel
