// Reading the phone settings helper's answers: its one JSON line and its exit code.
#include "phone/LockdownHelper.h"

#include <memory>

#include <gtest/gtest.h>

#include "phone/LockdownHelperProtocol.h"
#include "platform/linux/SpawnProcessLauncher.h"

namespace ambrel {
namespace {

CommandOutput output(std::int32_t status, std::string out) {
    CommandOutput result;
    result.status = status;
    result.stdoutText = std::move(out);
    return result;
}

TEST(LockdownHelperTest, ReadsTheListWithEachConnection) {
    const auto phones = LockdownHelper::parseList(output(
        0, R"({"devices":[{"connection":"usb","udid":"A"},{"connection":"network","udid":"A"}]})"
           "\n"));
    ASSERT_TRUE(phones);
    EXPECT_EQ(phones.value(),
              (std::vector<PhoneOnMuxer>{{"A", PhoneLink::usb}, {"A", PhoneLink::wifi}}));
    const auto none = LockdownHelper::parseList(output(0, R"({"devices":[]})"));
    ASSERT_TRUE(none);
    EXPECT_TRUE(none.value().empty());
}

TEST(LockdownHelperTest, ReadsDetailsOfATrustedAndOfAnUntrustedPhone) {
    const auto trusted = LockdownHelper::parseDetails(
        output(0, R"({"connection":"usb","model":"iPhone14,2","name":"Sim","osVersion":"17.5.1",)"
                  R"("trusted":true,"udid":"A","wifiAddress":"f0:99:bf:10:20:30",)"
                  R"("wifiConnections":true})"));
    ASSERT_TRUE(trusted);
    EXPECT_EQ(trusted.value().name, "Sim");
    EXPECT_EQ(trusted.value().model, "iPhone14,2");
    EXPECT_EQ(trusted.value().osVersion, "17.5.1");
    EXPECT_EQ(trusted.value().wifiAddress, "f0:99:bf:10:20:30");
    EXPECT_EQ(trusted.value().link, PhoneLink::usb);
    EXPECT_TRUE(trusted.value().trusted);
    EXPECT_EQ(trusted.value().wifiConnections, true);

    const auto untrusted = LockdownHelper::parseDetails(
        output(0, R"({"connection":"network","model":"","name":"Sim","osVersion":"",)"
                  R"("trustError":"InvalidHostID","trusted":false,"udid":"A","wifiAddress":"",)"
                  R"("wifiConnections":null})"));
    ASSERT_TRUE(untrusted);
    EXPECT_FALSE(untrusted.value().trusted);
    EXPECT_EQ(untrusted.value().osVersion, "");
    EXPECT_EQ(untrusted.value().trustError, "InvalidHostID");
    EXPECT_EQ(untrusted.value().link, PhoneLink::wifi);
    EXPECT_FALSE(untrusted.value().wifiConnections.has_value());
}

TEST(LockdownHelperTest, AnOlderHelpersLineWithoutTheVersionStillReads) {
    const auto details = LockdownHelper::parseDetails(
        output(0, R"({"connection":"usb","model":"iPhone14,2","name":"Sim","trusted":true,)"
                  R"("udid":"A","wifiAddress":"f0:99:bf:10:20:30","wifiConnections":false})"));
    ASSERT_TRUE(details);
    EXPECT_EQ(details.value().osVersion, "");
    EXPECT_EQ(details.value().model, "iPhone14,2");
    EXPECT_TRUE(details.value().trusted);
    EXPECT_EQ(details.value().wifiConnections, false);
}

TEST(LockdownHelperTest, ReadsTheWifiSetting) {
    const auto on = LockdownHelper::parseWifi(output(0, R"({"udid":"A","wifiConnections":true})"));
    ASSERT_TRUE(on);
    EXPECT_TRUE(on.value());
    const auto off =
        LockdownHelper::parseWifi(output(0, R"({"udid":"A","wifiConnections":false})"));
    ASSERT_TRUE(off);
    EXPECT_FALSE(off.value());
}

TEST(LockdownHelperTest, EachExitCodeIsItsFailureWithTheNameTheHelperGave) {
    const std::vector<std::pair<int, LockdownFailure>> cases = {
        {LockdownHelperProtocol::kExitNoDevice, LockdownFailure::noDevice},
        {LockdownHelperProtocol::kExitMuxerUnavailable, LockdownFailure::muxerUnavailable},
        {LockdownHelperProtocol::kExitNotTrusted, LockdownFailure::notTrusted},
        {LockdownHelperProtocol::kExitLockdownError, LockdownFailure::lockdownError},
    };
    for (const auto& [status, kind] : cases) {
        const auto result =
            LockdownHelper::parseWifi(output(status, R"({"error":"SetProhibited","udid":"A"})"));
        ASSERT_FALSE(result) << status;
        EXPECT_EQ(result.error(), (LockdownError{kind, "SetProhibited"})) << status;
    }
}

TEST(LockdownHelperTest, AnythingElseIsABrokenHelper) {
    const LockdownError broken{LockdownFailure::helperBroken, "HelperFailed"};
    // Usage, a crash, a launch failure, no JSON, JSON without the value, a failure without a
    // name.
    for (const auto& [status, out] : std::vector<std::pair<int, std::string>>{
             {LockdownHelperProtocol::kExitUsage, ""},
             {139, ""},
             {-1, ""},
             {0, "SUCCESS\n"},
             {0, R"({"udid":"A"})"},
             {0, R"({"udid":"A","wifiConnections":"yes"})"},
             {LockdownHelperProtocol::kExitNotTrusted, R"({"udid":"A"})"},
             {0, "[1,2]"}}) {
        const auto result = LockdownHelper::parseWifi(output(status, out));
        ASSERT_FALSE(result) << status << " " << out;
        EXPECT_EQ(result.error(), broken) << status << " " << out;
    }
    EXPECT_FALSE(LockdownHelper::parseList(output(0, R"({"devices":[{"connection":"usb"}]})")));
    EXPECT_FALSE(LockdownHelper::parseDetails(output(0, R"({"udid":"A"})")));
    EXPECT_FALSE(
        LockdownHelper::parseDetails(output(0, R"({"osVersion":17,"trusted":false,"udid":"A"})")));
}

TEST(LockdownHelperTest, AHelperThatDidNotEndInTimeTimedOut) {
    CommandOutput late = output(-1, "");
    late.timedOut = true;
    const auto result = LockdownHelper::parseList(late);
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error(), (LockdownError{LockdownFailure::timedOut, "TimedOut"}));
}

TEST(LockdownHelperTest, AMissingHelperIsABrokenHelper) {
    const LockdownHelper helper("/nonexistent/tool/folder",
                                std::make_shared<SpawnProcessLauncher>());
    EXPECT_EQ(helper.helperPath(), "/nonexistent/tool/folder/tovrin-lockdown");
    EXPECT_EQ(helper.pairToolPath(), "/nonexistent/tool/folder/idevicepair");
    const auto result = helper.wifiConnections("A", true);
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error().kind, LockdownFailure::helperBroken);
    const auto paired = helper.pair("A");
    ASSERT_FALSE(paired);
    EXPECT_EQ(paired.error(), "Unable to launch iPhone helper");
}

TEST(LockdownHelperTest, WithoutALauncherNothingIsStartedAndItSaysSo) {
    const LockdownHelper helper("/usr/bin", nullptr);
    const auto listed = helper.listPhones();
    ASSERT_FALSE(listed);
    EXPECT_EQ(listed.error().kind, LockdownFailure::helperBroken);
    const auto paired = helper.pair("A");
    ASSERT_FALSE(paired);
    EXPECT_EQ(paired.error(), "Unable to launch iPhone helper");
}

} // namespace
} // namespace ambrel
