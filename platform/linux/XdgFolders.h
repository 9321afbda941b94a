#pragma once

#include <memory>
#include <optional>
#include <string>

#include "platform/Environment.h"
#include "platform/Folders.h"

namespace ambrel {

// Application Support is $XDG_DATA_HOME, else ~/.local/share; the temporary folder is $TMPDIR,
// else /tmp. Only absolute paths count, as the XDG rules require.
class XdgFolders final : public Folders {
public:
    explicit XdgFolders(std::shared_ptr<const Environment> environment);

    std::optional<std::filesystem::path> applicationSupport() const override;
    std::filesystem::path temporary() const override;

    // `value` as a path when it is an absolute one: the XDG rules ignore relative folders.
    static std::optional<std::filesystem::path>
    absolutePath(const std::optional<std::string>& value);

private:
    std::shared_ptr<const Environment> m_environment;
};

} // namespace ambrel
