#include "phone/PhoneReader.h"

#include <cctype>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <sys/stat.h>

#include <gtest/gtest.h>

#include "phone/CommandRunner.h"
#include "phone/PhoneIssueClassifier.h"
#include "platform/linux/SpawnProcessLauncher.h"
#include "tests/fakes/SimulatedScheduler.h"
#include "tests/phone/FakeTools.h"
#include "tests/phone/ScriptedTools.h"

namespace ambrel {
namespace {

using nlohmann::json;
using CommandLines = std::vector<std::vector<std::string>>;

const std::string kPhone = "00008110-001A2B3C4D5E6F70";
const std::string kSecond = "00008030-000A11112222333E";
const std::string kThird = "00008101-000B44445555666F";
const std::string kFourth = "00008120-000C77778888999A";

const std::string kHealthyEntries = "\t<key>BatteryCurrentCapacity</key>\n\t<integer>87</integer>\n"
                                    "\t<key>BatteryIsCharging</key>\n\t<false/>\n"
                                    "\t<key>ExternalConnected</key>\n\t<false/>\n"
                                    "\t<key>HasBattery</key>\n\t<true/>";

std::vector<std::string> transport(bool network) {
    return network ? std::vector<std::string>{"-n"} : std::vector<std::string>{};
}

std::vector<std::string> joined(std::vector<std::string> first,
                                const std::vector<std::string>& second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

std::vector<std::string> batteryArguments(const std::string& udid, bool network) {
    return joined(transport(network), {"-u", udid, "-q", "com.apple.mobile.battery", "-x"});
}

std::vector<std::string> keyArguments(const std::string& udid, bool network,
                                      const std::string& key) {
    return joined(transport(network), {"-u", udid, "-k", key});
}

std::vector<std::string> listCommand(bool network) {
    return {"idevice_id", network ? "-n" : "-l"};
}

std::vector<std::string> batteryCommand(const std::string& udid, bool network) {
    return joined({"ideviceinfo"}, batteryArguments(udid, network));
}

std::vector<std::string> keyCommand(const std::string& udid, bool network, const std::string& key) {
    return joined({"ideviceinfo"}, keyArguments(udid, network, key));
}

// The commands of `listing`, then those of a whole read of `udid`: battery, name and model.
CommandLines thenRead(CommandLines listing, const std::string& udid, bool network) {
    listing.push_back(batteryCommand(udid, network));
    listing.push_back(keyCommand(udid, network, "DeviceName"));
    listing.push_back(keyCommand(udid, network, "ProductType"));
    return listing;
}

json listRule(bool network, const std::string& output) {
    return answerRule("idevice_id", {network ? "-n" : "-l"}, output);
}

json batteryRule(const std::string& udid, bool network, const std::string& output,
                 const std::string& error = "", int status = 0) {
    return answerRule("ideviceinfo", batteryArguments(udid, network), output, error, status);
}

json keyRule(const std::string& udid, bool network, const std::string& key,
             const std::string& output, int status = 0) {
    return answerRule("ideviceinfo", keyArguments(udid, network, key), output, "", status);
}

// The three answers of a healthy phone on one transport.
std::vector<json> phoneRules(const std::string& udid, bool network,
                             const std::string& entries = kHealthyEntries,
                             const std::string& name = "Anna\u2019s iPhone\n",
                             const std::string& model = "iPhone14,2\n") {
    return {batteryRule(udid, network, batteryXml(entries)),
            keyRule(udid, network, "DeviceName", name),
            keyRule(udid, network, "ProductType", model)};
}

// The phone is listed over Wi-Fi, but its battery query answers only after `delay` seconds;
// nothing is listed on USB.
json slowWifiBatteryRules(int delay) {
    return json::array(
        {listRule(true, kPhone + "\n"),
         {{"tool", "ideviceinfo"}, {"args", batteryArguments(kPhone, true)}, {"delay", delay}},
         listRule(false, "")});
}

// Time limits with a battery query cut short at 0.6 s.
PhoneReadTimeouts shortBatteryLimit() {
    PhoneReadTimeouts limits;
    limits.battery = std::chrono::milliseconds(600);
    return limits;
}

json rules(std::initializer_list<std::vector<json>> groups) {
    json all = json::array();
    for (const auto& group : groups) {
        for (const auto& rule : group) {
            all.push_back(rule);
        }
    }
    return all;
}

const std::string kLockedError =
    "ERROR: Could not connect to lockdownd: Password protected (-17)\n";
const std::string kMuxError = "ERROR: Could not connect to lockdownd: Mux error (-8)\n";

void expectIssueOf(const PhoneReadResult& result, const char* message, bool isTransient) {
    ASSERT_FALSE(result.hasValue());
    EXPECT_EQ(result.error().message, message);
    EXPECT_EQ(result.error().isTransient, isTransient);
}

class PhoneReaderTest : public ::testing::Test {
protected:
    PhoneReadResult read(const std::optional<std::string>& preferredID = std::nullopt,
                         const std::optional<PhoneIdentity>& identity = std::nullopt) {
        return PhoneReader::readAttempt(tools.toolDirectory(), preferredID, identity, clock,
                                        tools.launcher());
    }

    void expectIssue(const PhoneReadResult& result, PhoneSetupState state, const char* message,
                     bool isTransient) {
        ASSERT_FALSE(result.hasValue());
        EXPECT_EQ(result.error().state, state);
        EXPECT_EQ(result.error().message, message);
        EXPECT_EQ(result.error().isTransient, isTransient);
    }

    ScriptedTools tools;
    testing::SimulatedScheduler clock;
};

TEST_F(PhoneReaderTest, OnlyUsbPhoneIsReadOverUsb) {
    tools.setRules(
        rules({{listRule(true, ""), listRule(false, kPhone + "\n")}, phoneRules(kPhone, false)}));
    const auto result = read();
    ASSERT_TRUE(result.hasValue());
    const auto& reading = result.value();
    EXPECT_EQ(reading.snapshot.id(), "iphone");
    EXPECT_EQ(reading.snapshot.name(), "Anna\u2019s iPhone");
    EXPECT_EQ(reading.snapshot.percentage(), 87);
    EXPECT_FALSE(reading.snapshot.isCharging());
    EXPECT_FALSE(reading.snapshot.isPluggedIn());
    EXPECT_EQ(reading.snapshot.source(), "USB");
    EXPECT_EQ(reading.snapshot.model(), std::optional<std::string>("iPhone14,2"));
    EXPECT_EQ(reading.snapshot.lastUpdated(), clock.now());
    EXPECT_EQ(reading.udid, kPhone);
    EXPECT_EQ(reading.identity, (PhoneIdentity{kPhone, "Anna\u2019s iPhone", "iPhone14,2"}));
    EXPECT_EQ(tools.commandLines(),
              thenRead({listCommand(true), listCommand(false)}, kPhone, false));
}

TEST_F(PhoneReaderTest, PhoneReachableBothWaysIsReadOverWiFi) {
    tools.setRules(rules({{listRule(true, kPhone + "\n"), listRule(false, kPhone + "\n")},
                          phoneRules(kPhone, true),
                          phoneRules(kPhone, false)}));
    const auto result = read();
    ASSERT_TRUE(result.hasValue());
    EXPECT_EQ(result.value().snapshot.source(), "Wi-Fi");
    EXPECT_EQ(tools.commandLines(), thenRead({listCommand(true)}, kPhone, true));
}

TEST_F(PhoneReaderTest, ToolFolderWorksWithoutTrailingSlash) {
    tools.setRules(rules({{listRule(true, kPhone + "\n")}, phoneRules(kPhone, true)}));
    auto folder = tools.toolDirectory().string();
    ASSERT_EQ(folder.back(), '/');
    folder.pop_back();
    const auto result =
        PhoneReader::readAttempt(folder, std::nullopt, std::nullopt, clock, tools.launcher());
    ASSERT_TRUE(result.hasValue());
    EXPECT_EQ(result.value().snapshot.percentage(), 87);
}

TEST_F(PhoneReaderTest, OnlyTheFirstThreeOfFourIdentifiersAreQueried) {
    const std::string list = kPhone + "\n" + kSecond + "\n" + kThird + "\n" + kFourth + "\n";
    tools.setRules(json::array(
        {listRule(true, ""),
         listRule(false, list),
         {{"tool", "ideviceinfo"}, {"args", "*"}, {"stderr", kMuxError}, {"status", 255}}}));
    const auto result = read();
    expectIssue(result, PhoneSetupState::notFound, PhoneIssueClassifier::kTemporarilyUnavailable,
                false);
    EXPECT_EQ(tools.commandLines(),
              (CommandLines{listCommand(true), listCommand(false), batteryCommand(kPhone, false),
                            batteryCommand(kSecond, false), batteryCommand(kThird, false)}));
}

TEST_F(PhoneReaderTest, PreferredFourthIdentifierIsMovedToTheFrontAndQueried) {
    const std::string list = kPhone + "\n" + kSecond + "\n" + kThird + "\n" + kFourth + "\n";
    tools.setRules(json::array(
        {listRule(true, list),
         {{"tool", "ideviceinfo"}, {"args", "*"}, {"stderr", kMuxError}, {"status", 255}},
         listRule(false, "")}));
    const auto result = read(kFourth);
    ASSERT_FALSE(result.hasValue());
    EXPECT_EQ(tools.commandLines(),
              (CommandLines{listCommand(true), batteryCommand(kFourth, true),
                            batteryCommand(kPhone, true), batteryCommand(kSecond, true),
                            listCommand(false)}));
    // Every listed candidate failed over Wi-Fi with an error the words do not place.
    expectIssue(result, PhoneSetupState::notFound, PhoneIssueClassifier::kTemporarilyUnavailable,
                true);
}

TEST_F(PhoneReaderTest, PreferredPhoneIsReadFirstAndOthersAreNotAsked) {
    const std::string list = kPhone + "\n" + kSecond + "\n";
    tools.setRules(rules({{listRule(true, list)}, phoneRules(kSecond, true)}));
    const auto result = read(kSecond);
    ASSERT_TRUE(result.hasValue());
    EXPECT_EQ(result.value().udid, kSecond);
    EXPECT_EQ(tools.commandLines(), thenRead({listCommand(true)}, kSecond, true));
}

TEST_F(PhoneReaderTest, PreferredIdentifierMustMatchExactly) {
    const std::string list = kPhone + "\n" + kSecond + "\n";
    tools.setRules(rules({{listRule(true, list)}, phoneRules(kPhone, true)}));
    // Differs from the second identifier only in letter case: the order is kept.
    std::string lowerSecond = kSecond;
    for (auto& character : lowerSecond) {
        character = static_cast<char>(std::tolower(static_cast<unsigned char>(character)));
    }
    const auto result = read(lowerSecond);
    ASSERT_TRUE(result.hasValue());
    EXPECT_EQ(result.value().udid, kPhone);
    EXPECT_EQ(tools.commandLines().at(1), batteryCommand(kPhone, true));
}

TEST_F(PhoneReaderTest, MalformedIdentifierLinesAreIgnored) {
    const std::string list =
        "0000 8110\n00008110:001A\n" + std::string(129, 'a') + "\n" + "  " + kPhone + "\t\r\n\n";
    tools.setRules(rules({{listRule(true, list)}, phoneRules(kPhone, true)}));
    const auto result = read();
    ASSERT_TRUE(result.hasValue());
    EXPECT_EQ(result.value().udid, kPhone);
    EXPECT_EQ(tools.commandLines(), thenRead({listCommand(true)}, kPhone, true));
}

TEST_F(PhoneReaderTest, DuplicateIdentifiersAreEachQueried) {
    tools.setRules(
        json::array({listRule(true, kPhone + "\n" + kPhone + "\n"),
                     batteryRule(kPhone, true, "", kMuxError, 255), listRule(false, "")}));
    const auto result = read();
    ASSERT_FALSE(result.hasValue());
    EXPECT_EQ(tools.commandLines(),
              (CommandLines{listCommand(true), batteryCommand(kPhone, true),
                            batteryCommand(kPhone, true), listCommand(false)}));
}

TEST_F(PhoneReaderTest, OutOfRangeCapacityIsNoReadingAndTheNextCandidateIsTried) {
    const std::string over = "<key>BatteryCurrentCapacity</key><integer>101</integer>";
    const std::string under = "<key>BatteryCurrentCapacity</key><integer>-1</integer>";
    tools.setRules(rules({{listRule(true, kPhone + "\n" + kSecond + "\n"),
                           batteryRule(kPhone, true, batteryXml(over))},
                          phoneRules(kSecond, true)}));
    const auto result = read();
    ASSERT_TRUE(result.hasValue());
    EXPECT_EQ(result.value().udid, kSecond);
    EXPECT_EQ(tools.commandLines().at(1), batteryCommand(kPhone, true));
    EXPECT_EQ(tools.commandLines().at(2), batteryCommand(kSecond, true));

    // With no candidate left, the unusable answers end the attempt as "temporarily
    // unavailable", transient because the phone was asked over Wi-Fi.
    ScriptedTools fresh;
    fresh.setRules(
        json::array({listRule(true, kPhone + "\n" + kSecond + "\n"),
                     batteryRule(kPhone, true, batteryXml(over)),
                     batteryRule(kSecond, true, batteryXml(under)), listRule(false, "")}));
    const auto failed = PhoneReader::readAttempt(fresh.toolDirectory(), std::nullopt, std::nullopt,
                                                 clock, fresh.launcher());
    expectIssue(failed, PhoneSetupState::notFound, PhoneIssueClassifier::kTemporarilyUnavailable,
                true);
}

TEST_F(PhoneReaderTest, CapacityBoundsZeroAndHundredAreReadings) {
    for (const char* value : {"0", "100"}) {
        ScriptedTools fresh;
        fresh.setRules(rules({{listRule(true, kPhone + "\n")},
                              phoneRules(kPhone, true,
                                         std::string("<key>BatteryCurrentCapacity</key><integer>") +
                                             value + "</integer>")}));
        const auto result = PhoneReader::readAttempt(fresh.toolDirectory(), std::nullopt,
                                                     std::nullopt, clock, fresh.launcher());
        ASSERT_TRUE(result.hasValue()) << value;
        EXPECT_EQ(result.value().snapshot.percentage(), std::atoi(value));
    }
}

TEST_F(PhoneReaderTest, UnusableAnswersAreNoReadings) {
    const std::vector<std::string> answers = {
        "",                                                                 // empty output
        "BatteryCurrentCapacity: 87\n",                                     // no XML marker
        batteryXml(""),                                                     // empty dictionary
        batteryXml("<key>BatteryIsCharging</key><true/>"),                  // no capacity
        batteryXml("<key>BatteryCurrentCapacity</key><string>87</string>"), // not a number
        batteryXml("<key>BatteryCurrentCapacity</key><dict/>"),
        "<?xml version=\"1.0\"?><plist version=\"1.0\"><array><integer>87</integer></array>"
        "</plist>", // top level is not a dictionary
        "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>Battery", // truncated
    };
    for (const auto& answer : answers) {
        SCOPED_TRACE(answer);
        ScriptedTools fresh;
        fresh.setRules(json::array({listRule(true, ""), listRule(false, kPhone + "\n"),
                                    batteryRule(kPhone, false, answer)}));
        const auto result = PhoneReader::readAttempt(fresh.toolDirectory(), std::nullopt,
                                                     std::nullopt, clock, fresh.launcher());
        expectIssue(result, PhoneSetupState::notFound,
                    PhoneIssueClassifier::kTemporarilyUnavailable, false);
        EXPECT_EQ(fresh.commandLines().size(), 3u);
    }
}

TEST_F(PhoneReaderTest, WarningBeforeTheXmlMarkerIsSkipped) {
    tools.setRules(json::array(
        {listRule(true, kPhone + "\n"),
         batteryRule(kPhone, true,
                     "WARNING: Sending query with unknown domain \"x\".\n" +
                         batteryXml("<key>BatteryCurrentCapacity</key><integer>42</integer>")),
         keyRule(kPhone, true, "DeviceName", "Phone\n"),
         keyRule(kPhone, true, "ProductType", "iPhone15,3\n")}));
    const auto result = read();
    ASSERT_TRUE(result.hasValue());
    EXPECT_EQ(result.value().snapshot.percentage(), 42);
}

TEST_F(PhoneReaderTest, ChargingWithoutExternalConnectedMeansPluggedIn) {
    tools.setRules(rules({{listRule(true, kPhone + "\n")},
                          phoneRules(kPhone, true,
                                     "<key>BatteryCurrentCapacity</key><integer>55</integer>"
                                     "<key>BatteryIsCharging</key><true/>")}));
    const auto result = read();
    ASSERT_TRUE(result.hasValue());
    EXPECT_TRUE(result.value().snapshot.isCharging());
    EXPECT_TRUE(result.value().snapshot.isPluggedIn());
}

TEST_F(PhoneReaderTest, ChargingAndPowerFlagsFollowTheAnswer) {
    struct Case {
        std::string entries;
        bool isCharging;
        bool isPluggedIn;
    };
    const std::vector<Case> cases = {
        // Plugged in but not charging (full, or held back).
        {"<key>BatteryIsCharging</key><false/><key>ExternalConnected</key><true/>", false, true},
        // An explicit "not connected" wins over charging.
        {"<key>BatteryIsCharging</key><true/><key>ExternalConnected</key><false/>", true, false},
        // Neither key: not charging, not plugged in.
        {"", false, false},
        // Numbers count as truth values; a string is not a number.
        {"<key>BatteryIsCharging</key><integer>1</integer><key>ExternalConnected</key>"
         "<string>yes</string>",
         true, true},
        {"<key>BatteryIsCharging</key><string>true</string>", false, false},
    };
    for (const auto& testCase : cases) {
        SCOPED_TRACE(testCase.entries);
        ScriptedTools fresh;
        fresh.setRules(rules({{listRule(true, kPhone + "\n")},
                              phoneRules(kPhone, true,
                                         "<key>BatteryCurrentCapacity</key><integer>60</integer>" +
                                             testCase.entries)}));
        const auto result = PhoneReader::readAttempt(fresh.toolDirectory(), std::nullopt,
                                                     std::nullopt, clock, fresh.launcher());
        ASSERT_TRUE(result.hasValue());
        EXPECT_EQ(result.value().snapshot.isCharging(), testCase.isCharging);
        EXPECT_EQ(result.value().snapshot.isPluggedIn(), testCase.isPluggedIn);
    }
}

TEST_F(PhoneReaderTest, RealAndBooleanCapacitiesCountAsNumbers) {
    const std::vector<std::pair<std::string, std::int64_t>> cases = {
        {"<real>87.6</real>", 87}, {"<real>100.9</real>", 100}, {"<true/>", 1}, {"<false/>", 0}};
    for (const auto& [element, percentage] : cases) {
        SCOPED_TRACE(element);
        ScriptedTools fresh;
        fresh.setRules(
            rules({{listRule(true, kPhone + "\n")},
                   phoneRules(kPhone, true, "<key>BatteryCurrentCapacity</key>" + element)}));
        const auto result = PhoneReader::readAttempt(fresh.toolDirectory(), std::nullopt,
                                                     std::nullopt, clock, fresh.launcher());
        ASSERT_TRUE(result.hasValue());
        EXPECT_EQ(result.value().snapshot.percentage(), percentage);
    }
}

TEST_F(PhoneReaderTest, UnreadableNameFallsBackToIPhone) {
    for (const std::string& nameOutput :
         {std::string("Anna\nSecond line\n"), std::string(""), std::string("   \n")}) {
        SCOPED_TRACE(nameOutput);
        ScriptedTools fresh;
        fresh.setRules(rules({{listRule(true, kPhone + "\n")},
                              phoneRules(kPhone, true, kHealthyEntries, nameOutput)}));
        const auto result = PhoneReader::readAttempt(fresh.toolDirectory(), std::nullopt,
                                                     std::nullopt, clock, fresh.launcher());
        ASSERT_TRUE(result.hasValue());
        EXPECT_EQ(result.value().snapshot.name(), "iPhone");
        EXPECT_EQ(result.value().identity.name, "iPhone");
    }
}

TEST_F(PhoneReaderTest, FailedKeyReadsGiveFallbackNameAndNoModel) {
    tools.setRules(json::array({listRule(true, kPhone + "\n"),
                                batteryRule(kPhone, true, batteryXml(kHealthyEntries)),
                                keyRule(kPhone, true, "DeviceName", "Anna\n", 255),
                                keyRule(kPhone, true, "ProductType", "iPhone14,2\n", 255)}));
    const auto result = read();
    ASSERT_TRUE(result.hasValue());
    EXPECT_EQ(result.value().snapshot.name(), "iPhone");
    EXPECT_EQ(result.value().snapshot.model(), std::nullopt);
    EXPECT_EQ(result.value().identity, (PhoneIdentity{kPhone, "iPhone", std::nullopt}));
}

TEST_F(PhoneReaderTest, NonPhoneIsSkippedSilently) {
    tools.setRules(rules({{listRule(true, ""), listRule(false, kPhone + "\n")},
                          phoneRules(kPhone, false, kHealthyEntries, "Tablet\n", "iPad13,4\n")}));
    const auto result = read();
    // Nothing was recorded, but a listed device was tried: "temporarily unavailable".
    expectIssue(result, PhoneSetupState::notFound, PhoneIssueClassifier::kTemporarilyUnavailable,
                false);
    EXPECT_EQ(tools.commandLines(),
              thenRead({listCommand(true), listCommand(false)}, kPhone, false));
}

TEST_F(PhoneReaderTest, NonPhoneIsSkippedAndThePhoneAfterItIsRead) {
    tools.setRules(rules({{listRule(true, kSecond + "\n" + kPhone + "\n")},
                          phoneRules(kSecond, true, kHealthyEntries, "Tablet\n", "iPad13,4\n"),
                          phoneRules(kPhone, true)}));
    const auto result = read();
    ASSERT_TRUE(result.hasValue());
    EXPECT_EQ(result.value().udid, kPhone);
    // The model test is on the exact prefix "iPhone".
    ScriptedTools fresh;
    fresh.setRules(rules({{listRule(true, kPhone + "\n"), listRule(false, "")},
                          phoneRules(kPhone, true, kHealthyEntries, "Phone\n", "iphone14,2\n")}));
    const auto lowerCase = PhoneReader::readAttempt(fresh.toolDirectory(), std::nullopt,
                                                    std::nullopt, clock, fresh.launcher());
    EXPECT_FALSE(lowerCase.hasValue());
}

TEST_F(PhoneReaderTest, RememberedIdentitySparesTheKeyReads) {
    tools.setRules(rules({{listRule(true, kPhone + "\n")}, phoneRules(kPhone, true)}));
    const PhoneIdentity remembered{kPhone, "Work phone", "iPhone16,1"};
    const auto result = read(kPhone, remembered);
    ASSERT_TRUE(result.hasValue());
    EXPECT_EQ(result.value().identity, remembered);
    EXPECT_EQ(result.value().snapshot.name(), "Work phone");
    EXPECT_EQ(result.value().snapshot.model(), std::optional<std::string>("iPhone16,1"));
    EXPECT_EQ(tools.commandLines(),
              (CommandLines{listCommand(true), batteryCommand(kPhone, true)}));
}

TEST_F(PhoneReaderTest, RememberedIdentityOfAnotherPhoneIsNotUsed) {
    tools.setRules(rules({{listRule(true, kPhone + "\n")}, phoneRules(kPhone, true)}));
    const auto result = read(std::nullopt, PhoneIdentity{kSecond, "Other", "iPhone12,1"});
    ASSERT_TRUE(result.hasValue());
    EXPECT_EQ(result.value().identity.name, "Anna\u2019s iPhone");
    EXPECT_EQ(tools.commandLines().size(), 4u);
}

TEST_F(PhoneReaderTest, MissingToolsFailAtOnceAndRunNothing) {
    std::filesystem::remove(tools.root() / "Runtime" / "bin" / "ideviceinfo");
    const auto result = read();
    expectIssue(result, PhoneSetupState::unavailable, PhoneIssueClassifier::kMissingTools, false);
    EXPECT_TRUE(tools.commandLines().empty());
}

TEST_F(PhoneReaderTest, ToolsThatAreNotExecutableFilesCountAsMissing) {
    const auto bin = tools.root() / "Runtime" / "bin";
    // A plain file without the executable bit.
    std::filesystem::remove(bin / "idevice_id");
    std::ofstream(bin / "idevice_id") << "#!/bin/sh\n";
    ::chmod((bin / "idevice_id").c_str(), 0644);
    expectIssue(read(), PhoneSetupState::unavailable, PhoneIssueClassifier::kMissingTools, false);
    // A folder of that name.
    std::filesystem::remove(bin / "idevice_id");
    std::filesystem::create_directory(bin / "idevice_id");
    expectIssue(read(), PhoneSetupState::unavailable, PhoneIssueClassifier::kMissingTools, false);
    // A link to nothing.
    std::filesystem::remove(bin / "idevice_id");
    std::filesystem::create_symlink(tools.root() / "nowhere", bin / "idevice_id");
    expectIssue(read(), PhoneSetupState::unavailable, PhoneIssueClassifier::kMissingTools, false);
    EXPECT_TRUE(tools.commandLines().empty());
}

TEST_F(PhoneReaderTest, NoDevicesAnywhereIsNotFound) {
    tools.setRules(json::array({listRule(true, ""), listRule(false, "")}));
    expectIssue(read(), PhoneSetupState::notFound, PhoneIssueClassifier::kNotFound, false);
    EXPECT_EQ(tools.commandLines(), (CommandLines{listCommand(true), listCommand(false)}));
}

TEST_F(PhoneReaderTest, FailingListsWithUnknownTextMeanTheServiceIsUnreachable) {
    tools.setRules(json::array(
        {answerRule("idevice_id", {"-n"}, "", "ERROR: Unable to retrieve device list!\n", 255),
         answerRule("idevice_id", {"-l"}, "", "ERROR: Unable to retrieve device list!\n", 255)}));
    expectIssue(read(), PhoneSetupState::unavailable, PhoneIssueClassifier::kServiceUnreachable,
                false);
    EXPECT_EQ(tools.commandLines(), (CommandLines{listCommand(true), listCommand(false)}));
}

TEST_F(PhoneReaderTest, LockedPhoneAsksToUnlock) {
    tools.setRules(
        json::array({listRule(true, kPhone + "\n"),
                     batteryRule(kPhone, true, "", kLockedError, 255), listRule(false, "")}));
    expectIssue(read(), PhoneSetupState::notFound, PhoneIssueClassifier::kLocked, false);
}

TEST_F(PhoneReaderTest, UntrustedPhoneAsksForTrust) {
    tools.setRules(json::array(
        {listRule(true, ""), listRule(false, kPhone + "\n"),
         batteryRule(kPhone, false, "",
                     "ERROR: Could not connect to lockdownd: Pairing dialog response pending "
                     "(-19)\n",
                     255)}));
    expectIssue(read(), PhoneSetupState::needsPairing, PhoneIssueClassifier::kTrust, false);
}

TEST_F(PhoneReaderTest, LaterFailureWinsOverEarlierOne) {
    // The Wi-Fi query says "locked"; the USB list fails afterwards with unknown words: the
    // USB failure is the last one and decides.
    tools.setRules(json::array(
        {listRule(true, kPhone + "\n"), batteryRule(kPhone, true, "", kLockedError, 255),
         answerRule("idevice_id", {"-l"}, "", "ERROR: Unable to retrieve device list!\n", 255)}));
    expectIssue(read(), PhoneSetupState::notFound, PhoneIssueClassifier::kTemporarilyUnavailable,
                true);
}

TEST_F(PhoneReaderTest, BatteryQueryTimingOutOverWiFiIsTransient) {
    tools.setRules(slowWifiBatteryRules(20));
    const auto result = PhoneReader::readAttempt(tools.toolDirectory(), std::nullopt, std::nullopt,
                                                 clock, tools.launcher(), shortBatteryLimit());
    // The USB list that follows succeeds with nothing listed, so the timed-out query stays the
    // last failure.
    expectIssue(result, PhoneSetupState::notFound, PhoneIssueClassifier::kTimedOut, true);
    EXPECT_EQ(tools.timeLimits(), (std::vector<std::chrono::milliseconds>{
                                      std::chrono::seconds(6), std::chrono::milliseconds(600),
                                      std::chrono::seconds(6)}));
}

TEST_F(PhoneReaderTest, EveryRunGetsItsOwnDefaultLimit) {
    tools.setRules(
        rules({{listRule(true, ""), listRule(false, kPhone + "\n")}, phoneRules(kPhone, false)}));
    ASSERT_TRUE(read().hasValue());
    using std::chrono::seconds;
    EXPECT_EQ(tools.timeLimits(), (std::vector<std::chrono::milliseconds>{
                                      seconds(6), seconds(6), seconds(8), seconds(5), seconds(5)}));
}

TEST_F(PhoneReaderTest, ListTimingOutIsReportedAsNoResponse) {
    tools.setRules(json::array({{{"tool", "idevice_id"}, {"args", {"-n"}}, {"delay", 20}},
                                {{"tool", "idevice_id"}, {"args", {"-l"}}, {"delay", 20}}}));
    PhoneReadTimeouts shortLimits;
    shortLimits.list = std::chrono::milliseconds(500);
    const auto result = PhoneReader::readAttempt(tools.toolDirectory(), std::nullopt, std::nullopt,
                                                 clock, tools.launcher(), shortLimits);
    expectIssue(result, PhoneSetupState::notFound, PhoneIssueClassifier::kTimedOut, false);
}

TEST(PhoneReadTimeoutsTest, DefaultsAreSixEightAndFiveSeconds) {
    const PhoneReadTimeouts defaults;
    EXPECT_EQ(defaults.list, std::chrono::seconds(6));
    EXPECT_EQ(defaults.battery, std::chrono::seconds(8));
    EXPECT_EQ(defaults.key, std::chrono::seconds(5));
}

TEST_F(PhoneReaderTest, SlowToolWithinTheDefaultLimitsStillAnswers) {
    tools.setRules(json::array(
        {{{"tool", "idevice_id"}, {"args", {"-n"}}, {"stdout", kPhone + "\n"}, {"delay", 1.2}},
         batteryRule(kPhone, true, batteryXml(kHealthyEntries)),
         keyRule(kPhone, true, "DeviceName", "Anna\n"),
         keyRule(kPhone, true, "ProductType", "iPhone14,2\n")}));
    const auto result = read();
    ASSERT_TRUE(result.hasValue());
    EXPECT_EQ(result.value().snapshot.name(), "Anna");
}

TEST_F(PhoneReaderTest, TransientFailureThenSuccessOnTheNextAttempt) {
    tools.setRules(
        json::array({listRule(true, kPhone + "\n"),
                     {{"tool", "ideviceinfo"},
                      {"args", batteryArguments(kPhone, true)},
                      {"answers", json::array({{{"stderr", kMuxError}, {"status", 255}},
                                               {{"stdout", batteryXml(kHealthyEntries)}}})}},
                     keyRule(kPhone, true, "DeviceName", "Anna\n"),
                     keyRule(kPhone, true, "ProductType", "iPhone14,2\n"),
                     listRule(false, "")}));
    const auto first = read();
    expectIssue(first, PhoneSetupState::notFound, PhoneIssueClassifier::kTemporarilyUnavailable,
                true);
    const auto second = read();
    ASSERT_TRUE(second.hasValue());
    EXPECT_EQ(second.value().snapshot.percentage(), 87);
}

TEST_F(PhoneReaderTest, ReadKeyTrimsAndLimitsTheValue) {
    const auto info = tools.toolDirectory() / "ideviceinfo";
    const std::vector<std::string> base = {"-u", kPhone};
    const auto answer = [&](const std::string& output, const std::string& error = "",
                            int status = 0) {
        tools.setRules(json::array({answerRule("ideviceinfo", {"-u", kPhone, "-k", "DeviceName"},
                                               output, error, status)}));
        return PhoneReader::readKey("DeviceName", info, base, tools.launcher());
    };
    EXPECT_EQ(answer(" \t Anna\u2019s iPhone \n"), "Anna\u2019s iPhone");
    EXPECT_EQ(answer("Anna", "warning: ignored\n"), "Anna");
    EXPECT_EQ(answer(std::string(200, 'x') + "\n"), std::string(200, 'x'));
    EXPECT_EQ(answer(std::string(201, 'x')), std::nullopt);
    // 200 characters that take far more bytes (each thumb is two code points).
    std::string thumbs;
    for (int index = 0; index < 200; ++index) {
        thumbs += "\U0001F44D\U0001F3FD";
    }
    EXPECT_EQ(answer(thumbs), thumbs);
    EXPECT_EQ(answer(thumbs + "x"), std::nullopt);
    EXPECT_EQ(answer("two\nlines"), std::nullopt);
    EXPECT_EQ(answer(""), std::nullopt);
    EXPECT_EQ(answer("Anna", "", 1), std::nullopt);
    EXPECT_EQ(tools.commandLines().back(),
              (std::vector<std::string>{"ideviceinfo", "-u", kPhone, "-k", "DeviceName"}));
}

// A few reads run the fake tools as real children, through the program's own launcher.
class PhoneReaderRealChildrenTest : public ::testing::Test {
protected:
    FakeTools tools;
    SpawnProcessLauncher launcher;
    testing::SimulatedScheduler clock;
};

TEST_F(PhoneReaderRealChildrenTest, OnlyUsbPhoneIsReadOverUsb) {
    tools.setRules(
        rules({{listRule(true, ""), listRule(false, kPhone + "\n")}, phoneRules(kPhone, false)}));
    const auto result = PhoneReader::readAttempt(tools.toolDirectory(), std::nullopt, std::nullopt,
                                                 clock, launcher);
    ASSERT_TRUE(result.hasValue());
    EXPECT_EQ(result.value().snapshot.source(), "USB");
    EXPECT_EQ(result.value().identity, (PhoneIdentity{kPhone, "Anna\u2019s iPhone", "iPhone14,2"}));
    EXPECT_EQ(tools.commandLines(),
              thenRead({listCommand(true), listCommand(false)}, kPhone, false));
}

TEST_F(PhoneReaderRealChildrenTest, BatteryQueryTimingOutIsStoppedAtItsLimit) {
    // The battery query would answer only after an hour: the read can only have ended by
    // stopping it at its limit, which the timed-out issue says.
    tools.setRules(slowWifiBatteryRules(3600));
    const auto start = std::chrono::steady_clock::now();
    const auto result = PhoneReader::readAttempt(tools.toolDirectory(), std::nullopt, std::nullopt,
                                                 clock, launcher, shortBatteryLimit());
    const std::chrono::duration<double> elapsed = std::chrono::steady_clock::now() - start;
    expectIssueOf(result, PhoneIssueClassifier::kTimedOut, true);
    EXPECT_GE(elapsed.count(), 0.6);
}

TEST_F(PhoneReaderRealChildrenTest, UnmatchedFakeRunFailsWithClearText) {
    tools.setRules(json::array({listRule(true, "")}));
    const auto output =
        CommandRunner::run(launcher, tools.toolDirectory() / "ideviceinfo",
                           {"-u", kPhone, "-k", "DeviceName"}, std::chrono::seconds(10));
    EXPECT_EQ(output.status, 1);
    EXPECT_EQ(output.stderrText,
              "fake_tool: no rule for ideviceinfo -u " + kPhone + " -k DeviceName\n");
    EXPECT_EQ(PhoneReader::readKey("DeviceName", tools.toolDirectory() / "ideviceinfo",
                                   {"-u", kPhone}, launcher),
              std::nullopt);
    EXPECT_EQ(tools.commandLines().size(), 2u);
}

TEST_F(PhoneReaderTest, UnmatchedScriptedRunFailsWithTheFakeToolsText) {
    tools.setRules(json::array({listRule(true, "")}));
    EXPECT_EQ(PhoneReader::readKey("DeviceName", tools.toolDirectory() / "ideviceinfo",
                                   {"-u", kPhone}, tools.launcher()),
              std::nullopt);
    const auto output =
        CommandRunner::run(tools.launcher(), tools.toolDirectory() / "ideviceinfo",
                           {"-u", kPhone, "-k", "DeviceName"}, std::chrono::seconds(10));
    EXPECT_EQ(output.status, 1);
    EXPECT_EQ(output.stderrText,
              "fake_tool: no rule for ideviceinfo -u " + kPhone + " -k DeviceName\n");
}

// The Debian tools against a usbmuxd socket that does not exist.
TEST(PhoneReaderRealToolsTest, UnreachableServiceIsReported) {
    const std::filesystem::path listTool = "/usr/bin/idevice_id";
    const std::filesystem::path infoTool = "/usr/bin/ideviceinfo";
    if (!std::filesystem::exists(listTool) || !std::filesystem::exists(infoTool)) {
        GTEST_SKIP() << "libimobiledevice's tools are not installed";
    }
    TemporaryFolder folder;
    const auto bin = folder.path() / "Runtime" / "bin";
    std::filesystem::create_directories(bin);
    std::filesystem::create_symlink(listTool, bin / "idevice_id");
    std::filesystem::create_symlink(infoTool, bin / "ideviceinfo");
    const std::string address = "UNIX:" + (folder.path() / "no-usbmuxd.sock").string();
    ::setenv("USBMUXD_SOCKET_ADDRESS", address.c_str(), 1);
    testing::SimulatedScheduler clock;
    SpawnProcessLauncher launcher;
    const auto result = PhoneReader::readAttempt(bin, std::nullopt, std::nullopt, clock, launcher);
    ::unsetenv("USBMUXD_SOCKET_ADDRESS");
    ASSERT_FALSE(result.hasValue());
    EXPECT_EQ(result.error().state, PhoneSetupState::unavailable);
    EXPECT_EQ(result.error().message,
              "Couldn\u2019t reach the iPhone service. Reconnect your phone or reopen Tovrin.");
    EXPECT_FALSE(result.error().isTransient);
}

} // namespace
} // namespace ambrel
