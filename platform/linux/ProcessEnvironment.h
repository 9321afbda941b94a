#pragma once

#include <map>
#include <string>

#include "platform/Environment.h"

namespace ambrel {

// The process's environment as it was when this object was made (a copy: later changes by
// libraries do not reach it). Made once, by the entry, before any other thread runs.
class ProcessEnvironment final : public Environment {
public:
    ProcessEnvironment();

    std::optional<std::string> value(std::string_view name) const override;
    std::vector<std::string> entries() const override;

private:
    std::map<std::string, std::string, std::less<>> m_values;
};

} // namespace ambrel
