#include "platform/linux/XdgFolders.h"

#include <utility>

namespace ambrel {

XdgFolders::XdgFolders(std::shared_ptr<const Environment> environment)
    : m_environment(std::move(environment)) {}

std::optional<std::filesystem::path> XdgFolders::applicationSupport() const {
    if (auto dataHome = absolutePath(m_environment->value("XDG_DATA_HOME"))) {
        return dataHome;
    }
    if (auto home = absolutePath(m_environment->value("HOME"))) {
        return *home / ".local" / "share";
    }
    return std::nullopt;
}

std::filesystem::path XdgFolders::temporary() const {
    return absolutePath(m_environment->value("TMPDIR")).value_or("/tmp");
}

std::optional<std::filesystem::path>
XdgFolders::absolutePath(const std::optional<std::string>& value) {
    if (!value || value->empty() || value->front() != '/') {
        return std::nullopt;
    }
    return std::filesystem::path(*value);
}

} // namespace ambrel
