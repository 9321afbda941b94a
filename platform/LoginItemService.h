#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <variant>

#include "model/Expected.h"

namespace ambrel {

// Where start at login stands for this copy of the program.
enum class LoginItemStatus {
    notRegistered,
    enabled,
    // Registered, but switched off in the desktop's own settings: the user turns it back on
    // there, the program does not override them.
    requiresApproval,
    // This copy is not installed where it could be started at login.
    notFound,
};

// Why registering or unregistering failed, in the words shown to the user, with a domain and a
// code for the command-line report.
struct LoginItemError {
    std::string description;
    std::string domain;
    long long code = 0;
};

using LoginItemResult = Expected<std::monostate, LoginItemError>;

// Starting the program when the user logs in. Not thread-safe; the program uses it from one
// thread.
class LoginItemService {
public:
    virtual ~LoginItemService() = default;
    // Reads the status afresh on every call.
    virtual LoginItemStatus status() const = 0;
    virtual LoginItemResult registerItem() = 0;
    virtual LoginItemResult unregisterItem() = 0;
    // The folder the desktop keeps start-at-login entries in, for the user to manage them
    // there; absent when there is no such folder.
    virtual std::optional<std::filesystem::path> settingsFolder() const { return std::nullopt; }
};

} // namespace ambrel
