#include "monitor/BarState.h"

#include <cerrno>
#include <csignal>
#include <fstream>
#include <iterator>

#include <unistd.h>

#include <nlohmann/json.hpp>

#include "monitor/PrivateFile.h"

namespace ambrel {

namespace {

// The file holds two readings; anything much larger is not ours.
constexpr std::size_t kMaxStateSize = 64 * 1024;

nlohmann::json snapshotJson(const std::optional<BatteryDeviceSnapshot>& snapshot) {
    return snapshot ? snapshot->toJson() : nlohmann::json(nullptr);
}

// Null or a valid reading; anything else fails the whole state.
bool decodeSnapshot(const nlohmann::json& json, const char* key,
                    std::optional<BatteryDeviceSnapshot>& out) {
    const auto found = json.find(key);
    if (found == json.end() || found->is_null()) {
        return true;
    }
    out = BatteryDeviceSnapshot::fromJson(*found);
    return out.has_value();
}

bool isRunning(pid_t pid) {
    return pid > 0 && (::kill(pid, 0) == 0 || errno == EPERM);
}

} // namespace

std::string BarState::encodeJson() const {
    const nlohmann::json json = {
        {"isRefreshingPhone", isRefreshingPhone},
        {"mac", snapshotJson(mac)},
        {"phone", snapshotJson(phone)},
        {"phoneSetupState", std::string(rawValue(phoneSetupState))},
        {"writer", static_cast<std::int64_t>(writer)},
    };
    return json.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::optional<BarState> BarState::decodeJson(std::string_view text) {
    const auto json = nlohmann::json::parse(text, nullptr, false);
    if (!json.is_object()) {
        return std::nullopt;
    }
    BarState state;
    if (!decodeSnapshot(json, "mac", state.mac) || !decodeSnapshot(json, "phone", state.phone)) {
        return std::nullopt;
    }
    const auto setup = json.find("phoneSetupState");
    const auto refreshing = json.find("isRefreshingPhone");
    const auto writer = json.find("writer");
    if (setup == json.end() || !setup->is_string() || refreshing == json.end() ||
        !refreshing->is_boolean() || writer == json.end() || !writer->is_number_integer()) {
        return std::nullopt;
    }
    const auto setupState = phoneSetupStateFromRawValue(setup->get<std::string>());
    if (!setupState) {
        return std::nullopt;
    }
    state.phoneSetupState = *setupState;
    state.isRefreshingPhone = refreshing->get<bool>();
    state.writer = static_cast<pid_t>(writer->get<std::int64_t>());
    return state;
}

namespace BarStateFile {

std::filesystem::path location(const char* runtimeDir, const char* cacheHome, const char* home) {
    const auto set = [](const char* value) { return value != nullptr && value[0] == '/'; };
    std::filesystem::path folder;
    if (set(runtimeDir)) {
        folder = runtimeDir;
    } else if (set(cacheHome)) {
        folder = cacheHome;
    } else {
        folder = std::filesystem::path(set(home) ? home : "/") / ".cache";
    }
    return folder / "tovrin" / "state.json";
}

std::filesystem::path location(const Environment& environment) {
    const auto runtimeDir = environment.value("XDG_RUNTIME_DIR");
    const auto cacheHome = environment.value("XDG_CACHE_HOME");
    const auto home = environment.value("HOME");
    return location(runtimeDir ? runtimeDir->c_str() : nullptr,
                    cacheHome ? cacheHome->c_str() : nullptr, home ? home->c_str() : nullptr);
}

bool prepareFolder(const std::filesystem::path& file) {
    return PrivateFile::makeFolders(file.parent_path());
}

void save(const std::filesystem::path& file, const BarState& state) {
    const std::string bytes = state.encodeJson();
    if (PrivateFile::makeFolders(file.parent_path())) {
        PrivateFile::replace(file, bytes, false);
    }
}

std::optional<BarState> loadFromRunningWidget(const std::filesystem::path& file) {
    // Read without blocking, so that a pipe put in the file's place cannot hang a bar.
    const auto bytes = PrivateFile::read(file, kMaxStateSize);
    if (!bytes) {
        return std::nullopt;
    }
    auto state = BarState::decodeJson(*bytes);
    // A widget that was killed leaves its file behind; its readings are then nobody's.
    if (!state || !isRunning(state->writer)) {
        return std::nullopt;
    }
    return state;
}

void remove(const std::filesystem::path& file, pid_t writer) {
    const auto bytes = [&file] {
        std::ifstream stream(file, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(stream), {});
    }();
    const auto state = BarState::decodeJson(bytes);
    if (state && state->writer == writer) {
        ::unlink(file.c_str());
    }
}

} // namespace BarStateFile

} // namespace ambrel
