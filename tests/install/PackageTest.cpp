// The Debian package made by CPack from the build tree: its control fields, dependencies and
// files; and, for a normal build where the machine may be changed (root, apt, and CI=true or
// TOVRIN_TEST_SYSTEM_INSTALL=1), a real install with apt-get, a run, and a purge that leaves
// nothing behind.

#include <cctype>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <system_error>
#include <vector>

#include <unistd.h>

#include <gtest/gtest.h>

#include "tests/install/CommandResult.h"
#include "tests/install/InstalledTree.h"

namespace ambrel::installtest {
namespace {

namespace fs = std::filesystem;

// One entry of `dpkg-deb -c`: the path (without the leading "."), its kind and link target.
struct PackagedPath {
    std::string path;
    char kind = '-';
    std::string linkTarget;
    // As dpkg-deb lists it: "-rwxr-xr-x".
    std::string mode;
};

std::vector<PackagedPath> parseContents(const std::string& listing) {
    std::vector<PackagedPath> entries;
    std::istringstream lines(listing);
    std::string line;
    // drwxr-xr-x root/root 0 2026-11-22 11:34 ./usr/share/ (a link ends in " -> target")
    static const std::regex pattern(
        R"(^((\S)\S*)\s+\S+\s+\d+\s+\S+\s+\S+\s+\.(/.*?)(?: -> (.*))?$)");
    while (std::getline(lines, line)) {
        std::smatch match;
        if (std::regex_match(line, match, pattern)) {
            std::string path = match[3].str();
            if (path.size() > 1 && path.back() == '/') {
                path.pop_back();
            }
            entries.push_back({path, match[2].str()[0], match[4].str(), match[1].str()});
        }
    }
    return entries;
}

// The package names of a Depends field, without versions or alternatives' punctuation.
std::set<std::string> dependencyNames(const std::string& depends) {
    std::set<std::string> names;
    static const std::regex name(R"(([a-z0-9][a-z0-9.+-]+)(?:\s*\([^)]*\))?)");
    for (auto it = std::sregex_iterator(depends.begin(), depends.end(), name);
         it != std::sregex_iterator(); ++it) {
        names.insert((*it)[1].str());
    }
    return names;
}

class PackageTest : public ::testing::Test {
protected:
    // The package CTest's setup step made for all package tests, when it is there and not older
    // than the program; otherwise one made here, in a fresh folder of this test's own.
    void usePackage() {
        const fs::path shared = fs::path(TOVRIN_BINARY_DIR) / "tests" / "install" / "package";
        std::error_code error;
        std::vector<fs::path> found;
        for (const auto& entry : fs::directory_iterator(shared, error)) {
            if (entry.path().extension() == ".deb") {
                found.push_back(entry.path());
            }
        }
        if (found.size() == 1) {
            const auto packageTime = fs::last_write_time(found.front(), error);
            const bool packageKnown = !error;
            const auto programTime =
                fs::last_write_time(fs::path(TOVRIN_BINARY_DIR) / "bin" / "tovrin", error);
            if (packageKnown && !error && packageTime >= programTime) {
                m_package = found.front();
                return;
            }
        }
        ASSERT_NO_FATAL_FAILURE(buildPackage());
    }

    void buildPackage() {
        m_work = makeTemporaryFolder("tovrin-package");
        ASSERT_FALSE(m_work.empty());
        const auto cpack =
            runCommand(TOVRIN_CPACK_COMMAND,
                       {"--config", std::string(TOVRIN_BINARY_DIR) + "/CPackConfig.cmake", "-B",
                        m_work.string()},
                       {.environment = {},
                        .unset = {},
                        .workingDirectory = m_work,
                        .timeLimit = std::chrono::seconds(120)});
        ASSERT_TRUE(cpack.succeeded()) << cpack.describe();
        for (const auto& entry : fs::directory_iterator(m_work)) {
            if (entry.path().extension() == ".deb") {
                ASSERT_TRUE(m_package.empty()) << "more than one package was made";
                m_package = entry.path();
            }
        }
        ASSERT_FALSE(m_package.empty()) << "cpack made no .deb";
    }

    void TearDown() override {
        if (!m_work.empty()) {
            std::error_code ignored;
            fs::remove_all(m_work, ignored);
        }
    }

    std::string field(const std::string& name) const {
        const auto result = runCommand("dpkg-deb", {"--field", m_package.string(), name});
        EXPECT_TRUE(result.succeeded()) << result.describe();
        auto value = result.standardOutput;
        while (!value.empty() && (value.back() == '\n' || value.back() == ' ')) {
            value.pop_back();
        }
        return value;
    }

    std::vector<PackagedPath> contents() const {
        const auto result = runCommand("dpkg-deb", {"--contents", m_package.string()});
        EXPECT_TRUE(result.succeeded()) << result.describe();
        return parseContents(result.standardOutput);
    }

