#pragma once

#include <initializer_list>
#include <map>
#include <string>
#include <utility>

#include "platform/Environment.h"

namespace ambrel::testing {

// An environment that holds only what the test puts in it.
class FakeEnvironment final : public Environment {
public:
    FakeEnvironment() = default;
    FakeEnvironment(std::initializer_list<std::pair<const std::string, std::string>> values)
        : m_values(values) {}

    void set(const std::string& name, std::string value) { m_values[name] = std::move(value); }
    void unset(const std::string& name) { m_values.erase(name); }

    std::optional<std::string> value(std::string_view name) const override {
        const auto found = m_values.find(name);
        if (found == m_values.end()) {
            return std::nullopt;
        }
        return found->second;
    }

    std::vector<std::string> entries() const override {
        std::vector<std::string> result;
        for (const auto& [name, value] : m_values) {
            result.push_back(name + "=" + value);
        }
        return result;
    }

private:
    std::map<std::string, std::string, std::less<>> m_values;
};

} // namespace ambrel::testing
