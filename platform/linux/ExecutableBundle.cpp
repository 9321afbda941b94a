#include "platform/linux/ExecutableBundle.h"

#include <fstream>
#include <iterator>
#include <system_error>
#include <utility>

#include <nlohmann/json.hpp>

namespace ambrel {

namespace {

std::filesystem::path runningExecutable() {
    std::error_code error;
    auto path = std::filesystem::read_symlink("/proc/self/exe", error);
    return error ? std::filesystem::path() : path;
}

} // namespace

ExecutableBundle::ExecutableBundle() : ExecutableBundle(runningExecutable()) {}

ExecutableBundle::ExecutableBundle(std::filesystem::path executable)
    : m_executable(std::move(executable)) {
    if (m_executable.empty()) {
        return;
    }
    const auto resources = m_executable.parent_path().parent_path() / "share" / "tovrin";
    std::error_code error;
    if (!std::filesystem::is_directory(resources, error)) {
        return;
    }
    m_resources = resources;

    std::ifstream stream(resources / "Info", std::ios::binary);
    if (!stream) {
        return;
    }
    const std::string text{std::istreambuf_iterator<char>(stream),
                           std::istreambuf_iterator<char>()};
    const auto info = nlohmann::json::parse(text, nullptr, false);
    if (!info.is_object()) {
        return;
    }
    for (const auto& [key, value] : info.items()) {
        if (value.is_string()) {
            m_info.emplace(key, value.get<std::string>());
        }
    }
}

std::optional<std::string> ExecutableBundle::infoString(const std::string& key) const {
    const auto found = m_info.find(key);
    if (found == m_info.end()) {
        return std::nullopt;
    }
    return found->second;
}

} // namespace ambrel
