#include "platform/linux/DesktopEntry.h"

#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/app/ProcessHarness.h"

namespace ambrel {
namespace {

// What a desktop reads back from an Exec value, following the Desktop Entry rules step by step:
// the key file's string escapes first, then "%%", then the argument quoting. Absent when the
// text breaks a rule (an unknown escape, a lone '%', an unterminated quote, a reserved
// character outside quotes).
std::optional<std::vector<std::string>> readExec(const std::string& value) {
    std::string unescaped;
    for (std::size_t i = 0; i < value.size(); ++i) {
        if (value[i] != '\\') {
            unescaped += value[i];
            continue;
        }
        if (++i == value.size()) {
            return std::nullopt;
        }
        switch (value[i]) {
        case 's':
            unescaped += ' ';
            break;
        case 'n':
            unescaped += '\n';
            break;
        case 't':
            unescaped += '\t';
            break;
        case 'r':
            unescaped += '\r';
            break;
        case '\\':
            unescaped += '\\';
            break;
        default:
            // The quoting layer's own escapes ("\$", "\"", "\`") pass through to it.
            unescaped += '\\';
            unescaped += value[i];
        }
    }
    std::string expanded;
    for (std::size_t i = 0; i < unescaped.size(); ++i) {
        if (unescaped[i] == '%') {
            if (i + 1 == unescaped.size() || unescaped[i + 1] != '%') {
                return std::nullopt;
            }
            ++i;
        }
        expanded += unescaped[i];
    }
    std::vector<std::string> arguments;
    std::string current;
    bool inArgument = false;
    const std::string reserved = "\t\n\"'\\><~|&;$*?#()`";
    for (std::size_t i = 0; i < expanded.size(); ++i) {
        const char c = expanded[i];
        if (c == ' ') {
            if (inArgument) {
                arguments.push_back(current);
                current.clear();
                inArgument = false;
            }
            continue;
        }
        inArgument = true;
        if (c == '"') {
            for (++i;; ++i) {
                if (i == expanded.size()) {
                    return std::nullopt;
                }
                if (expanded[i] == '"') {
                    break;
                }
                if (expanded[i] == '\\') {
                    if (i + 1 == expanded.size() ||
                        std::string("\"`$\\").find(expanded[i + 1]) == std::string::npos) {
                        return std::nullopt;
                    }
                    ++i;
                } else if (expanded[i] == '`' || expanded[i] == '$') {
                    return std::nullopt;
                }
                current += expanded[i];
            }
            continue;
        }
        if (reserved.find(c) != std::string::npos) {
            return std::nullopt;
        }
        current += c;
    }
    if (inArgument) {
        arguments.push_back(current);
    }
    return arguments;
}

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
