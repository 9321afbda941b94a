#include "helper/LockdownErrorNames.h"

#include <gtest/gtest.h>
#include <libimobiledevice/lockdown.h>

namespace ambrel {
namespace {

TEST(LockdownErrorNamesTest, NamesThePhonesOwnErrorsAsThePhoneSpellsThem) {
    EXPECT_EQ(LockdownErrorNames::name(LOCKDOWN_E_INVALID_HOST_ID), "InvalidHostID");
    EXPECT_EQ(LockdownErrorNames::name(LOCKDOWN_E_SET_PROHIBITED), "SetProhibited");
    EXPECT_EQ(LockdownErrorNames::name(LOCKDOWN_E_PASSWORD_PROTECTED), "PasswordProtected");
    EXPECT_EQ(LockdownErrorNames::name(LOCKDOWN_E_USER_DENIED_PAIRING), "UserDeniedPairing");
    EXPECT_EQ(LockdownErrorNames::name(LOCKDOWN_E_MC_CHALLENGE_REQUIRED), "MCChallengeRequired");
    EXPECT_EQ(LockdownErrorNames::name(LOCKDOWN_E_MISSING_PAIR_RECORD), "MissingPairRecord");
}

TEST(LockdownErrorNamesTest, NamesTheLibrarysOwnFailures) {
    EXPECT_EQ(LockdownErrorNames::name(LOCKDOWN_E_MUX_ERROR), "MuxError");
    EXPECT_EQ(LockdownErrorNames::name(LOCKDOWN_E_RECEIVE_TIMEOUT), "ReceiveTimeout");
    EXPECT_EQ(LockdownErrorNames::name(LOCKDOWN_E_SUCCESS), "Success");
}

TEST(LockdownErrorNamesTest, AnUnknownCodeIsUnknownError) {
    EXPECT_EQ(LockdownErrorNames::name(LOCKDOWN_E_UNKNOWN_ERROR), "UnknownError");
    EXPECT_EQ(LockdownErrorNames::name(-40), "UnknownError");
    EXPECT_EQ(LockdownErrorNames::name(7), "UnknownError");
}

} // namespace
} // namespace ambrel
