// The installed program run from its install prefix: it finds its resource folder and tool
// links there, and its one-shot switches work without a display.

#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/install/CommandResult.h"
#include "tests/install/InstalledTree.h"

namespace ambrel::installtest {
namespace {

namespace fs = std::filesystem;

const std::string kHelperMissing = "iPhone helper is missing. Reinstall Tovrin.";

// What a phone check can end with when no phone is reachable at all.
const std::set<std::string> kUnreachableMessages = {
    "iPhone not found. Pair once by USB, enable Finder\u2019s Wi-Fi option, and use the same "
    "Wi-Fi.",
    "Couldn\u2019t reach the iPhone service. Reconnect your phone or reopen Tovrin.",
    "iPhone is temporarily unavailable. Keep it on the same Wi-Fi and refresh, or wait for the "
    "next check.",
    "iPhone didn\u2019t respond. Keep it on the same Wi-Fi, then try again.",
};

class InstalledProgramTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_tree = std::make_unique<InstalledTree>();
        ASSERT_TRUE(m_tree->installation().succeeded()) << m_tree->installation().describe();
    }

    // The single JSON line a one-shot switch prints.
    static nlohmann::json jsonLine(const CommandResult& result) {
        const auto& text = result.standardOutput;
        EXPECT_FALSE(text.empty());
        EXPECT_EQ(text.find('\n'), text.size() - 1) << "not exactly one line: " << text;
        return nlohmann::json::parse(text, nullptr, false);
    }

    // Runs the program with `arguments`: it succeeds and prints its one JSON object, `report`.
    void runForReport(const std::vector<std::string>& arguments, nlohmann::json& report) const {
        const auto result = m_tree->runProgram(arguments);
        ASSERT_TRUE(result.succeeded()) << result.describe();
        report = jsonLine(result);
        ASSERT_TRUE(report.is_object()) << result.standardOutput;
    }

    // Runs "--diagnose" and hands back its first check, the one of the tools and the helper.
    void diagnoseTools(nlohmann::json& tools) const {
        const auto result = m_tree->runProgram({"--diagnose"});
        // No usbmuxd answers here, so the check as a whole fails.
        EXPECT_EQ(result.exitCode, 1) << result.describe();
        const auto report = jsonLine(result);
        ASSERT_TRUE(report.is_object()) << result.standardOutput;
        ASSERT_FALSE(report["checks"].empty()) << result.standardOutput;
        tools = report["checks"][0];
    }

    std::unique_ptr<InstalledTree> m_tree;
};

TEST_F(InstalledProgramTest, ReadingsFindTheLinkedTools) {
    nlohmann::json report;
    ASSERT_NO_FATAL_FAILURE(runForReport({"--readings"}, report));
    for (const auto* key : {"mac", "macStatus", "phone", "phoneSetupState", "phoneStatus"}) {
        EXPECT_TRUE(report.contains(key)) << key;
    }
    // The tools ran (from the installed links) and found no usbmuxd to ask.
    const auto phoneStatus = report.value("phoneStatus", "");
    EXPECT_NE(phoneStatus, kHelperMissing);
    EXPECT_TRUE(kUnreachableMessages.count(phoneStatus)) << phoneStatus;
    EXPECT_TRUE(report["phone"].is_null());
    // Nothing to remember without a phone reading.
    EXPECT_FALSE(fs::exists(m_tree->dataHome() / "Ambrel" / "battery-cache.json"));
}

TEST_F(InstalledProgramTest, ReadingsWithoutTheToolLinksReportTheMissingHelper) {
    for (const auto* tool : {"idevice_id", "ideviceinfo"}) {
        fs::remove(m_tree->resources() / "Runtime" / "bin" / tool);
    }
    nlohmann::json report;
    ASSERT_NO_FATAL_FAILURE(runForReport({"--readings"}, report));
    EXPECT_EQ(report.value("phoneStatus", ""), kHelperMissing);
    EXPECT_EQ(report.value("phoneSetupState", ""), "unavailable");
}

// The connection check's first link: the tools and the phone settings helper where the
// installed program looks for them.
TEST_F(InstalledProgramTest, DiagnoseFindsTheInstalledToolsAndHelper) {
    nlohmann::json tools;
    ASSERT_NO_FATAL_FAILURE(diagnoseTools(tools));
    EXPECT_EQ(tools.value("name", ""), "tools");
    EXPECT_EQ(tools.value("status", ""), "passed") << tools.dump();
}

TEST_F(InstalledProgramTest, DiagnoseWithoutTheHelperNamesIt) {
    fs::remove(m_tree->resources() / "Runtime" / "bin" / "tovrin-lockdown");
    nlohmann::json tools;
    ASSERT_NO_FATAL_FAILURE(diagnoseTools(tools));
    EXPECT_EQ(tools.value("status", ""), "failed");
    EXPECT_EQ(tools.value("message", ""),
              "Reinstall Tovrin, since its helper tovrin-lockdown is missing.");
}

TEST_F(InstalledProgramTest, LoginStatusDescribesTheInstalledCopy) {
    nlohmann::json report;
    ASSERT_NO_FATAL_FAILURE(runForReport({"--login-status"}, report));
    EXPECT_EQ(report.value("status", ""), "notRegistered");
    EXPECT_EQ(report.value("enabled", true), false);
    EXPECT_EQ(report.value("bundleIdentifier", ""), "com.quenby.Tovrin");
    const fs::path appPath = report.value("appPath", "");
    const auto prefix = fs::weakly_canonical(m_tree->prefix()).string();
    EXPECT_EQ(fs::weakly_canonical(appPath).string().rfind(prefix, 0), 0u)
        << appPath << " is not inside " << prefix;
    // Asking writes nothing.
    EXPECT_FALSE(fs::exists(m_tree->configHome() / "autostart"));
}

TEST_F(InstalledProgramTest, EnableLoginWritesAnAutostartEntryTheDesktopAccepts) {
    nlohmann::json report;
    ASSERT_NO_FATAL_FAILURE(runForReport({"--enable-login"}, report));
    EXPECT_EQ(report.value("status", ""), "enabled");
    EXPECT_EQ(report.value("enabled", false), true);

    const auto entry = m_tree->configHome() / "autostart" / "com.quenby.Tovrin.desktop";
    ASSERT_TRUE(fs::is_regular_file(entry));
    const auto text = readText(entry);
    EXPECT_NE(text.find(fs::weakly_canonical(m_tree->program()).string()), std::string::npos)
        << text;
    const auto validator = findOnPath("desktop-file-validate");
    ASSERT_TRUE(validator) << "desktop-file-validate is missing (Debian: desktop-file-utils)";
    const auto validation = runCommand(validator->string(), {entry.string()});
    EXPECT_TRUE(validation.succeeded()) << validation.describe();

    const auto status = m_tree->runProgram({"--login-status"});
    ASSERT_TRUE(status.succeeded()) << status.describe();
    EXPECT_EQ(jsonLine(status).value("status", ""), "enabled");
}

TEST_F(InstalledProgramTest, VersionNamesTheRelease) {
    const auto result = m_tree->runProgram({"--version"});
    ASSERT_TRUE(result.succeeded()) << result.describe();
    EXPECT_NE(result.standardOutput.find("Tovrin"), std::string::npos) << result.standardOutput;
    EXPECT_NE(result.standardOutput.find("1.1.0"), std::string::npos) << result.standardOutput;
}

} // namespace
} // namespace ambrel::installtest
