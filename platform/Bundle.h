#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace ambrel {

// The program's bundle: its executable, resource folder and information values.
class Bundle {
public:
    virtual ~Bundle() = default;
    // The executable's own path.
    virtual std::filesystem::path executablePath() const = 0;
    // The folder holding the program's resources ("Runtime/bin", "Info", notices); absent when
    // there is none.
    virtual std::optional<std::filesystem::path> resourceFolder() const = 0;
    // An information value that is text, e.g. "CFBundleDisplayName"; absent when missing or not
    // text.
    virtual std::optional<std::string> infoString(const std::string& key) const = 0;
};

} // namespace ambrel
