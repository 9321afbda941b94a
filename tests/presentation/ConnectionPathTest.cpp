// The connection check as the connection window tells it: the real check against a probe whose
// answers each test sets, then the path made of its report.
#include "presentation/ConnectionPath.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/diagnosis/FakeConnectionProbe.h"

namespace ambrel {
namespace {

using Probe = testing::FakeConnectionProbe;

ConnectionPath pathOf(Probe& probe) {
    return ConnectionPath::of(ConnectionCheck::run(probe, CheckPlace::connectionWindow));
}

std::vector<std::string> titles(const ConnectionPath& path) {
    std::vector<std::string> list;
    for (const auto& step : path.steps) {
        list.push_back(step.title);
    }
    return list;
}

std::vector<CheckStatus> statuses(const ConnectionPath& path) {
    std::vector<CheckStatus> list;
    for (const auto& step : path.steps) {
        list.push_back(step.status);
    }
    return list;
}

constexpr auto kDone = CheckStatus::passed;
constexpr auto kFailed = CheckStatus::failed;

TEST(ConnectionPathTest, AllWellShowsEveryStepDoneAndNothingToDo) {
    Probe probe;
    const auto path = pathOf(probe);
    EXPECT_EQ(titles(path),
              (std::vector<std::string>{"Phone tools installed", "USB service running",
                                        "iPhone connected by cable", "iPhone trusts this computer",
                                        "Wi-Fi connections on", "Network discovery on",
                                        "iPhone seen on this network", "iPhone recognised",
                                        "iPhone answers over Wi-Fi", "Battery read over Wi-Fi"}));
    EXPECT_EQ(statuses(path), std::vector<CheckStatus>(10, kDone));
    EXPECT_FALSE(path.problem);
    EXPECT_EQ(path.folded, 0);
    EXPECT_EQ(path.foldedLine, "");
    EXPECT_EQ(path.summary, "Your iPhone can be read over USB and over Wi-Fi.");
}

TEST(ConnectionPathTest, WifiConnectionsOffAreTurnedOnFromTheWindow) {
    Probe probe;
    probe.phone.wifiConnections = false;
    // With them off the phone is not on the network either.
    probe.adverts.clear();
    const auto path = pathOf(probe);
    EXPECT_EQ(statuses(path), (std::vector<CheckStatus>{kDone, kDone, kDone, kDone, kFailed}));
    ASSERT_TRUE(path.problem);
    EXPECT_EQ(path.problem->whatIsWrong, "Wi-Fi connections are off for this iPhone.");
    EXPECT_EQ(path.problem->whatToDo, "Turn them on while the iPhone is on the cable.");
    EXPECT_EQ(path.problem->action, PathAction::turnOnWifi);
    EXPECT_EQ(path.problem->actionTitle, "Turn On");
    EXPECT_EQ(path.problem->command, "");
    // The five network steps come after it, whatever they found.
    EXPECT_EQ(path.folded, 5);
    EXPECT_EQ(path.foldedLine, "5 more checks wait for this one");
    EXPECT_EQ(path.summary,
              "Your iPhone can be read over USB. To read it over Wi-Fi too, fix the step below.");
}

TEST(ConnectionPathTest, ALockedPhoneIsToBeUnlocked) {
    Probe probe;
    probe.usbError = LockdownError{LockdownFailure::lockdownError, "PasswordProtected"};
    const auto path = pathOf(probe);
    EXPECT_EQ(statuses(path), (std::vector<CheckStatus>{kDone, kDone, kDone, kFailed}));
    ASSERT_TRUE(path.problem);
    EXPECT_EQ(path.problem->whatIsWrong, "Your iPhone is locked.");
    EXPECT_EQ(path.problem->whatToDo, "Unlock it, then check again.");
    EXPECT_EQ(path.problem->action, PathAction::checkAgain);
    EXPECT_EQ(path.problem->actionTitle, "Check Again");
    EXPECT_EQ(path.foldedLine, "6 more checks wait for this one");
    EXPECT_EQ(path.summary,
              "Your iPhone can\u2019t be read yet. Fix the step below, then check again.");
}

TEST(ConnectionPathTest, AStoppedAvahiDaemonIsNetworkDiscoveryWithTheCommandToStartIt) {
    Probe probe;
    probe.avahi = false;
    const auto path = pathOf(probe);
    ASSERT_EQ(path.steps.size(), 6u);
    EXPECT_EQ(path.steps.back().title, "Network discovery on");
    EXPECT_EQ(path.steps.back().status, kFailed);
    ASSERT_TRUE(path.problem);
    // The person's word first, the process name after it.
    EXPECT_EQ(path.problem->whatIsWrong, "Network discovery (avahi-daemon) is off.");
    EXPECT_EQ(path.problem->command, "sudo systemctl enable --now avahi-daemon");
    EXPECT_EQ(path.problem->action, PathAction::checkAgain);
    EXPECT_EQ(path.foldedLine, "4 more checks wait for this one");

    probe.avahiThere = false;
    const auto missing = pathOf(probe);
    ASSERT_TRUE(missing.problem);
    EXPECT_EQ(missing.problem->whatIsWrong,
              "Network discovery (avahi-daemon) isn\u2019t installed.");
    EXPECT_EQ(missing.problem->command, "sudo apt-get install avahi-daemon");
}

TEST(ConnectionPathTest, AnUntrustedComputerOnTheCableIsPairedFromTheWindow) {
    Probe probe;
    probe.phone.trusted = false;
    probe.phone.trustError = "InvalidHostID";
    probe.wifiError = LockdownError{LockdownFailure::notTrusted, "InvalidHostID"};
    const auto path = pathOf(probe);
    ASSERT_TRUE(path.problem);
    EXPECT_EQ(path.problem->action, PathAction::pair);
    EXPECT_EQ(path.problem->actionTitle, "Pair");
    EXPECT_EQ(path.problem->whatToDo, "Click Pair, then unlock your iPhone and tap Trust.");
}

TEST(ConnectionPathTest, OverWifiAnUntrustedComputerIsToBePairedOnTheCable) {
    Probe probe;
    probe.wifiError = LockdownError{LockdownFailure::notTrusted, "InvalidHostID"};
    const auto path = pathOf(probe);
    ASSERT_TRUE(path.problem);
    EXPECT_EQ(path.steps.back().title, "iPhone answers over Wi-Fi");
    // No Pair button: pairing needs the cable, and the phone is on Wi-Fi.
    EXPECT_EQ(path.problem->action, PathAction::checkAgain);
    EXPECT_EQ(path.problem->whatToDo, "Plug it in, click Pair, and tap Trust on the iPhone.");
    EXPECT_EQ(path.foldedLine, "1 more check waits for this one");
}

TEST(ConnectionPathTest, APhoneReadOverWifiAloneIsWellAndItsCableStepsAreNoProblem) {
    Probe probe;
    probe.muxerPhones = std::vector<PhoneOnMuxer>{};
    probe.known = {{testing::kProbeUdid, testing::kProbeMac}};
    const auto path = pathOf(probe);
    EXPECT_FALSE(path.problem);
    EXPECT_EQ(path.summary, "Your iPhone can be read over Wi-Fi.");
    EXPECT_EQ(statuses(path), std::vector<CheckStatus>(path.steps.size(), kDone));
    EXPECT_EQ(titles(path).back(), "Battery read over Wi-Fi");
    EXPECT_EQ(path.foldedLine, "");
}

TEST(ConnectionPathTest, EveryProblemSaysWhatIsWrongAndWhatToDoInTwoSentences) {
    for (const char* name :
         {"tools", "systemMuxer", "phoneOnUsb", "trusted", "wifiConnections", "avahiDaemon",
          "advertised", "advertMatches", "lockdownOverWifi", "battery"}) {
        EXPECT_NE(ConnectionPath::titleOf(name), name);
        for (const char* cause :
             {"missing", "helperMissing", "notInstalled", "notRunning", "noPhone", "locked",
              "denied", "notPaired", "timedOut", "helperBroken", "refused", "off", "notSeen",
              "neverPaired", "unknownAddress", "unreachable", "noLevel", ""}) {
            const auto problem =
                ConnectionPath::problemOf({name, "", CheckStatus::failed, "Check again.", cause});
            const std::string what = std::string(name) + "/" + cause;
            ASSERT_FALSE(problem.whatIsWrong.empty()) << what;
            ASSERT_FALSE(problem.whatToDo.empty()) << what;
            EXPECT_EQ(problem.whatIsWrong.back(), '.') << what;
            EXPECT_EQ(problem.whatToDo.back(), '.') << what;
            EXPECT_FALSE(problem.actionTitle.empty()) << what;
            // Said as a person would: no process name leads a sentence.
            for (const char* process : {"usbmuxd", "avahi-daemon", "lockdownd", "idevice"}) {
                EXPECT_NE(problem.whatIsWrong.rfind(process, 0), 0u) << what;
                EXPECT_NE(problem.whatToDo.rfind(process, 0), 0u) << what;
            }
        }
    }
    EXPECT_EQ(ConnectionPath::titleOf("somethingNew"), "somethingNew");
}

TEST(ConnectionPathTest, APhonesLineHasItsModelVersionAndLink) {
    EXPECT_EQ(ConnectionPath::phoneLine("iPhone 13 Pro", "17.4", true, false),
              "iPhone 13 Pro \u00b7 iOS 17.4 \u00b7 on USB");
    EXPECT_EQ(ConnectionPath::phoneLine("iPhone 13 Pro", "", false, true),
              "iPhone 13 Pro \u00b7 on Wi-Fi");
    EXPECT_EQ(ConnectionPath::phoneLine("", "17.4", true, true),
              "iOS 17.4 \u00b7 on USB and Wi-Fi");
    EXPECT_EQ(ConnectionPath::phoneLine("", "", false, false), "");
}

} // namespace
} // namespace ambrel
