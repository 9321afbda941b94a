#include "phone/DeviceIdentifiers.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace ambrel {
namespace {

using Identifiers = std::vector<std::string>;

TEST(DeviceIdentifiersTest, OneIdentifierPerLine) {
    EXPECT_EQ(parseDeviceIdentifiers("00008110-001A2B3C4D5E6F70\n"),
              (Identifiers{"00008110-001A2B3C4D5E6F70"}));
    EXPECT_EQ(parseDeviceIdentifiers("abc\nDEF\n0123"), (Identifiers{"abc", "DEF", "0123"}));
    EXPECT_EQ(parseDeviceIdentifiers(""), Identifiers{});
    EXPECT_EQ(parseDeviceIdentifiers("\n\n\n"), Identifiers{});
}

TEST(DeviceIdentifiersTest, EveryLineBreakSplits) {
    EXPECT_EQ(parseDeviceIdentifiers("a1\nb2\vc3\fd4\re5\r\nf6\xC2\x85"
                                     "a7\xE2\x80\xA8"
                                     "b8\xE2\x80\xA9"
                                     "c9"),
              (Identifiers{"a1", "b2", "c3", "d4", "e5", "f6", "a7", "b8", "c9"}));
}

TEST(DeviceIdentifiersTest, PiecesAreTrimmedOfSpaceAndTabs) {
    EXPECT_EQ(parseDeviceIdentifiers("  abc  \n\tdef\t\n\xC2\xA0"
                                     "123\xE3\x80\x80\n"),
              (Identifiers{"abc", "def", "123"}));
}

TEST(DeviceIdentifiersTest, InvalidPiecesAreDropped) {
    EXPECT_EQ(parseDeviceIdentifiers("0000 8110\n00008110:001A\nxyz\n"
                                     "00008110-001A2B3C4D5E6F70 (USB)\n\xEF\xBC\x91\n-\n"),
              (Identifiers{"-"}));
}

TEST(DeviceIdentifiersTest, LengthLimitIs128Characters) {
    const std::string longest(128, 'f');
    const std::string tooLong(129, 'f');
    EXPECT_EQ(parseDeviceIdentifiers(longest + "\n" + tooLong + "\n"), (Identifiers{longest}));
}

TEST(DeviceIdentifiersTest, TwentyFourDigitsWithHyphenAreKept) {
    EXPECT_EQ(parseDeviceIdentifiers("00008110-001A2B3C4D5E6F70"),
              (Identifiers{"00008110-001A2B3C4D5E6F70"}));
    // A 40-digit identifier of an older phone.
    const std::string older = "a1b2c3d4e5f60718293a4b5c6d7e8f9012345678";
    EXPECT_EQ(parseDeviceIdentifiers(older + "\n"), (Identifiers{older}));
}

TEST(DeviceIdentifiersTest, OrderAndDuplicatesAreKept) {
    EXPECT_EQ(parseDeviceIdentifiers("bb\naa\nbb\n"), (Identifiers{"bb", "aa", "bb"}));
}

} // namespace
} // namespace ambrel
