#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include <sys/types.h>

#include "model/BatteryDeviceSnapshot.h"
#include "model/PhoneSetupState.h"
#include "platform/Environment.h"

namespace ambrel {

// What a status bar needs of the monitor: both readings and how the phone link stands. The
// running widget shares it through a small file that `tovrin --bar` reads, so the bar never
// waits for the phone.
struct BarState {
    std::optional<BatteryDeviceSnapshot> mac;
    std::optional<BatteryDeviceSnapshot> phone;
    PhoneSetupState phoneSetupState = PhoneSetupState::checking;
    bool isRefreshingPhone = false;
    // The widget that wrote the file; 0 when the state was put together by the reader itself.
    pid_t writer = 0;

    // Compact JSON: {"isRefreshingPhone","mac","phone","phoneSetupState","writer"}; an absent
    // reading is null.
    std::string encodeJson() const;
    // Absent unless the text is such an object with valid readings (or nulls).
    static std::optional<BarState> decodeJson(std::string_view text);
};

namespace BarStateFile {

// $XDG_RUNTIME_DIR/tovrin/state.json. Without a runtime folder (some sessions started by hand
// have none) the per-user cache folder is used instead: $XDG_CACHE_HOME, else ~/.cache, then
// "tovrin/state.json"; never the shared temporary folder, where another user could plant the
// file first.
std::filesystem::path location(const char* runtimeDir, const char* cacheHome, const char* home);
// location() with the variables of `environment`.
std::filesystem::path location(const Environment& environment);

// Makes the folder that holds `file` (mode 0700) unless it exists; false when it cannot.
bool prepareFolder(const std::filesystem::path& file);
// Writes `state` to `file` atomically (temporary file + rename): the folder is made with mode
// 0700, the file has mode 0600. Silent on failure.
void save(const std::filesystem::path& file, const BarState& state);
// The state at `file` when it decodes and its writer is still running; else absent.
std::optional<BarState> loadFromRunningWidget(const std::filesystem::path& file);
// Removes the file if `writer` wrote it; for a widget that ends.
void remove(const std::filesystem::path& file, pid_t writer);

} // namespace BarStateFile

} // namespace ambrel
