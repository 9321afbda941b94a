#pragma once

#include <functional>
#include <optional>
#include <string>

#include "platform/Folders.h"

namespace ambrel {

// Application Support is $XDG_DATA_HOME, else ~/.local/share; the temporary folder is $TMPDIR,
// else /tmp. Only absolute paths count, as the XDG rules require.
class XdgFolders final : public Folders {
public:
    using Environment = std::function<std::optional<std::string>(const char*)>;

    // Reads the process environment.
    XdgFolders();
    // Reads `environment`; tests pass a map.
    explicit XdgFolders(Environment environment);

    std::optional<std::filesystem::path> applicationSupport() const override;
    std::filesystem::path temporary() const override;

    // `value` as a path when it is an absolute one: the XDG rules ignore relative folders.
    static std::optional<std::filesystem::path>
    absolutePath(const std::optional<std::string>& value);

private:
    Environment m_environment;
};

} // namespace ambrel
