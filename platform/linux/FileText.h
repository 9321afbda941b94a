#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

namespace ambrel {

// The first `limit` bytes of the file at `path` (all of it when it is shorter); nothing when it
// cannot be opened or read. For the small text files of the system and the desktop.
std::optional<std::string> readFileText(const std::filesystem::path& path, std::size_t limit);

} // namespace ambrel
