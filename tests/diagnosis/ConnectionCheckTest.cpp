// The connection check's order, skipping and words, against a probe whose every answer the
// test sets: one test per check that fails, and the case where all pass.
#include "diagnosis/ConnectionCheck.h"

#include <functional>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/diagnosis/FakeConnectionProbe.h"

namespace ambrel {
namespace {

const std::string kUdid = testing::kProbeUdid;
const std::string kMac = testing::kProbeMac;
using FakeProbe = testing::FakeConnectionProbe;

std::vector<std::string> statuses(const ConnectionReport& report) {
    std::vector<std::string> names;
    for (const auto& check : report.checks) {
        names.emplace_back(ConnectionCheck::statusName(check.status));
    }
    return names;
}

// Check `index` of `report` ended with `status` and told the user `message`.
void expectCheck(const ConnectionReport& report, std::size_t index, CheckStatus status,
                 const std::string& message) {
    ASSERT_LT(index, report.checks.size());
    EXPECT_EQ(report.checks[index].status, status) << "check " << index;
    EXPECT_EQ(report.checks[index].message, message) << "check " << index;
}

const std::vector<std::string> kNames = {
    "tools",       "systemMuxer", "phoneOnUsb",    "trusted",          "wifiConnections",
    "avahiDaemon", "advertised",  "advertMatches", "lockdownOverWifi", "battery"};

TEST(ConnectionCheckTest, EveryCheckPassesForAPhoneReadOverWifi) {
    FakeProbe probe;
    const auto report = ConnectionCheck::run(probe);
    ASSERT_EQ(report.checks.size(), 10u);
    for (std::size_t i = 0; i < kNames.size(); ++i) {
        EXPECT_EQ(report.checks[i].name, kNames[i]);
        EXPECT_EQ(report.checks[i].status, CheckStatus::passed) << report.checks[i].message;
    }
    EXPECT_TRUE(report.ok);
    EXPECT_TRUE(report.readableOverUsb);
    EXPECT_TRUE(report.readableOverWifi);
    EXPECT_EQ(report.summary,
              "Every check passed: your iPhone can be read over USB and over Wi-Fi.");
    EXPECT_EQ(report.checks[9].message, "The battery is at 87%.");
    EXPECT_EQ(probe.asked,
              (std::vector<std::string>{kUdid + " usb", kUdid + " network", kUdid + " battery"}));
}

TEST(ConnectionCheckTest, MissingToolsFailAndSkipWhatNeedsThem) {
    FakeProbe probe;
    probe.missing = {"idevicepair", "tovrin-lockdown"};
    // Without the helper only the pair records tell which advert is the phone.
    probe.known = {{kUdid, kMac}};
    const auto report = ConnectionCheck::run(probe);
    EXPECT_EQ(statuses(report),
              (std::vector<std::string>{"failed", "passed", "passed", "skipped", "skipped",
                                        "passed", "passed", "passed", "skipped", "skipped"}));
    EXPECT_FALSE(report.ok);
    EXPECT_EQ(report.checks[0].message,
              "Install libimobiledevice-utils (sudo apt-get install libimobiledevice-utils), "
              "since idevicepair is missing. Reinstall Tovrin, since its helper "
              "tovrin-lockdown is missing.");
    EXPECT_FALSE(report.readable());
    EXPECT_EQ(report.checks[3].message, "Waits for \u201cThe phone tools are there\u201d.");
    EXPECT_TRUE(probe.asked.empty());
}

TEST(ConnectionCheckTest, ASilentSystemMuxerFailsAndSkipsTheUsbChecks) {
    FakeProbe probe;
    probe.muxerPhones.reset();
    const auto report = ConnectionCheck::run(probe);
    EXPECT_EQ(statuses(report),
              (std::vector<std::string>{"passed", "failed", "skipped", "skipped", "skipped",
                                        "passed", "passed", "failed", "skipped", "skipped"}));
    // Debian's usbmuxd is there but starts only for a plugged-in iPhone.
    EXPECT_EQ(report.checks[1].message, "Plug your iPhone in with a USB cable: Debian starts "
                                        "usbmuxd only while an iPhone is plugged in.");
    // Nothing this computer has a pair record for is advertised, and no phone on USB says
    // which advert it is.
    EXPECT_EQ(report.checks[7].message, "Plug your iPhone in and trust this computer, so that "
                                        "Tovrin knows which phone on the network is yours.");
}

TEST(ConnectionCheckTest, NoPhoneOnUsbFails) {
    FakeProbe probe;
    probe.muxerPhones = std::vector<PhoneOnMuxer>{{kUdid, PhoneLink::wifi}};
    probe.known = {{kUdid, kMac}};
    const auto report = ConnectionCheck::run(probe);
    EXPECT_EQ(statuses(report),
              (std::vector<std::string>{"passed", "passed", "failed", "skipped", "skipped",
                                        "passed", "passed", "passed", "passed", "passed"}));
    EXPECT_EQ(report.checks[2].message,
              "Connect your iPhone to this computer with a USB cable and unlock it.");
    EXPECT_EQ(report.checks[4].message, "Waits for \u201cThe iPhone trusts this computer\u201d.");
    EXPECT_FALSE(report.ok);
    // Read over Wi-Fi, unplugged: a working setup.
    EXPECT_FALSE(report.readableOverUsb);
    EXPECT_TRUE(report.readableOverWifi);
    EXPECT_TRUE(report.readable());
    EXPECT_EQ(report.summary, "Your iPhone can be read over Wi-Fi.");
}

TEST(ConnectionCheckTest, UsbmuxdMissingIsToBeInstalled) {
    FakeProbe probe;
    probe.muxerPhones.reset();
    probe.usbmuxdThere = false;
    const auto report = ConnectionCheck::run(probe);
    expectCheck(report, 1, CheckStatus::failed,
                "Install usbmuxd (sudo apt-get install usbmuxd), then plug your iPhone in.");
}

TEST(ConnectionCheckTest, NoPhoneOnUsbAndNoneOnTheNetworkSaysSo) {
    FakeProbe probe;
    probe.muxerPhones = std::vector<PhoneOnMuxer>{};
    probe.adverts.clear();
    const auto report = ConnectionCheck::run(probe);
    EXPECT_EQ(report.checks[2].status, CheckStatus::failed);
    EXPECT_EQ(report.checks[6].status, CheckStatus::failed);
    EXPECT_FALSE(report.readable());
    EXPECT_EQ(report.summary, "No iPhone is on USB or on this network: plug yours in, or unlock "
                              "it on the same Wi-Fi network as this computer.");
}

TEST(ConnectionCheckTest, APhoneReadOverUsbWithWifiOffIsAWorkingSetup) {
    FakeProbe probe;
    probe.phone.wifiConnections = false;
    probe.adverts.clear();
    const auto report = ConnectionCheck::run(probe);
    EXPECT_FALSE(report.ok);
    EXPECT_TRUE(report.readableOverUsb);
    EXPECT_FALSE(report.readableOverWifi);
    EXPECT_TRUE(report.readable());
    EXPECT_EQ(report.summary,
              "Your iPhone can be read over USB. To read it over Wi-Fi as well: Run tovrin "
              "--enable-wifi while the iPhone is on the cable (or turn on \u201cShow this iPhone "
              "when on Wi-Fi\u201d in the connection window).");
}

TEST(ConnectionCheckTest, AdviceNeverSendsTheUserWhereTheyAre) {
    FakeProbe probe;
    probe.phone.wifiConnections = false;
    const auto window = ConnectionCheck::run(probe, CheckPlace::connectionWindow);
    EXPECT_EQ(window.checks[4].message,
              "Turn on \u201cShow this iPhone when on Wi-Fi\u201d above.");
    FakeProbe untrusted;
    untrusted.phone.trusted = false;
    untrusted.phone.trustError = "MissingPairRecord";
    const auto inWindow = ConnectionCheck::run(untrusted, CheckPlace::connectionWindow);
    EXPECT_EQ(inWindow.checks[3].message,
              "Click Pair above, then unlock your iPhone and tap Trust.");
    for (const auto* report : {&window, &inWindow}) {
        for (const auto& check : report->checks) {
            EXPECT_EQ(check.message.find("connection window"), std::string::npos) << check.message;
        }
    }
    EXPECT_EQ(ConnectionCheck::adviceFor({LockdownFailure::notTrusted, "InvalidHostID"},
                                         CheckPlace::connectionWindow),
              "Click Pair above, then unlock your iPhone and tap Trust.");
}

TEST(ConnectionCheckTest, HelperMissingAloneIsAReinstall) {
    FakeProbe probe;
    probe.missing = {"tovrin-lockdown"};
    const auto report = ConnectionCheck::run(probe);
    expectCheck(report, 0, CheckStatus::failed,
                "Reinstall Tovrin, since its helper tovrin-lockdown is missing.");
}

TEST(ConnectionCheckTest, AnUntrustedComputerFailsWithTheWayToTrustIt) {
    FakeProbe probe;
    probe.phone.trusted = false;
    probe.phone.trustError = "MissingPairRecord";
    probe.phone.wifiConnections.reset();
    const auto report = ConnectionCheck::run(probe);
    expectCheck(report, 3, CheckStatus::failed,
                "Run idevicepair pair (or click Trust in the connection window), then unlock "
                "your iPhone and choose Trust.");
    EXPECT_EQ(report.checks[4].status, CheckStatus::skipped);
}

TEST(ConnectionCheckTest, ALockedPhoneIsToldToBeUnlocked) {
    FakeProbe probe;
    probe.usbError = LockdownError{LockdownFailure::lockdownError, "PasswordProtected"};
    const auto report = ConnectionCheck::run(probe);
    expectCheck(report, 3, CheckStatus::failed, "Unlock your iPhone and check again.");
}

TEST(ConnectionCheckTest, WifiConnectionsOffFailWithWhereToTurnThemOn) {
    FakeProbe probe;
    probe.phone.wifiConnections = false;
    const auto report = ConnectionCheck::run(probe);
    EXPECT_EQ(statuses(report),
              (std::vector<std::string>{"passed", "passed", "passed", "passed", "failed", "passed",
                                        "passed", "passed", "passed", "passed"}));
    EXPECT_EQ(report.checks[4].message,
              "Run tovrin --enable-wifi while the iPhone is on the cable (or turn on \u201cShow "
              "this iPhone when on Wi-Fi\u201d in the connection window).");
}

TEST(ConnectionCheckTest, NoAvahiDaemonFailsAndSkipsTheNetworkChecks) {
    FakeProbe probe;
    probe.avahi = false;
    const auto report = ConnectionCheck::run(probe);
    EXPECT_EQ(statuses(report),
              (std::vector<std::string>{"passed", "passed", "passed", "passed", "passed", "failed",
                                        "skipped", "skipped", "skipped", "skipped"}));
    EXPECT_EQ(report.checks[5].message, "Start avahi-daemon (sudo systemctl enable --now "
                                        "avahi-daemon) so that Tovrin can find your iPhone on "
                                        "the network.");
    probe.avahiThere = false;
    expectCheck(ConnectionCheck::run(probe), 5, CheckStatus::failed,
                "Install avahi-daemon (sudo apt-get install avahi-daemon) so that Tovrin can "
                "find your iPhone on the network.");
}

TEST(ConnectionCheckTest, NoAdvertFails) {
    FakeProbe probe;
    probe.adverts.clear();
    const auto report = ConnectionCheck::run(probe);
    expectCheck(report, 6, CheckStatus::failed,
                "Put your iPhone on the same Wi-Fi network as this "
                "computer, unlock it and check again.");
    EXPECT_EQ(report.checks[7].status, CheckStatus::skipped);
    EXPECT_EQ(report.checks[9].status, CheckStatus::skipped);
}

TEST(ConnectionCheckTest, AnAdvertOfAnotherPhoneFails) {
    FakeProbe probe;
    probe.adverts = {"aa:bb:cc:dd:ee:ff"};
    const auto report = ConnectionCheck::run(probe);
    expectCheck(report, 7, CheckStatus::failed,
                "Plug your iPhone in once and check again, so that "
                "Tovrin learns its Wi-Fi address.");
    EXPECT_EQ(report.checks[8].status, CheckStatus::skipped);
}

TEST(ConnectionCheckTest, AnAdvertMatchesAPairRecordWithoutAPhoneOnUsb) {
    FakeProbe probe;
    probe.muxerPhones = std::vector<PhoneOnMuxer>{};
    probe.known = {{"other", "aa:bb:cc:dd:ee:ff"}, {kUdid, kMac}};
    const auto report = ConnectionCheck::run(probe);
    expectCheck(report, 7, CheckStatus::passed, kUdid + " is advertised as " + kMac + ".");
}

TEST(ConnectionCheckTest, LockdownNotAnsweringOverWifiFails) {
    FakeProbe probe;
    probe.wifiError = LockdownError{LockdownFailure::noDevice, "NoDevice"};
    const auto report = ConnectionCheck::run(probe);
    expectCheck(report, 8, CheckStatus::failed,
                "Make sure this network lets this computer reach your "
                "iPhone (TCP port 62078), or plug it in and check again.");
    EXPECT_EQ(report.checks[9].status, CheckStatus::skipped);
}

TEST(ConnectionCheckTest, AnUnreadableBatteryFails) {
    FakeProbe probe;
    probe.battery.reset();
    const auto report = ConnectionCheck::run(probe);
    expectCheck(report, 9, CheckStatus::failed,
                "Unlock your iPhone and check again, since it did not "
                "give its battery level over Wi-Fi.");
    EXPECT_FALSE(report.ok);
}

// The first failed check of the report: its name and cause.
std::pair<std::string, std::string> firstFailure(const ConnectionReport& report) {
    for (const auto& check : report.checks) {
        if (check.status == CheckStatus::failed) {
            return {check.name, check.cause};
        }
    }
    return {};
}

TEST(ConnectionCheckTest, EveryFailureNamesItsCause) {
    struct Case {
        const char* what;
        std::function<void(FakeProbe&)> spoil;
        std::pair<std::string, std::string> failure;
    };
    const std::vector<Case> cases{
        {"tools", [](FakeProbe& p) { p.missing = {"idevice_id"}; }, {"tools", "missing"}},
        {"helper",
         [](FakeProbe& p) { p.missing = {"tovrin-lockdown"}; },
         {"tools", "helperMissing"}},
        {"muxer stopped",
         [](FakeProbe& p) { p.muxerPhones.reset(); },
         {"systemMuxer", "notRunning"}},
        {"muxer missing",
         [](FakeProbe& p) {
             p.muxerPhones.reset();
             p.usbmuxdThere = false;
         },
         {"systemMuxer", "notInstalled"}},
        {"no phone",
         [](FakeProbe& p) { p.muxerPhones = std::vector<PhoneOnMuxer>{}; },
         {"phoneOnUsb", "noPhone"}},
        {"locked",
         [](FakeProbe& p) {
             p.usbError = LockdownError{LockdownFailure::lockdownError, "PasswordProtected"};
         },
         {"trusted", "locked"}},
        {"denied",
         [](FakeProbe& p) {
             p.phone.trusted = false;
             p.phone.trustError = "UserDeniedPairing";
         },
         {"trusted", "denied"}},
        {"not paired",
         [](FakeProbe& p) {
             p.phone.trusted = false;
             p.phone.trustError = "InvalidHostID";
         },
         {"trusted", "notPaired"}},
        {"timed out",
         [](FakeProbe& p) {
             p.usbError = LockdownError{LockdownFailure::timedOut, "timedOut"};
         },
         {"trusted", "timedOut"}},
        {"helper broken",
         [](FakeProbe& p) {
             p.usbError = LockdownError{LockdownFailure::helperBroken, "helperBroken"};
         },
         {"trusted", "helperBroken"}},
        {"refused",
         [](FakeProbe& p) {
             p.usbError = LockdownError{LockdownFailure::lockdownError, "SetProhibited"};
         },
         {"trusted", "refused"}},
        {"wifi off",
         [](FakeProbe& p) { p.phone.wifiConnections = false; },
         {"wifiConnections", "off"}},
        {"avahi stopped", [](FakeProbe& p) { p.avahi = false; }, {"avahiDaemon", "notRunning"}},
        {"avahi missing",
         [](FakeProbe& p) {
             p.avahi = false;
             p.avahiThere = false;
         },
         {"avahiDaemon", "notInstalled"}},
        {"no advert", [](FakeProbe& p) { p.adverts.clear(); }, {"advertised", "notSeen"}},
        {"another phone's advert",
         [](FakeProbe& p) { p.adverts = {"aa:bb:cc:dd:ee:ff"}; },
         {"advertMatches", "unknownAddress"}},
        {"unreachable",
         [](FakeProbe& p) {
             p.wifiError = LockdownError{LockdownFailure::noDevice, "NoDevice"};
         },
         {"lockdownOverWifi", "unreachable"}},
        {"no level", [](FakeProbe& p) { p.battery.reset(); }, {"battery", "noLevel"}},
    };
    for (const auto& test : cases) {
        FakeProbe probe;
        test.spoil(probe);
        const auto report = ConnectionCheck::run(probe, CheckPlace::connectionWindow);
        EXPECT_EQ(firstFailure(report), test.failure) << test.what;
    }
    // Passed and skipped checks name no cause.
    FakeProbe probe;
    probe.avahi = false;
    for (const auto& check : ConnectionCheck::run(probe).checks) {
        if (check.status != CheckStatus::failed) {
            EXPECT_EQ(check.cause, "") << check.name;
        }
    }
}

TEST(ConnectionCheckTest, APhoneNeverPairedIsUnknownOnTheNetwork) {
    FakeProbe probe;
    probe.muxerPhones = std::vector<PhoneOnMuxer>{};
    probe.adverts = {kMac};
    const auto report = ConnectionCheck::run(probe);
    ASSERT_EQ(report.checks[7].name, "advertMatches");
    EXPECT_EQ(report.checks[7].status, CheckStatus::failed);
    EXPECT_EQ(report.checks[7].cause, "neverPaired");
}

TEST(ConnectionCheckTest, TheJsonLineHasNameStatusAndMessageOfEachCheck) {
    FakeProbe probe;
    probe.avahi = false;
    const auto line = ConnectionCheck::toJson(ConnectionCheck::run(probe));
    EXPECT_EQ(line.find('\n'), std::string::npos);
    const auto json = nlohmann::json::parse(line);
    EXPECT_EQ(json["ok"], false);
    ASSERT_EQ(json["checks"].size(), 10u);
    EXPECT_EQ(json["checks"][5],
              (nlohmann::json{{"name", "avahiDaemon"},
                              {"status", "failed"},
                              {"message", "Start avahi-daemon (sudo systemctl enable --now "
                                          "avahi-daemon) so that Tovrin can find your iPhone on "
                                          "the network."}}));
    EXPECT_EQ(json["checks"][6]["status"], "skipped");
    // Read over USB all the same.
    EXPECT_EQ(json["readableOver"], nlohmann::json::array({"usb"}));
    EXPECT_EQ(json["summary"].get<std::string>().rfind("Your iPhone can be read over USB.", 0), 0u);
}

TEST(ConnectionCheckTest, TheTextHasALinePerCheckAndAVerdict) {
    FakeProbe probe;
    const auto text = ConnectionCheck::toText(ConnectionCheck::run(probe));
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 11);
    EXPECT_EQ(text.substr(0, text.find('\n')),
              "passed  The phone tools are there: idevice_id, ideviceinfo, idevicepair and "
              "tovrin-lockdown are installed.");
    EXPECT_TRUE(
        text.ends_with("\nEvery check passed: your iPhone can be read over USB and over Wi-Fi.\n"));
    probe.battery.reset();
    EXPECT_NE(ConnectionCheck::toText(ConnectionCheck::run(probe))
                  .find("failed  The battery can be read over Wi-Fi: Unlock"),
              std::string::npos);
}

} // namespace
} // namespace ambrel
