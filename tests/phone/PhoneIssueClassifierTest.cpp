#include "phone/PhoneIssueClassifier.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace ambrel {
namespace {

using namespace PhoneIssueClassifier;

struct Row {
    std::string name;
    std::optional<CommandOutput> lastFailure;
    bool sawCandidates;
    bool triedWiFi;
    PhoneSetupState state;
    const char* message;
    bool isTransient;
};

CommandOutput failure(const std::string& standardError, int status = 255, bool timedOut = false,
                      const std::string& standardOutput = "") {
    CommandOutput output;
    output.stdoutText = standardOutput;
    output.stderrText = standardError;
    output.status = status;
    output.timedOut = timedOut;
    return output;
}

constexpr auto kNotFoundState = PhoneSetupState::notFound;
constexpr auto kPairingState = PhoneSetupState::needsPairing;
constexpr auto kUnavailableState = PhoneSetupState::unavailable;

std::vector<Row> rows() {
    std::vector<Row> table = {
        // Rule 1: nothing recorded.
        {"NothingRecordedNothingListed", std::nullopt, false, false, kNotFoundState, kNotFound,
         false},
        {"NothingRecordedNothingListedAfterWiFi", std::nullopt, false, true, kNotFoundState,
         kNotFound, true},
        {"NothingRecordedButCandidatesTried", std::nullopt, true, false, kNotFoundState,
         kTemporarilyUnavailable, false},
        {"NothingRecordedButCandidatesTriedOverWiFi", std::nullopt, true, true, kNotFoundState,
         kTemporarilyUnavailable, true},
        // Rule 4: the locked codes, before every text rule.
        {"LockedCodeWithLockedWords",
         failure("ERROR: Could not connect to lockdownd: Password protected (-17)\n"), true, true,
         kNotFoundState, kLocked, false},
        {"LockedCodeWinsOverPairingWords",
         failure("lockdownd: pairing failed, trust this computer (-17)"), false, false,
         kNotFoundState, kLocked, false},
        {"EscrowLockedCode", failure("lockdown error (-35)"), false, false, kNotFoundState, kLocked,
         false},
        {"CodeBeforeTheWordLockdownCounts", failure("(-17) reported by lockdownd"), false, false,
         kNotFoundState, kLocked, false},
        // Rule 5: locked wording.
        {"DeviceIsLockedWithoutLockdown", failure("ERROR: device is locked"), false, false,
         kNotFoundState, kLocked, false},
        {"LockedWordingBeforePairingCode", failure("lockdown says device is locked (-18)"), false,
         false, kNotFoundState, kLocked, false},
        {"UpperCaseLockedWording", failure("PASSWORD PROTECTED"), false, false, kNotFoundState,
         kLocked, false},
        {"UnderscoreLockedWording", failure("error: password_protected"), false, false,
         kNotFoundState, kLocked, false},
        {"EscrowLockedWording", failure("Escrow Locked"), false, false, kNotFoundState, kLocked,
         false},
        {"KelvinSignLowersToK", failure("device is loc\u212Aed"), false, false, kNotFoundState,
         kLocked, false},
        // Rule 6: pairing codes, whatever the words.
        {"PairingCodeWithOtherWords", failure("lockdownd: something odd happened (-19)"), false,
         true, kPairingState, kTrust, false},
        {"InvalidHostIdCodeWithoutThePhrase",
         failure("ERROR: Could not connect to lockdownd: InvalidHostID (-21)"), false, false,
         kPairingState, kTrust, false},
        {"UpperCaseLockdownWithPairingCode", failure("LOCKDOWN FAILED (-4)"), false, false,
         kPairingState, kTrust, false},
        // Rule 8 for codes that do not count.
        {"PairingCodeWithoutParenthesesIsNoCode", failure("lockdownd error code -19"), false, false,
         kUnavailableState, kServiceUnreachable, false},
        {"UnknownCodeDecidesNothing",
         failure("ERROR: Could not connect to lockdownd: Mux error (-8)"), false, false,
         kUnavailableState, kServiceUnreachable, false},
        {"ParenthesisedCodeWithoutLockdownIsIgnored", failure("ERROR: failed (-17)"), false, false,
         kUnavailableState, kServiceUnreachable, false},
        {"OverflowingCodeIsNoCode", failure("lockdown (-99999999999999999999) then (-17)"), false,
         false, kUnavailableState, kServiceUnreachable, false},
        {"PositiveCodeIsNotALockedCode", failure("lockdown (17)"), false, false, kUnavailableState,
         kServiceUnreachable, false},
        {"SpaceInsideParenthesesIsNoCode", failure("lockdown (- 17) (-17 )"), false, false,
         kUnavailableState, kServiceUnreachable, false},
        {"OnlyTheFirstParenthesisedNumberCounts", failure("lockdown (12) (-17)"), false, false,
         kUnavailableState, kServiceUnreachable, false},
        {"NonAsciiDigitsAreNotDigits", failure("lockdown (-\u0661\u0667)"), false, false,
         kUnavailableState, kServiceUnreachable, false},
        {"UnknownCodeWithPairingWords", failure("lockdown: pairing required (-8)"), false, false,
         kPairingState, kTrust, false},
        // Rule 8.
        {"TimedOutOverWiFi", failure("", 143, true), true, true, kNotFoundState, kTimedOut, true},
        {"TimedOutOverUsbOnly", failure("", 143, true), true, false, kNotFoundState, kTimedOut,
         false},
        {"TimedOutListWithoutCandidates", failure("", -1, true), false, false, kNotFoundState,
         kTimedOut, false},
        {"BatteryDataUnavailableRecord", failure("Battery data unavailable", 1), true, false,
         kNotFoundState, kTemporarilyUnavailable, false},
        {"BatteryDataUnavailableRecordOverWiFi", failure("Battery data unavailable", 1), true, true,
         kNotFoundState, kTemporarilyUnavailable, true},
        {"StatusZeroWithoutCandidates", failure("odd", 0), false, true, kNotFoundState, kNotFound,
         true},
        {"FailedListWithUnknownText", failure("ERROR: Unable to retrieve device list!\n"), false,
         false, kUnavailableState, kServiceUnreachable, false},
        {"FailedListWithUnknownTextAfterWiFi", failure("ERROR: Unable to retrieve device list!"),
         false, true, kUnavailableState, kServiceUnreachable, false},
        {"StandardOutputIsNotExamined", failure("", 255, false, "Password protected"), false, false,
         kUnavailableState, kServiceUnreachable, false},
        {"LaunchFailure", failure("Unable to launch iPhone helper", -1), false, false,
         kUnavailableState, kServiceUnreachable, false},
    };
    // Rule 7: every pairing phrase, in any letter case.
    const std::vector<std::string> phrases = {
        "pairing failed",      "Pairing Required",    "NOT PAIRED",
        "invalid pair record", "missing pair record", "invalid host id",
        "missing host id",     "user denied pairing", "pairing dialog response pending",
        "trust dialog",        "trust this computer"};
    for (const auto& phrase : phrases) {
        table.push_back({"PairingPhrase " + phrase, failure("ERROR: " + phrase + ". Try again"),
                         true, true, kPairingState, kTrust, false});
    }
    return table;
}

TEST(PhoneIssueClassifierTest, EveryRuleAndConsequence) {
    for (const auto& row : rows()) {
        SCOPED_TRACE(row.name);
        const auto issue = classify(row.lastFailure, row.sawCandidates, row.triedWiFi);
        EXPECT_EQ(issue.state, row.state);
        EXPECT_EQ(issue.message, row.message);
        EXPECT_EQ(issue.isTransient, row.isTransient);
    }
}

TEST(PhoneIssueClassifierTest, MessagesAreExact) {
    EXPECT_STREQ(kMissingTools, "iPhone helper is missing. Reinstall Tovrin.");
    EXPECT_STREQ(kLocked, "Unlock your iPhone, then refresh its battery reading.");
    EXPECT_STREQ(kTrust, "Unlock your iPhone, connect it by USB and tap Trust. Enable "
                         "Finder\xE2\x80\x99s Wi-Fi option for wireless checks.");
    EXPECT_STREQ(kTimedOut,
                 "iPhone didn\xE2\x80\x99t respond. Keep it on the same Wi-Fi, then try again.");
    EXPECT_STREQ(kTemporarilyUnavailable,
                 "iPhone is temporarily unavailable. Keep it on the same Wi-Fi and refresh, or "
                 "wait for the next check.");
    EXPECT_STREQ(kNotFound, "iPhone not found. Pair once by USB, enable Finder\xE2\x80\x99s "
                            "Wi-Fi option, and use the same Wi-Fi.");
    EXPECT_STREQ(kServiceUnreachable, "Couldn\xE2\x80\x99t reach the iPhone service. Reconnect "
                                      "your phone or reopen Tovrin.");
}

TEST(PhoneIssueClassifierTest, EveryLockedAndPairingCodeInLockdownText) {
    for (const int code : {-17, -35}) {
        const auto issue =
            classify(failure("lockdownd: (" + std::to_string(code) + ")"), false, false);
        EXPECT_EQ(issue.message, kLocked) << code;
    }
    for (const int code : {-4, -18, -19, -20, -21, -29, -30, -31, -36}) {
        const auto issue =
            classify(failure("lockdownd: (" + std::to_string(code) + ")"), false, false);
        EXPECT_EQ(issue.message, kTrust) << code;
        EXPECT_EQ(issue.state, PhoneSetupState::needsPairing) << code;
    }
    for (const int code : {-1, -2, -3, -5, -7, -8, -13, -22, -256, 0, 4, 17}) {
        const auto issue =
            classify(failure("lockdownd: (" + std::to_string(code) + ")"), false, false);
        EXPECT_EQ(issue.message, kServiceUnreachable) << code;
    }
}

} // namespace
} // namespace ambrel
