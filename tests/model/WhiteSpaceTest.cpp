#include "model/WhiteSpace.h"

#include <string>

#include <gtest/gtest.h>

namespace ambrel {
namespace {

TEST(WhiteSpaceTest, UnicodesWhiteSpaceCharactersAreWhiteSpace) {
    for (const char32_t character :
         {U'\t', U'\n', U'\v', U'\f', U'\r', U' ', U'\u0085', U'\u00A0', U'\u1680', U'\u2000',
          U'\u2005', U'\u200A', U'\u2028', U'\u2029', U'\u202F', U'\u205F', U'\u3000'}) {
        EXPECT_TRUE(isWhitespaceOrNewline(character)) << static_cast<std::uint32_t>(character);
    }
}

TEST(WhiteSpaceTest, LookalikesAreNot) {
    // Zero-width space, zero-width no-break space, Mongolian vowel separator, NUL, next to the
    // ranges.
    for (const char32_t character :
         {U'\u200B', U'\uFEFF', U'\u180E', U'\0', U'\u001F', U'\u1FFF', U'\u200C', U'x'}) {
        EXPECT_FALSE(isWhitespaceOrNewline(character)) << static_cast<std::uint32_t>(character);
    }
}

TEST(WhiteSpaceTest, TrimmingRemovesWhiteSpaceAndLineBreaksAtBothEnds) {
    EXPECT_EQ(trimmingWhitespaceAndNewlines("  a b \n"), "a b");
    EXPECT_EQ(trimmingWhitespaceAndNewlines("\t\v\f\r\n x"), "x");
    EXPECT_EQ(trimmingWhitespaceAndNewlines("\xC2\x85\xC2\xA0x\xE2\x80\xA8\xE2\x80\xA9\xE3\x80\x80"
                                            "\xE2\x80\x8A"),
              "x");
    EXPECT_EQ(trimmingWhitespaceAndNewlines(" \n\t"), "");
    EXPECT_EQ(trimmingWhitespaceAndNewlines(""), "");
    // Zero-width space is not white space.
    EXPECT_EQ(trimmingWhitespaceAndNewlines("\xE2\x80\x8Bx"), "\xE2\x80\x8Bx");
    // Inner white space stays.
    EXPECT_EQ(trimmingWhitespaceAndNewlines("\xE2\x80\x83My  Widget\xC2\xA0"), "My  Widget");
}

TEST(WhiteSpaceTest, IllFormedBytesAreContent) {
    EXPECT_EQ(trimmingWhitespaceAndNewlines(" \xFF "), "\xFF");
    // A cut-off space character is not a space.
    EXPECT_EQ(trimmingWhitespaceAndNewlines("x \xE2\x80"), "x \xE2\x80");
    EXPECT_EQ(trimmingWhitespaceAndNewlines("\xC0\xA0x"), "\xC0\xA0x");
}

TEST(WhiteSpaceTest, TheViewPointsIntoTheText) {
    const std::string text = "  abc  ";
    const auto trimmed = trimmingWhitespaceAndNewlines(text);
    EXPECT_EQ(trimmed.data(), text.data() + 2);
    EXPECT_EQ(trimmed.size(), 3u);
}

} // namespace
} // namespace ambrel
