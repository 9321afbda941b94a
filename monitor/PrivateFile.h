#pragma once

#include <cstddef>
#include <filesystem>
#include <optional>
#include <string>

// The small files the program keeps for itself (the reading cache, the bar's state): private to
// the user, read with a size limit and replaced whole, never seen half-written.
namespace ambrel::PrivateFile {

// Makes every missing folder of `folder` with mode 0700. The mode is set again after mkdir
// because the umask may have taken the owner's own bits away. Existing folders, including one
// that another process makes meanwhile, are left as they are. True for an empty path.
bool makeFolders(const std::filesystem::path& folder);

// The bytes of the regular file `file`; nothing when it is missing, unreadable, not a regular
// file or larger than `limit`. Opened without blocking, so that a pipe or device put in its
// place cannot hang the caller.
std::optional<std::string> read(const std::filesystem::path& file, std::size_t limit);

// Writes `bytes` to `file` through a temporary ".<name>.XXXXXX" beside it that takes the real
// name once complete, with mode 0600; with `durable`, synced to disk before. False when that
// failed; `file` then keeps its old contents.
bool replace(const std::filesystem::path& file, const std::string& bytes, bool durable);

} // namespace ambrel::PrivateFile
