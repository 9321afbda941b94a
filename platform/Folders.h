#pragma once

#include <filesystem>
#include <optional>

namespace ambrel {

// Per-user folders.
class Folders {
public:
    virtual ~Folders() = default;
    // Where programs keep their per-user data; absent when the system reports none.
    virtual std::optional<std::filesystem::path> applicationSupport() const = 0;
    virtual std::filesystem::path temporary() const = 0;
};

} // namespace ambrel