    fs::path m_work;
    fs::path m_package;
};

TEST_F(PackageTest, ControlFieldsAndDependencies) {
    ASSERT_NO_FATAL_FAILURE(usePackage());
    EXPECT_EQ(field("Package"), "tovrin");
    EXPECT_EQ(field("Version"), "1.1.0");
    EXPECT_FALSE(field("Maintainer").empty());
    EXPECT_EQ(field("Section"), "utils");
    EXPECT_NE(field("Description").find("iPhone"), std::string::npos);
    EXPECT_EQ(m_package.filename().string().rfind("tovrin_1.1.0_", 0), 0u) << m_package;

    const auto depends = dependencyNames(field("Depends"));
    // Run, not linked: named by hand.
    for (const auto* tool : {"libimobiledevice-utils", "usbmuxd"}) {
        EXPECT_TRUE(depends.count(tool)) << tool;
    }
    // Every shared library the program links is covered by a package: dpkg-shlibdeps must have
    // run. (Debian names Qt's packages after the library: libQt6Widgets.so.6 -> libqt6widgets6.)
    const auto needed =
        runCommand("objdump", {"-p", std::string(TOVRIN_BINARY_DIR) + "/bin/tovrin"});
    ASSERT_TRUE(needed.succeeded()) << needed.describe();
    static const std::regex qtLibrary(R"(NEEDED\s+libQt6(\w+)\.so\.6)");
    int qtLibraries = 0;
    for (auto it = std::sregex_iterator(needed.standardOutput.begin(), needed.standardOutput.end(),
                                        qtLibrary);
         it != std::sregex_iterator(); ++it) {
        std::string package = "libqt6" + (*it)[1].str() + "6";
        for (auto& c : package) {
            c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        }
        EXPECT_TRUE(depends.count(package)) << package;
        ++qtLibraries;
    }
    EXPECT_GE(qtLibraries, 1);
    for (const auto* library :
         {"libc6", "libstdc++6", "libplist3", "libicu72", "libavahi-client3"}) {
        EXPECT_TRUE(depends.count(library)) << library;
    }
    // Wi-Fi phones need avahi-daemon running; the cable works without it.
    EXPECT_TRUE(dependencyNames(field("Recommends")).count("avahi-daemon"));
    // The icons are compiled in; nothing loads them from the system at run time.
    EXPECT_FALSE(depends.count("bootstrap-icons"));
}

TEST_F(PackageTest, InstallsTheBundleIntoUsr) {
    ASSERT_NO_FATAL_FAILURE(usePackage());
    const auto entries = contents();
    ASSERT_FALSE(entries.empty());
    std::map<std::string, PackagedPath> byPath;
    for (const auto& entry : entries) {
        EXPECT_EQ(entry.path.rfind("/usr", 0), 0u) << entry.path << " lies outside /usr";
        byPath[entry.path] = entry;
    }
    const auto has = [&byPath](const std::string& path, char kind) {
        const auto found = byPath.find(path);
        return found != byPath.end() && found->second.kind == kind;
    };
    EXPECT_TRUE(has("/usr/bin/tovrin", '-'));
    EXPECT_TRUE(has("/usr/share/tovrin/Info", '-'));
    EXPECT_TRUE(has("/usr/share/tovrin/OpenSourceNotices.txt", '-'));
    EXPECT_TRUE(has("/usr/share/applications/com.quenby.Tovrin.desktop", '-'));
    EXPECT_TRUE(has("/usr/share/metainfo/com.quenby.Tovrin.metainfo.xml", '-'));
    EXPECT_TRUE(has("/usr/share/icons/hicolor/scalable/apps/com.quenby.Tovrin.svg", '-'));
    for (const auto* size :
         {"16x16", "22x22", "24x24", "32x32", "48x48", "64x64", "128x128", "256x256"}) {
        EXPECT_TRUE(has(
            std::string("/usr/share/icons/hicolor/") + size + "/apps/com.quenby.Tovrin.png", '-'))
            << size;
    }
    EXPECT_TRUE(has("/usr/share/man/man1/tovrin.1.gz", '-'));
    EXPECT_TRUE(has("/usr/share/doc/tovrin/copyright", '-'));
    for (const auto* tool : {"idevice_id", "ideviceinfo", "idevicepair", "idevicediagnostics"}) {
        const auto link = std::string("/usr/share/tovrin/Runtime/bin/") + tool;
        ASSERT_TRUE(has(link, 'l')) << link;
        EXPECT_EQ(byPath[link].linkTarget, std::string("/usr/bin/") + tool);
    }
    // The phone settings helper is the program's own: a file of the package, executable.
    const std::string helper = "/usr/share/tovrin/Runtime/bin/tovrin-lockdown";
    ASSERT_TRUE(has(helper, '-')) << helper;
    EXPECT_EQ(byPath[helper].mode, "-rwxr-xr-x");
}

// Purges the package when it goes out of scope.
class PackagePurge {
public:
    explicit PackagePurge(const CommandOptions& options) : m_options(options) {}
    ~PackagePurge() { runCommand("apt-get", {"purge", "-y", "-q", "tovrin"}, m_options); }
    PackagePurge(const PackagePurge&) = delete;
    PackagePurge& operator=(const PackagePurge&) = delete;

private:
    CommandOptions m_options;
};

bool systemInstallAllowed(std::string& why) {
    const auto flag = [](const char* name) {
        const char* value = std::getenv(name);
        return value != nullptr ? std::string(value) : std::string();
    };
    if (flag("CI") != "true" && flag("TOVRIN_TEST_SYSTEM_INSTALL") != "1") {
        why = "installs into /usr only with CI=true or TOVRIN_TEST_SYSTEM_INSTALL=1";
        return false;
    }
    if (::geteuid() != 0) {
        why = "installing the package needs root";
        return false;
    }
    if (!findOnPath("apt-get") || !findOnPath("dpkg-query")) {
        why = "apt-get is not available";
        return false;
    }
    const auto installed = runCommand("dpkg-query", {"-W", "-f=${Status}", "tovrin"});
    if (installed.standardOutput.find("installed") != std::string::npos &&
        installed.standardOutput.find("not-installed") == std::string::npos) {
        why = "a tovrin package is already installed here; it is left alone";
        return false;
    }
    std::error_code error;
    if (fs::exists("/usr/bin/tovrin", error) || fs::exists("/usr/share/tovrin", error)) {
        why = "a tovrin that no package owns is already in /usr; it is left alone";
        return false;
    }
    return true;
}

TEST_F(PackageTest, InstallsWithAptRunsAndPurgesWithoutTrace) {
    std::string why;
    if (!systemInstallAllowed(why)) {
        GTEST_SKIP() << why;
    }
    ASSERT_NO_FATAL_FAILURE(usePackage());
    const auto entries = contents();
    ASSERT_FALSE(entries.empty());
    std::vector<std::string> newFolders;
    for (const auto& entry : entries) {
        if (entry.kind == 'd' && !fs::exists(entry.path)) {
            newFolders.push_back(entry.path);
        }
    }

    const CommandOptions apt{.environment = {{"DEBIAN_FRONTEND", "noninteractive"}},
                             .unset = {},
                             .workingDirectory = m_package.parent_path(),
                             .timeLimit = std::chrono::seconds(240)};
    const auto install = runCommand(
        "apt-get", {"install", "-y", "-q", "--no-install-recommends", m_package.string()}, apt);
    // Purged whatever happens below, so a failed check cannot leave the package on the machine.
    std::optional<PackagePurge> purgeLater;
    purgeLater.emplace(apt);
    ASSERT_TRUE(install.succeeded()) << install.describe();

    const auto where = findOnPath("tovrin");
    ASSERT_TRUE(where);
    EXPECT_EQ(*where, fs::path("/usr/bin/tovrin"));
    const auto version = runCommand(where->string(), {"--version"});
    EXPECT_TRUE(version.succeeded()) << version.describe();
    EXPECT_NE(version.standardOutput.find("1.1"), std::string::npos) << version.standardOutput;
    std::error_code error;
    EXPECT_EQ(fs::canonical("/usr/share/tovrin/Runtime/bin/idevice_id", error),
              fs::canonical("/usr/bin/idevice_id", error));
    EXPECT_FALSE(error) << error.message();
    EXPECT_TRUE(fs::is_regular_file("/usr/share/applications/com.quenby.Tovrin.desktop"));
    // The installed helper runs: with no muxer to ask, it says so with its own code (3).
    const auto listed =
        runCommand("/usr/share/tovrin/Runtime/bin/tovrin-lockdown", {"list"},
                   {.environment = {{"USBMUXD_SOCKET_ADDRESS",
                                     "UNIX:" + (m_package.parent_path() / "no-usbmuxd").string()}},
                    .unset = {},
                    .workingDirectory = m_package.parent_path(),
                    .timeLimit = std::chrono::seconds(30)});
    EXPECT_EQ(listed.exitCode, 3) << listed.describe();
    EXPECT_EQ(listed.standardOutput, "{\"error\":\"MuxerUnavailable\"}\n");

    purgeLater.reset();
    const auto status = runCommand("dpkg-query", {"-W", "-f=${Status}", "tovrin"});
    EXPECT_TRUE(status.standardOutput.empty() ||
                status.standardOutput.find("not-installed") != std::string::npos)
        << status.standardOutput;
    for (const auto& entry : entries) {
        if (entry.kind != 'd') {
            EXPECT_FALSE(fs::exists(fs::symlink_status(entry.path))) << entry.path << " was left";
        }
    }
    for (const auto& folder : newFolders) {
        EXPECT_FALSE(fs::exists(folder)) << folder << " was left";
    }
}

} // namespace
} // namespace ambrel::installtest
