#include "model/PhoneSetupState.h"

#include <gtest/gtest.h>

namespace ambrel {
namespace {

TEST(PhoneSetupStateTest, RawValuesAreExact) {
    EXPECT_EQ(rawValue(PhoneSetupState::checking), "checking");
    EXPECT_EQ(rawValue(PhoneSetupState::ready), "ready");
    EXPECT_EQ(rawValue(PhoneSetupState::needsPairing), "needsPairing");
    EXPECT_EQ(rawValue(PhoneSetupState::notFound), "notFound");
    EXPECT_EQ(rawValue(PhoneSetupState::unavailable), "unavailable");
}

TEST(PhoneSetupStateTest, EveryRawValueRoundTrips) {
    for (auto state :
         {PhoneSetupState::checking, PhoneSetupState::ready, PhoneSetupState::needsPairing,
          PhoneSetupState::notFound, PhoneSetupState::unavailable}) {
        EXPECT_EQ(phoneSetupStateFromRawValue(rawValue(state)), state);
    }
}

TEST(PhoneSetupStateTest, OnlyExactSpellingsAreAccepted) {
    EXPECT_EQ(phoneSetupStateFromRawValue("notFound"), PhoneSetupState::notFound);
    EXPECT_FALSE(phoneSetupStateFromRawValue("notfound"));
    EXPECT_FALSE(phoneSetupStateFromRawValue("NOTFOUND"));
    EXPECT_FALSE(phoneSetupStateFromRawValue("Ready"));
    EXPECT_FALSE(phoneSetupStateFromRawValue(""));
    EXPECT_FALSE(phoneSetupStateFromRawValue("ready "));
}

} // namespace
} // namespace ambrel
