#pragma once

#include <map>

#include "platform/Bundle.h"

namespace ambrel {

// The bundle around an executable: resources live in <exe dir>/../share/tovrin, bundle
// information in the JSON file "Info" there. A copied executable with a copied share/tovrin
// beside it therefore works as well as the installed one.
class ExecutableBundle final : public Bundle {
public:
    // The bundle of the running program (/proc/self/exe).
    ExecutableBundle();
    // The bundle of the executable at `executable`; for tests.
    explicit ExecutableBundle(std::filesystem::path executable);

    std::filesystem::path executablePath() const override { return m_executable; }
    std::optional<std::filesystem::path> resourceFolder() const override { return m_resources; }
    std::optional<std::string> infoString(const std::string& key) const override;

private:
    std::filesystem::path m_executable;
    std::optional<std::filesystem::path> m_resources;
    std::map<std::string, std::string> m_info;
};

} // namespace ambrel
