#include "platform/linux/ExecutableBundle.h"

#include <fstream>

#include <gtest/gtest.h>

namespace ambrel {
namespace {

class ExecutableBundleTest : public ::testing::Test {
protected:
    void SetUp() override {
        m_root = std::filesystem::path(::testing::TempDir()) /
                 ("bundle-" +
                  std::string(::testing::UnitTest::GetInstance()->current_test_info()->name()));
        std::filesystem::remove_all(m_root);
        std::filesystem::create_directories(m_root / "bin");
    }
    void TearDown() override { std::filesystem::remove_all(m_root); }

    void writeInfo(const std::string& text) {
        std::filesystem::create_directories(m_root / "share" / "tovrin");
        std::ofstream(m_root / "share" / "tovrin" / "Info") << text;
    }

    std::filesystem::path m_root;
};

TEST_F(ExecutableBundleTest, ResourcesBesideTheExecutable) {
    writeInfo(R"({"CFBundleDisplayName": " Tovrin ", "CFBundleIdentifier": "com.quenby.Tovrin",
                  "Count": 3})");
    ExecutableBundle bundle(m_root / "bin" / "tovrin");
    EXPECT_EQ(bundle.executablePath(), m_root / "bin" / "tovrin");
    EXPECT_EQ(bundle.resourceFolder(), m_root / "share" / "tovrin");
    EXPECT_EQ(bundle.infoString("CFBundleDisplayName"), " Tovrin ");
    EXPECT_EQ(bundle.infoString("CFBundleIdentifier"), "com.quenby.Tovrin");
    // Values that are not text are not information strings.
    EXPECT_FALSE(bundle.infoString("Count"));
    EXPECT_FALSE(bundle.infoString("Missing"));
}

TEST_F(ExecutableBundleTest, NoResourceFolder) {
    ExecutableBundle bundle(m_root / "bin" / "tovrin");
    EXPECT_FALSE(bundle.resourceFolder());
    EXPECT_FALSE(bundle.infoString("CFBundleDisplayName"));
}

TEST_F(ExecutableBundleTest, BrokenInfoGivesNoValues) {
    writeInfo("{\"CFBundleDisplayName\": ");
    ExecutableBundle bundle(m_root / "bin" / "tovrin");
    EXPECT_TRUE(bundle.resourceFolder());
    EXPECT_FALSE(bundle.infoString("CFBundleDisplayName"));
}

TEST_F(ExecutableBundleTest, RunningExecutableIsFound) {
    ExecutableBundle bundle;
    EXPECT_TRUE(bundle.executablePath().is_absolute());
    EXPECT_EQ(bundle.executablePath().filename(), "ambrel_platform_tests");
}

} // namespace
} // namespace ambrel
