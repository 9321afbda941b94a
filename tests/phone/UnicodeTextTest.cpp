#include "phone/UnicodeText.h"

#include <string>

#include <gtest/gtest.h>

namespace ambrel {
namespace {

const std::string kReplacement = "\xEF\xBF\xBD";

TEST(UnicodeTextTest, WellFormedTextIsKept) {
    const std::string text = "plain, caf\xC3\xA9, \xE2\x80\x99, \xF0\x9F\x94\x8B";
    EXPECT_EQ(decodeUtf8Lossy(text), text);
    EXPECT_EQ(decodeUtf8Lossy(std::string("a\0b", 3)), std::string("a\0b", 3));
}

TEST(UnicodeTextTest, IllFormedSequencesBecomeReplacementCharacters) {
    // A stray continuation byte, and bytes never used in UTF-8.
    EXPECT_EQ(decodeUtf8Lossy("a\x80z"), "a" + kReplacement + "z");
    EXPECT_EQ(decodeUtf8Lossy("\xFF\xFE"), kReplacement + kReplacement);
    // Overlong forms and surrogates.
    EXPECT_EQ(decodeUtf8Lossy("\xC0\xAF"), kReplacement + kReplacement);
    EXPECT_EQ(decodeUtf8Lossy("\xE0\x80\xAF"), kReplacement + kReplacement + kReplacement);
    EXPECT_EQ(decodeUtf8Lossy("\xED\xA0\x80"), kReplacement + kReplacement + kReplacement);
    // Beyond U+10FFFF.
    EXPECT_EQ(decodeUtf8Lossy("\xF4\x90\x80\x80"),
              kReplacement + kReplacement + kReplacement + kReplacement);
    // A truncated sequence is one replacement, whatever follows.
    EXPECT_EQ(decodeUtf8Lossy("\xE2\x82"), kReplacement);
    EXPECT_EQ(decodeUtf8Lossy("\xE2\x82z"), kReplacement + "z");
    EXPECT_EQ(decodeUtf8Lossy("\xF0\x9F\x94"), kReplacement);
}

TEST(UnicodeTextTest, CharacterCutAtTheEndBecomesOneReplacement) {
    // A capped stream can end inside a character: its first bytes become one replacement.
    EXPECT_EQ(decodeUtf8Lossy("ab\xE2\x80"), "ab" + kReplacement);
}

TEST(UnicodeTextTest, CharacterCountCountsWhatAReaderSees) {
    EXPECT_EQ(characterCount(""), 0u);
    EXPECT_EQ(characterCount("iPhone"), 6u);
    EXPECT_EQ(characterCount("Anna\xE2\x80\x99s"), 6u);
    // e + combining acute; a thumb with a skin tone; a family joined by zero-width joiners.
    EXPECT_EQ(characterCount("e\xCC\x81"), 1u);
    EXPECT_EQ(characterCount("\xF0\x9F\x91\x8D\xF0\x9F\x8F\xBD"), 1u);
    EXPECT_EQ(characterCount("\xF0\x9F\x91\xA8\xE2\x80\x8D\xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F"
                             "\x91\xA7"),
              1u);
    EXPECT_EQ(characterCount("\r\n"), 1u);
}

} // namespace
} // namespace ambrel
