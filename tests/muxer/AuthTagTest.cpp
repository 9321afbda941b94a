#include "muxer/AuthTag.h"

#include <gtest/gtest.h>

namespace ambrel::testing {
namespace {

TEST(AuthTagTest, MatchesTheKnownVector) {
    EXPECT_EQ(
        authTagFor("11111111-2222-3333-4444-555555555555", "2BE6E510-0325-4365-923E-B14C6F57DB3A"),
        "DNKInlok1wk=");
}

TEST(AuthTagTest, EachPairingAndEachIdentifierGiveTheirOwnTag) {
    const std::string identifier = "2BE6E510-0325-4365-923E-B14C6F57DB3A";
    const auto tag = authTagFor("11111111-2222-3333-4444-555555555555", identifier);
    EXPECT_NE(authTagFor("11111111-2222-3333-4444-555555555556", identifier), tag);
    EXPECT_NE(
        authTagFor("11111111-2222-3333-4444-555555555555", "2BE6E510-0325-4365-923E-B14C6F57DB3B"),
        tag);
    // Twelve characters of base64 for eight bytes, whatever goes in.
    EXPECT_EQ(authTagFor("", "").size(), 12u);
    EXPECT_EQ(authTagFor(std::string(4096, 'x'), std::string(1, '\0')).size(), 12u);
}

} // namespace
} // namespace ambrel::testing
