#include "platform/linux/XdgFolders.h"

#include <cstdlib>
#include <utility>

namespace ambrel {

XdgFolders::XdgFolders()
    : XdgFolders([](const char* name) -> std::optional<std::string> {
          const char* value = std::getenv(name);
          return value == nullptr ? std::nullopt : std::optional<std::string>(value);
      }) {}

XdgFolders::XdgFolders(Environment environment) : m_environment(std::move(environment)) {}

std::optional<std::filesystem::path> XdgFolders::applicationSupport() const {
    if (auto dataHome = absolutePath(m_environment("XDG_DATA_HOME"))) {
        return dataHome;
    }
    if (auto home = absolutePath(m_environment("HOME"))) {
        return *home / ".local" / "share";
    }
    return std::nullopt;
}

std::filesystem::path XdgFolders::temporary() const {
    return absolutePath(m_environment("TMPDIR")).value_or("/tmp");
}

std::optional<std::filesystem::path>
XdgFolders::absolutePath(const std::optional<std::string>& value) {
    if (!value || value->empty() || value->front() != '/') {
        return std::nullopt;
    }
    return std::filesystem::path(*value);
}

} // namespace ambrel
