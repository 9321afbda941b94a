#include "platform/linux/LinuxHostInfo.h"

#include <gtest/gtest.h>
#include <unistd.h>

namespace ambrel {
namespace {

const std::filesystem::path kHosts = std::filesystem::path(TOVRIN_FIXTURES_DIR) / "host";

TEST(LinuxHostInfoTest, PrettyHostNameAndDeviceTreeModel) {
    LinuxHostInfo host(kHosts / "with-machine-info");
    EXPECT_EQ(host.localizedName(), "Anna\u2019s \"Work\" Laptop");
    EXPECT_EQ(host.rawModelIdentifier(), std::string("Pine64 PinebookPro\0", 19));
}

TEST(LinuxHostInfoTest, EmptyPrettyNameFallsBackToTheHostName) {
    LinuxHostInfo host(kHosts / "dmi-only");
    char buffer[256] = {};
    ASSERT_EQ(gethostname(buffer, sizeof buffer - 1), 0);
    EXPECT_EQ(host.localizedName(), std::string(buffer));
    // The DMI name loses its newline and gains the terminating zero of a stored identifier.
    EXPECT_EQ(host.rawModelIdentifier(), std::string("MacBookPro11,4\0", 15));
}

TEST(LinuxHostInfoTest, NoModelFilesMeansNoModel) {
    LinuxHostInfo host(kHosts / "no-such-root");
    EXPECT_FALSE(host.rawModelIdentifier());
}

TEST(LinuxHostInfoTest, PrettyHostNameParsing) {
    EXPECT_EQ(LinuxHostInfo::prettyHostName("PRETTY_HOSTNAME=Lab\n"), "Lab");
    EXPECT_EQ(LinuxHostInfo::prettyHostName("PRETTY_HOSTNAME='It''s'\n"), "It''s");
    EXPECT_EQ(LinuxHostInfo::prettyHostName("A=1\nPRETTY_HOSTNAME=\"x\\\\y\"\n"), "x\\y");
    EXPECT_EQ(LinuxHostInfo::prettyHostName("PRETTY_HOSTNAME=a\nPRETTY_HOSTNAME=b"), "b");
    EXPECT_FALSE(LinuxHostInfo::prettyHostName("PRETTY_HOSTNAME=\"  \"\n"));
    EXPECT_FALSE(LinuxHostInfo::prettyHostName("HOSTNAME=plain\n"));
    EXPECT_FALSE(LinuxHostInfo::prettyHostName(""));
}

} // namespace
} // namespace ambrel
