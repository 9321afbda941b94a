#include "platform/linux/ProcessEnvironment.h"

extern char** environ;

namespace ambrel {

ProcessEnvironment::ProcessEnvironment() {
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        const std::string_view text = *entry;
        const auto equals = text.find('=');
        if (equals != std::string_view::npos) {
            m_values.emplace(std::string(text.substr(0, equals)),
                             std::string(text.substr(equals + 1)));
        }
    }
}

std::optional<std::string> ProcessEnvironment::value(std::string_view name) const {
    const auto found = m_values.find(name);
    if (found == m_values.end()) {
        return std::nullopt;
    }
    return found->second;
}

std::vector<std::string> ProcessEnvironment::entries() const {
    std::vector<std::string> result;
    result.reserve(m_values.size());
    for (const auto& [name, value] : m_values) {
        result.push_back(name + "=" + value);
    }
    return result;
}

} // namespace ambrel
