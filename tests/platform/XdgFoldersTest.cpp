#include "platform/linux/XdgFolders.h"

#include <map>
#include <memory>

#include <gtest/gtest.h>

#include "tests/fakes/FakeEnvironment.h"

namespace ambrel {
namespace {

XdgFolders foldersWith(const std::map<std::string, std::string>& variables) {
    auto environment = std::make_shared<testing::FakeEnvironment>();
    for (const auto& [name, value] : variables) {
        environment->set(name, value);
    }
    return XdgFolders(environment);
}

TEST(XdgFoldersTest, DataHomeWins) {
    const auto folders = foldersWith({{"XDG_DATA_HOME", "/data"}, {"HOME", "/home/anna"}});
    EXPECT_EQ(folders.applicationSupport(), std::filesystem::path("/data"));
}

TEST(XdgFoldersTest, HomeLocalShareByDefault) {
    const auto folders = foldersWith({{"HOME", "/home/anna"}});
    EXPECT_EQ(folders.applicationSupport(), std::filesystem::path("/home/anna/.local/share"));
}

TEST(XdgFoldersTest, RelativePathsDoNotCount) {
    const auto folders = foldersWith({{"XDG_DATA_HOME", "data"}, {"HOME", "/home/anna"}});
    EXPECT_EQ(folders.applicationSupport(), std::filesystem::path("/home/anna/.local/share"));
}

TEST(XdgFoldersTest, NoHomeMeansNoApplicationSupport) {
    EXPECT_FALSE(foldersWith({}).applicationSupport());
    EXPECT_FALSE(foldersWith({{"HOME", ""}}).applicationSupport());
}

TEST(XdgFoldersTest, TemporaryFolder) {
    EXPECT_EQ(foldersWith({}).temporary(), std::filesystem::path("/tmp"));
    EXPECT_EQ(foldersWith({{"TMPDIR", "/var/tmp/me"}}).temporary(),
              std::filesystem::path("/var/tmp/me"));
}

} // namespace
} // namespace ambrel
