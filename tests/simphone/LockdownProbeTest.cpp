// The muxer's question to a phone on Wi-Fi, "do you hold this pairing?", asked of the simulated
// iPhone's lockdown over loopback, as a phone on a private address is asked.
#include <arpa/inet.h>
#include <chrono>
#include <memory>
#include <string>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "muxer/AuthTag.h"
#include "muxer/LockdownProbe.h"
#include "muxer/WifiPhoneDirectory.h"
#include "tests/fakes/TemporaryFolder.h"
#include "tests/simphone/Scenario.h"
#include "tests/simphone/SimulatedIphone.h"

namespace ambrel::testing {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;

const std::string kHostId = "5B7A1C52-4E4B-4D2B-9A05-1C1D0E2F3A4B";
const std::string kOtherHostId = "BBBBBBBB-CCCC-DDDD-EEEE-FFFFFFFFFFFF";
const std::string kBuid = "8C0F6E1A-2B3C-4D5E-8F90-A1B2C3D4E5F6";

class LockdownProbeOverWifi : public ::testing::Test {
protected:
    void startPhone(const json& extra) {
        json settings = kWifiOn;
        settings["hostId"] = kHostId;
        settings.update(extra);
        m_phone = std::make_unique<SimulatedIphone>(
            m_folder.path(), json{{"buid", kBuid}, {"devices", {phone("network", settings)}}});
        ASSERT_TRUE(m_phone->isReady()) << m_phone->failure();
        const auto text = m_phone->addressOf(kSerial);
        ASSERT_EQ(::inet_pton(AF_INET, text.c_str(), m_address.bytes.data()), 1) << text;
        m_address.port = WifiPhoneDirectory::kLockdownPort;
    }

    json requests() const { return m_phone->stats()["devices"][kSerial]["requests"]; }

    TemporaryFolder m_folder;
    std::unique_ptr<SimulatedIphone> m_phone;
    NetworkAddress m_address;
};

TEST_F(LockdownProbeOverWifi, ThePhoneThatHoldsThePairingSaysSo) {
    startPhone(json::object());
    EXPECT_EQ(probeLockdown(m_address, kHostId, kBuid, WifiPhoneDirectory::kTryLimit),
              ProbeAnswer::holdsPairing);
    // One request, the session's start; the session itself is never used.
    EXPECT_EQ(requests(), (json{{"StartSession", 1}}));
}

TEST_F(LockdownProbeOverWifi, AnotherPhoneAnswersInvalidHostId) {
    startPhone(json::object());
    EXPECT_EQ(probeLockdown(m_address, kOtherHostId, kBuid, WifiPhoneDirectory::kTryLimit),
              ProbeAnswer::otherPairing);
    EXPECT_EQ(requests(), (json{{"StartSession", 1}}));
}

TEST_F(LockdownProbeOverWifi, ALockedPhoneTeachesNothing) {
    startPhone(json{{"fault", "locked"}});
    EXPECT_EQ(probeLockdown(m_address, kHostId, kBuid, WifiPhoneDirectory::kTryLimit),
              ProbeAnswer::noAnswer);
}

TEST_F(LockdownProbeOverWifi, NothingListeningTeachesNothing) {
    startPhone(json{{"wifiConnections", false}});
    EXPECT_EQ(probeLockdown(m_address, kHostId, kBuid, WifiPhoneDirectory::kTryLimit),
              ProbeAnswer::noAnswer);
}

TEST_F(LockdownProbeOverWifi, ASilentPhoneCostsTheLimitAndNoMore) {
    startPhone(json{{"fault", "never_answers"}});
    const auto limit = 300ms;
    const auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(probeLockdown(m_address, kHostId, kBuid, limit), ProbeAnswer::noAnswer);
    EXPECT_GE(std::chrono::steady_clock::now() - started, limit);
}

TEST_F(LockdownProbeOverWifi, TheAdvertsTagsAreTheOnesTheProgramLooksFor) {
    const std::string identifier = "2BE6E510-0325-4365-923E-B14C6F57DB3A";
    startPhone(json{{"advert",
                     {{"mac", "02:11:22:33:44:55"},
                      {"identifier", identifier},
                      {"tagsFor", {"11111111-2222-3333-4444-555555555555"}},
                      {"tagsForHost", true}}}});
    const auto advert = m_phone->readyLine()["adverts"][kSerial];
    EXPECT_EQ(advert["name"], "02:11:22:33:44:55@fe80::f099:bfff:fe10:2030");
    EXPECT_EQ(advert["txt"], (json{"identifier=" + identifier, "authTag=DNKInlok1wk=",
                                   "authTag#1=" + authTagFor(kHostId, identifier)}));
}

TEST_F(LockdownProbeOverWifi, ASleepingPhoneAnswersOnlyWhileAwake) {
    startPhone(json{{"advert", {{"mac", "02:11:22:33:44:55"}}},
                    {"wifiSchedule", {{"startAsleep", true}, {"awake", 600}, {"asleep", 600}}}});
    EXPECT_EQ(probeLockdown(m_address, kHostId, kBuid, WifiPhoneDirectory::kTryLimit),
              ProbeAnswer::noAnswer);
    ASSERT_TRUE(m_phone->setWifiAsleep(false));
    EXPECT_EQ(probeLockdown(m_address, kHostId, kBuid, WifiPhoneDirectory::kTryLimit),
              ProbeAnswer::holdsPairing);
    ASSERT_TRUE(m_phone->setWifiAsleep(true));
    EXPECT_EQ(probeLockdown(m_address, kHostId, kBuid, WifiPhoneDirectory::kTryLimit),
              ProbeAnswer::noAnswer);
    EXPECT_EQ(m_phone->stats()["devices"][kSerial]["wifiWakes"], 1);
}

} // namespace
} // namespace ambrel::testing
