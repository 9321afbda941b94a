#include "platform/linux/XdgFolders.h"

#include <map>

#include <gtest/gtest.h>

namespace ambrel {
namespace {

XdgFolders foldersWith(std::map<std::string, std::string> environment) {
    return XdgFolders([environment](const char* name) -> std::optional<std::string> {
        const auto found = environment.find(name);
        return found == environment.end() ? std::nullopt
                                          : std::optional<std::string>(found->second);
    });
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
