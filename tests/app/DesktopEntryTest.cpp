#include "platform/linux/DesktopEntry.h"

#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/app/ProcessHarness.h"
#include "tests/fakes/DesktopExecReader.h"

namespace ambrel {
namespace {

using testing::readExec;

const std::vector<std::string> kAwkwardPaths = {
    "/usr/bin/tovrin",
    "/opt/My Apps/bin/tovrin",
    "/home/anna/Programs \"quoted\"/bin/tovrin",
    "/home/anna/it's/bin/tovrin",
    "/home/anna/back\\slash/bin/tovrin",
    "/home/anna/$HOME/bin/tovrin",
    "/home/anna/`date`/bin/tovrin",
    "/home/anna/100% sure/bin/tovrin",
    "/home/anna/%f/bin/tovrin",
    "/home/anna/semi;colon & amp|pipe/<in>/tovrin",
    "/home/anna/star*/what?/#hash/(paren)/~tilde/tovrin",
    "/home/anna/tab\there/bin/tovrin",
    "/home/anna/new\nline/bin/tovrin",
    "/home/anna/trailing space /bin/tovrin",
    "/home/anna/\\\\double\\\"mix$`%%/bin/tovrin",
    "/home/anna/Zoë’s Programme/bin/tovrin",
};

TEST(DesktopEntryTest, PlainPathIsLeftUnquoted) {
    EXPECT_EQ(DesktopEntry::execValue("/usr/bin/tovrin"), "/usr/bin/tovrin");
}

TEST(DesktopEntryTest, SpacesAreQuoted) {
    EXPECT_EQ(DesktopEntry::execValue("/opt/My Apps/bin/tovrin"), "\"/opt/My Apps/bin/tovrin\"");
}

TEST(DesktopEntryTest, BackslashBecomesFourInTheFile) {
    EXPECT_EQ(DesktopEntry::quoteExecArgument("/a\\b"), "\"/a\\\\b\"");
    EXPECT_EQ(DesktopEntry::execValue("/a\\b"), "\"/a\\\\\\\\b\"");
}

TEST(DesktopEntryTest, DollarBecomesBackslashBackslashDollarInTheFile) {
    EXPECT_EQ(DesktopEntry::execValue("/a/$HOME"), "\"/a/\\\\$HOME\"");
}

TEST(DesktopEntryTest, QuoteAndBacktickAreEscapedInsideQuotes) {
    EXPECT_EQ(DesktopEntry::quoteExecArgument("/a\"b`c"), "\"/a\\\"b\\`c\"");
}

TEST(DesktopEntryTest, PercentIsDoubledQuotedOrNot) {
    EXPECT_EQ(DesktopEntry::quoteExecArgument("/a/100%"), "/a/100%%");
    EXPECT_EQ(DesktopEntry::quoteExecArgument("/a b/%f"), "\"/a b/%%f\"");
}

TEST(DesktopEntryTest, EmptyArgumentIsAPairOfQuotes) {
    EXPECT_EQ(DesktopEntry::quoteExecArgument(""), "\"\"");
}

TEST(DesktopEntryTest, ControlCharactersUseTheKeyFileEscapes) {
    EXPECT_EQ(DesktopEntry::escapeStringValue("a\nb\tc\rd"), "a\\nb\\tc\\rd");
    EXPECT_EQ(DesktopEntry::escapeStringValue(" lead"), "\\slead");
    EXPECT_EQ(DesktopEntry::escapeStringValue("in side"), "in side");
}

TEST(DesktopEntryTest, EveryAwkwardPathReadsBackAsOneArgument) {
    for (const auto& path : kAwkwardPaths) {
        const auto value = DesktopEntry::execValue(path);
        EXPECT_EQ(value.find('\n'), std::string::npos) << value;
        const auto arguments = readExec(value);
        ASSERT_TRUE(arguments.has_value()) << value;
        ASSERT_EQ(arguments->size(), 1u) << value;
        EXPECT_EQ(arguments->front(), path) << value;
    }
}

// The quoting rules are a subset of the shell's double quotes: once the key-file escapes and
// "%%" are undone, /bin/sh must see exactly the path as one word.
TEST(DesktopEntryTest, TheShellAgreesOnEveryAwkwardPath) {
    for (const auto& path : kAwkwardPaths) {
        std::string quoted = DesktopEntry::quoteExecArgument(path);
        std::string shellText;
        for (std::size_t i = 0; i < quoted.size(); ++i) {
            shellText += quoted[i];
            if (quoted[i] == '%') {
                ++i; // "%%" stands for one '%'
            }
        }
        const auto result = testing::runProcess(
            {"/bin/sh", "-c", "printf '%s' " + shellText + "; printf '|%s' $#", "sh"}, {});
        EXPECT_EQ(result.exitCode, 0) << shellText;
        EXPECT_EQ(result.out, path + "|0") << shellText;
    }
}

TEST(DesktopEntryTest, ParsesOnlyTheMainGroup) {
    const auto fields = DesktopEntry::parseMainGroup("# comment\n"
                                                     "[Other]\n"
                                                     "Hidden=true\n"
                                                     "[Desktop Entry]\n"
                                                     "Exec = /usr/bin/tovrin\n"
                                                     "  Hidden=false\r\n"
                                                     "Hidden=true\n"
                                                     "\n"
                                                     "Name[de]=Tovrin DE\n"
                                                     "[Desktop Action x]\n"
                                                     "X-GNOME-Autostart-enabled=false\n");
    EXPECT_EQ(fields.at("Exec"), "/usr/bin/tovrin");
    EXPECT_EQ(fields.at("Hidden"), "false");
    EXPECT_EQ(fields.at("Name[de]"), "Tovrin DE");
    EXPECT_EQ(fields.count("X-GNOME-Autostart-enabled"), 0u);
}

TEST(DesktopEntryTest, TextWithoutTheGroupHasNoFields) {
    EXPECT_TRUE(DesktopEntry::parseMainGroup("Exec=/usr/bin/tovrin\n").empty());
    EXPECT_TRUE(DesktopEntry::parseMainGroup("").empty());
}

} // namespace
} // namespace ambrel
