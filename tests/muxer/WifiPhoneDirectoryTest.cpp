#include "muxer/WifiPhoneDirectory.h"

#include <filesystem>
#include <map>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "muxer/AuthTag.h"
#include "tests/fakes/TemporaryFolder.h"
#include "tests/muxer/PairRecordFixtures.h"
#include "tests/muxer/RecordingArrivals.h"

namespace ambrel::testing {
namespace {

using namespace std::chrono_literals;

const std::string kPhoneA = "00008110-000A11112222333A";
const std::string kPhoneB = "00008110-000B11112222333B";

WifiAdvert advert(const std::string& mac, std::array<std::uint8_t, 4> ipv4,
                  std::uint32_t interfaceIndex = 2) {
    WifiAdvert result;
    result.name = mac + "@fe80::1c2b:3aff:fe4d:5e6f";
    result.fullServiceName = result.name + "._apple-mobdev2._tcp.local.";
    result.interfaceIndex = interfaceIndex;
    result.address.bytes = {ipv4[0], ipv4[1], ipv4[2], ipv4[3]};
    result.address.port = 32498;
    return result;
}

// A phone on a private Wi-Fi address: the address in its name is none of its records', and its
// TXT record names the computers it paired with (by their HostIDs) through their tags.
WifiAdvert privateAdvert(const std::string& privateMac, std::array<std::uint8_t, 4> ipv4,
                         const std::string& identifier, const std::vector<std::string>& hostIds) {
    auto result = advert(privateMac, ipv4);
    std::vector<std::pair<std::string, std::string>> txt = {{"identifier", identifier}};
    for (std::size_t index = 0; index < hostIds.size(); ++index) {
        txt.emplace_back(index == 0 ? "authTag" : "authTag#" + std::to_string(index),
                         authTagFor(hostIds[index], identifier));
    }
    readAdvertTxt(result, txt);
    return result;
}

// Long enough for any number of tries a test makes, spaced as they are.
constexpr auto kPatienceForTries = std::chrono::seconds(60);

const std::string kHostA = "11111111-2222-3333-4444-555555555555";
const std::string kHostB = "66666666-7777-8888-9999-AAAAAAAAAAAA";
// Another computer's pairing with the same phones.
const std::string kElsewhere = "BBBBBBBB-CCCC-DDDD-EEEE-FFFFFFFFFFFF";

WifiAdvert ipv6Advert(const std::string& mac) {
    auto result = advert(mac, {0, 0, 0, 0});
    result.address.family = NetworkAddress::Family::ipv6;
    result.address.bytes = {0xfe, 0x80, 0,    0,    0,    0,    0,    0,
                            0x1c, 0x2b, 0x3a, 0xff, 0xfe, 0x4d, 0x5e, 0x6f};
    result.address.scopeId = 2;
    return result;
}

MuxDevice usbPhone(const std::string& serial) {
    MuxDevice device;
    device.deviceId = 1;
    device.serialNumber = serial;
    return device;
}

// Phones' lockdowns as the directory's tries see them: each address holds some pairings; an
// address not set gives no answer. Keeps every try.
class FakeLockdowns {
public:
    struct Try {
        std::string address;
        std::uint16_t port;
        std::string hostId;
        std::string systemBuid;
        std::chrono::steady_clock::time_point when;
    };

    void phoneAt(const std::string& address, std::set<std::string> hostIds) {
        const std::lock_guard lock(m_mutex);
        m_phones[address] = std::move(hostIds);
    }

    ProbeAnswer ask(const NetworkAddress& address, const std::string& hostId,
                    const std::string& systemBuid) {
        const std::lock_guard lock(m_mutex);
        m_tries.push_back(
            {toText(address), address.port, hostId, systemBuid, std::chrono::steady_clock::now()});
        const auto phone = m_phones.find(toText(address));
        if (phone == m_phones.end()) {
            return ProbeAnswer::noAnswer;
        }
        return phone->second.contains(hostId) ? ProbeAnswer::holdsPairing
                                              : ProbeAnswer::otherPairing;
    }

    std::vector<Try> tries() const {
        const std::lock_guard lock(m_mutex);
        return m_tries;
    }

    // "address hostId" of each try, in order.
    std::vector<std::string> asked() const {
        std::vector<std::string> lines;
        for (const auto& t : tries()) {
            lines.push_back(t.address + " " + t.hostId);
        }
        return lines;
    }

private:
    mutable std::mutex m_mutex;
    std::map<std::string, std::set<std::string>> m_phones;
    std::vector<Try> m_tries;
};

class WifiPhoneDirectoryTest : public ::testing::Test {
protected:
    WifiPhoneDirectoryTest()
        : m_store(m_folder.path() / "lockdown", m_folder.path() / "own"),
          m_directory(
              m_store, [this] { return m_now; },
              [this](const NetworkAddress& address, const std::string& hostId,
                     const std::string& systemBuid) {
                  return m_lockdowns.ask(address, hostId, systemBuid);
              }) {}

    // serial number -> address of each phone listed.
    std::map<std::string, std::string> listed() {
        std::map<std::string, std::string> found;
        for (const auto& device : m_directory.networkDevices()) {
            found[device.serialNumber] = toText(*device.address);
        }
        return found;
    }

    void pair(const std::string& udid, const std::string& mac,
              const std::string& hostId = "5B7A1C52-4E4B-4D2B-9A05-1C1D") {
        writeFile(m_folder.path() / "lockdown" / (udid + ".plist"),
                  pairRecordBytes(mac, "BUID", hostId));
    }

    TemporaryFolder m_folder;
    std::chrono::steady_clock::time_point m_now{};
    PairRecordStore m_store;
    FakeLockdowns m_lockdowns;
    RecordingArrivals m_arrivals;
    WifiPhoneDirectory m_directory;
};

TEST_F(WifiPhoneDirectoryTest, AdvertNamesGiveTheirMac) {
    EXPECT_EQ(macOfAdvertName("AA:BB:CC:DD:EE:FF@fe80::1"), "aa:bb:cc:dd:ee:ff");
    EXPECT_FALSE(macOfAdvertName("aa:bb:cc:dd:ee@fe80::1"));
    EXPECT_FALSE(macOfAdvertName("aa:bb:cc:dd:ee:fg@fe80::1"));
    EXPECT_FALSE(macOfAdvertName("aa-bb-cc-dd-ee-ff@fe80::1"));
    EXPECT_FALSE(macOfAdvertName("My iPhone"));
}

TEST_F(WifiPhoneDirectoryTest, AnAdvertIsListedUnderThePhoneWhoseRecordHasItsMac) {
    pair(kPhoneA, "aa:bb:cc:dd:ee:01");
    pair(kPhoneB, "aa:bb:cc:dd:ee:02");
    m_directory.advertResolved(advert("AA:BB:CC:DD:EE:02", {192, 168, 1, 20}));
    const auto devices = m_directory.networkDevices();
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_EQ(devices[0].serialNumber, kPhoneB);
    EXPECT_EQ(devices[0].connection, MuxDevice::Connection::network);
    EXPECT_GE(devices[0].deviceId, WifiPhoneDirectory::kFirstDeviceId);
    ASSERT_TRUE(devices[0].address);
    EXPECT_EQ(toText(*devices[0].address), "192.168.1.20");
    EXPECT_EQ(devices[0].address->port, 62078);
    EXPECT_EQ(devices[0].interfaceIndex, 2u);
    EXPECT_EQ(devices[0].serviceName,
              "AA:BB:CC:DD:EE:02@fe80::1c2b:3aff:fe4d:5e6f._apple-mobdev2._tcp.local.");
    // The same phone keeps its device ID.
    EXPECT_EQ(m_directory.networkDevices()[0].deviceId, devices[0].deviceId);
}

TEST_F(WifiPhoneDirectoryTest, Ipv4IsPreferredWhicheverResolvedFirst) {
    pair(kPhoneA, "aa:bb:cc:dd:ee:01");
    m_directory.advertResolved(ipv6Advert("aa:bb:cc:dd:ee:01"));
    auto devices = m_directory.networkDevices();
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_EQ(devices[0].address->family, NetworkAddress::Family::ipv6);
    EXPECT_EQ(devices[0].address->scopeId, 2u);
    m_directory.advertResolved(advert("aa:bb:cc:dd:ee:01", {10, 0, 0, 7}));
    m_directory.advertResolved(ipv6Advert("aa:bb:cc:dd:ee:01"));
    devices = m_directory.networkDevices();
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_EQ(toText(*devices[0].address), "10.0.0.7");
}

TEST_F(WifiPhoneDirectoryTest, APhoneStaysListedForTheGracePeriodAfterItsAdvertWent) {
    pair(kPhoneA, "aa:bb:cc:dd:ee:01");
    m_directory.advertResolved(advert("aa:bb:cc:dd:ee:01", {10, 0, 0, 7}));
    m_directory.advertRemoved(advert("aa:bb:cc:dd:ee:01", {}).name, 2);
    m_now += WifiPhoneDirectory::kGracePeriod - 1ms;
    EXPECT_EQ(m_directory.networkDevices().size(), 1u);
    m_now += 1ms;
    EXPECT_TRUE(m_directory.networkDevices().empty());
}

TEST_F(WifiPhoneDirectoryTest, AnAdvertThatComesBackEndsItsGracePeriod) {
    pair(kPhoneA, "aa:bb:cc:dd:ee:01");
    m_directory.advertResolved(advert("aa:bb:cc:dd:ee:01", {10, 0, 0, 7}));
    m_directory.everyAdvertRemoved();
    m_now += 10min;
    m_directory.advertResolved(advert("aa:bb:cc:dd:ee:01", {10, 0, 0, 8}));
    m_now += WifiPhoneDirectory::kGracePeriod;
    const auto devices = m_directory.networkDevices();
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_EQ(toText(*devices[0].address), "10.0.0.8");
}

TEST_F(WifiPhoneDirectoryTest, AnAdvertThatArrivesOrComesBackIsAnArrival) {
    RecordingArrivals arrivals;
    m_directory.setArrivalSink(&arrivals);
    const auto first = advert("aa:bb:cc:dd:ee:01", {10, 0, 0, 7});
    m_directory.advertResolved(first);
    // Its second address, and the same address again, are the same advert still here.
    m_directory.advertResolved(ipv6Advert("aa:bb:cc:dd:ee:01"));
    m_directory.advertResolved(first);
    EXPECT_EQ(arrivals.arrivals(), std::vector<std::string>{"wifi " + first.name});

    // Gone (a sleeping phone), back within the grace period: an arrival.
    m_directory.advertRemoved(first.name, 2);
    m_now += 2min;
    m_directory.advertResolved(first);
    // Every advert gone at once (avahi-daemon restarted), then back: an arrival.
    m_directory.everyAdvertRemoved();
    m_directory.advertResolved(first);
    // Another phone: an arrival of its own.
    const auto other = advert("aa:bb:cc:dd:ee:02", {10, 0, 0, 9});
    m_directory.advertResolved(other);
    EXPECT_EQ(arrivals.arrivals(),
              (std::vector<std::string>{"wifi " + first.name, "wifi " + first.name,
                                        "wifi " + first.name, "wifi " + other.name}));
}

TEST(AdvertTxtTest, TakesTheIdentifierAndEveryTag) {
    WifiAdvert read;
    readAdvertTxt(read, {{"model", "iPhone17,1"},
                         {"identifier", "2BE6E510-0325-4365-923E-B14C6F57DB3A"},
                         {"authTag", "DNKInlok1wk="},
                         {"authTag#1", "AAAAAAAAAAA="},
                         {"authTag#2", ""},
                         {"authTagger", "BBBBBBBBBBB="}});
    EXPECT_EQ(read.identifier, "2BE6E510-0325-4365-923E-B14C6F57DB3A");
    EXPECT_EQ(read.authTags, (std::vector<std::string>{"DNKInlok1wk=", "AAAAAAAAAAA="}));
}

TEST_F(WifiPhoneDirectoryTest, TwoPhonesOnPrivateAddressesAreEachFoundByTheirTags) {
    pair(kPhoneA, "aa:bb:cc:dd:ee:01", kHostA);
    pair(kPhoneB, "aa:bb:cc:dd:ee:02", kHostB);
    // Neither advertises the address its record has; each also names another computer.
    m_directory.advertResolved(privateAdvert("f2:11:22:33:44:55", {10, 0, 0, 7},
                                             "2BE6E510-0325-4365-923E-B14C6F57DB3A",
                                             {kElsewhere, kHostA}));
    m_directory.advertResolved(privateAdvert("f6:66:77:88:99:aa", {10, 0, 0, 8},
                                             "7C1F0D2E-1111-4A4A-8B8B-0123456789AB", {kHostB}));
    std::map<std::string, std::string> found;
    for (const auto& device : m_directory.networkDevices()) {
        found[device.serialNumber] = toText(*device.address);
    }
    EXPECT_EQ(found,
              (std::map<std::string, std::string>{{kPhoneA, "10.0.0.7"}, {kPhoneB, "10.0.0.8"}}));
}

TEST_F(WifiPhoneDirectoryTest, APhoneThatPairedElsewhereOnlyIsNeverOfferedAsOurs) {
    // One phone paired here: a lone unmatched advert would be offered as it, but one whose
    // tags name only other computers is a stranger's phone.
    pair(kPhoneA, "aa:bb:cc:dd:ee:01", kHostA);
    m_directory.advertResolved(privateAdvert("f2:11:22:33:44:55", {10, 0, 0, 9},
                                             "2BE6E510-0325-4365-923E-B14C6F57DB3A", {kElsewhere}));
    EXPECT_TRUE(m_directory.networkDevices().empty());
}

TEST_F(WifiPhoneDirectoryTest, AnOlderPhoneWithoutTagsIsStillFoundByItsAddress) {
    pair(kPhoneA, "aa:bb:cc:dd:ee:01", kHostA);
    pair(kPhoneB, "aa:bb:cc:dd:ee:02", kHostB);
    m_directory.advertResolved(advert("aa:bb:cc:dd:ee:02", {10, 0, 0, 8}));
    const auto devices = m_directory.networkDevices();
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_EQ(devices[0].serialNumber, kPhoneB);
}

TEST_F(WifiPhoneDirectoryTest, WithOneKnownPhoneALoneStrangerIsOfferedAsIt) {
    pair(kPhoneA, "aa:bb:cc:dd:ee:01");
    m_directory.advertResolved(advert("02:11:22:33:44:55", {10, 0, 0, 9}));
    auto devices = m_directory.networkDevices();
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_EQ(devices[0].serialNumber, kPhoneA);
    // Two strangers: which one is ours cannot be told.
    m_directory.advertResolved(advert("02:11:22:33:44:66", {10, 0, 0, 10}));
    EXPECT_TRUE(m_directory.networkDevices().empty());
}

TEST_F(WifiPhoneDirectoryTest, WithTwoKnownPhonesStrangersAreNotListed) {
    pair(kPhoneA, "aa:bb:cc:dd:ee:01", kHostA);
    pair(kPhoneB, "aa:bb:cc:dd:ee:02", kHostB);
    m_directory.advertResolved(advert("02:11:22:33:44:55", {10, 0, 0, 9}));
    m_lockdowns.phoneAt("10.0.0.9", {kElsewhere});
    EXPECT_TRUE(m_directory.networkDevices().empty());
    // It was asked about each pairing, and said no to both.
    EXPECT_EQ(m_lockdowns.asked(),
              (std::vector<std::string>{"10.0.0.9 " + kHostA, "10.0.0.9 " + kHostB}));
}

TEST_F(WifiPhoneDirectoryTest, TwoPhonesOnPrivateAddressesWithoutTagsAreFoundByAskingThem) {
    m_directory.setArrivalSink(&m_arrivals);
    pair(kPhoneA, "aa:bb:cc:dd:ee:01", kHostA);
    pair(kPhoneB, "aa:bb:cc:dd:ee:02", kHostB);
    m_directory.advertResolved(advert("02:11:22:33:44:55", {10, 0, 0, 7}));
    m_directory.advertResolved(advert("02:66:77:88:99:aa", {10, 0, 0, 8}));
    // The first advert is phone B's, the second phone A's: the opposite of any guess by order.
    m_lockdowns.phoneAt("10.0.0.7", {kHostB, kElsewhere});
    m_lockdowns.phoneAt("10.0.0.8", {kHostA});
    EXPECT_EQ(listed(),
              (std::map<std::string, std::string>{{kPhoneA, "10.0.0.8"}, {kPhoneB, "10.0.0.7"}}));
    // Each try went to lockdown's port with one of our pairings and the computer's SystemBUID.
    const auto tries = m_lockdowns.tries();
    ASSERT_FALSE(tries.empty());
    for (const auto& t : tries) {
        EXPECT_EQ(t.port, WifiPhoneDirectory::kLockdownPort);
        EXPECT_TRUE(t.hostId == kHostA || t.hostId == kHostB) << t.hostId;
        EXPECT_EQ(t.systemBuid, "BUID");
    }
    // A phone found is not asked about again, nor is another advert asked about it.
    const auto asked = m_lockdowns.asked();
    EXPECT_EQ(std::count(asked.begin(), asked.end(), "10.0.0.8 " + kHostB), 0);
    // Each found phone is an arrival under its udid, so that the card reads it.
    ASSERT_TRUE(m_arrivals.waitFor(4, kPatienceForTries));
    const auto arrivals = m_arrivals.arrivals();
    EXPECT_EQ(std::count(arrivals.begin(), arrivals.end(), "wifi " + kPhoneA), 1);
    EXPECT_EQ(std::count(arrivals.begin(), arrivals.end(), "wifi " + kPhoneB), 1);
    // The answers are kept: a later listing asks nothing.
    EXPECT_EQ(listed().size(), 2u);
    EXPECT_EQ(m_lockdowns.asked(), asked);
}

TEST_F(WifiPhoneDirectoryTest, AnAdvertThatAnswersToNoneOfOurPairingsIsLeftAloneForAnHour) {
    pair(kPhoneA, "aa:bb:cc:dd:ee:01", kHostA);
    m_directory.advertResolved(advert("02:11:22:33:44:55", {10, 0, 0, 9}));
    m_lockdowns.phoneAt("10.0.0.9", {kElsewhere});
    // Not ours: not even offered as the one known phone.
    EXPECT_TRUE(listed().empty());
    EXPECT_EQ(m_lockdowns.asked(), (std::vector<std::string>{"10.0.0.9 " + kHostA}));
    m_now += WifiPhoneDirectory::kForeignQuiet - 1s;
    EXPECT_TRUE(listed().empty());
    EXPECT_EQ(m_lockdowns.tries().size(), 1u);
    m_now += 1s;
    EXPECT_TRUE(listed().empty());
    EXPECT_EQ(m_lockdowns.tries().size(), 2u);
}

TEST_F(WifiPhoneDirectoryTest, APairingMadeSinceIsAskedAboutAtOnce) {
    pair(kPhoneA, "aa:bb:cc:dd:ee:01", kHostA);
    m_directory.advertResolved(advert("02:11:22:33:44:55", {10, 0, 0, 9}));
    m_lockdowns.phoneAt("10.0.0.9", {kHostB});
    EXPECT_TRUE(listed().empty());
    // The stranger turns out to be a phone paired a minute later.
    m_now += 1min;
    pair(kPhoneB, "aa:bb:cc:dd:ee:02", kHostB);
    EXPECT_EQ(listed(), (std::map<std::string, std::string>{{kPhoneB, "10.0.0.9"}}));
    EXPECT_EQ(m_lockdowns.asked(),
              (std::vector<std::string>{"10.0.0.9 " + kHostA, "10.0.0.9 " + kHostB}));
}

TEST_F(WifiPhoneDirectoryTest, AnAdvertThatGaveNoAnswerIsAskedAgainAfterAWhile) {
    pair(kPhoneA, "aa:bb:cc:dd:ee:01", kHostA);
    pair(kPhoneB, "aa:bb:cc:dd:ee:02", kHostB);
    // Nothing answers there (a phone that is locked, or gone): one try, not one per pairing.
    m_directory.advertResolved(advert("02:11:22:33:44:55", {10, 0, 0, 9}));
    EXPECT_TRUE(listed().empty());
    EXPECT_EQ(m_lockdowns.tries().size(), 1u);
    m_now += WifiPhoneDirectory::kUnansweredQuiet - 1s;
    EXPECT_TRUE(listed().empty());
    EXPECT_EQ(m_lockdowns.tries().size(), 1u);
    m_now += 1s;
    m_lockdowns.phoneAt("10.0.0.9", {kHostA});
    EXPECT_EQ(listed(), (std::map<std::string, std::string>{{kPhoneA, "10.0.0.9"}}));
}

TEST_F(WifiPhoneDirectoryTest, TriesAreSpacedWhicheverAdvertTheyGoTo) {
    pair(kPhoneA, "aa:bb:cc:dd:ee:01", kHostA);
    pair(kPhoneB, "aa:bb:cc:dd:ee:02", kHostB);
    for (std::uint8_t last = 1; last <= 3; ++last) {
        const std::string name = "02:00:00:00:00:0" + std::to_string(last);
        m_directory.advertResolved(advert(name, {10, 0, 1, last}));
        m_lockdowns.phoneAt("10.0.1." + std::to_string(last), {kElsewhere});
    }
    EXPECT_TRUE(listed().empty());
    // The tries this listing did not wait for go on by themselves.
    const auto deadline = std::chrono::steady_clock::now() + kPatienceForTries;
    while (m_lockdowns.tries().size() < 6 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(50ms);
    }
    const auto tries = m_lockdowns.tries();
    ASSERT_EQ(tries.size(), 6u);
    for (std::size_t i = 1; i < tries.size(); ++i) {
        EXPECT_GE(tries[i].when - tries[i - 1].when, WifiPhoneDirectory::kTrySpacing) << i;
    }
}

TEST_F(WifiPhoneDirectoryTest, AdvertsMatchedByTagOrAddressAreNeverAsked) {
    pair(kPhoneA, "aa:bb:cc:dd:ee:01", kHostA);
    pair(kPhoneB, "aa:bb:cc:dd:ee:02", kHostB);
    m_directory.advertResolved(advert("aa:bb:cc:dd:ee:01", {10, 0, 0, 7}));
    m_directory.advertResolved(privateAdvert("f6:66:77:88:99:aa", {10, 0, 0, 8},
                                             "7C1F0D2E-1111-4A4A-8B8B-0123456789AB", {kHostB}));
    // A stranger that names its own computers by their tags is not asked either.
    m_directory.advertResolved(privateAdvert("f2:11:22:33:44:55", {10, 0, 0, 9},
                                             "2BE6E510-0325-4365-923E-B14C6F57DB3A", {kElsewhere}));
    EXPECT_EQ(listed().size(), 2u);
    EXPECT_TRUE(m_lockdowns.tries().empty());
}

TEST_F(WifiPhoneDirectoryTest, NothingAboutAStrangersPhoneIsWritten) {
    pair(kPhoneA, "aa:bb:cc:dd:ee:01", kHostA);
    pair(kPhoneB, "aa:bb:cc:dd:ee:02", kHostB);
    const auto files = [this] {
        std::set<std::string> names;
        for (const auto& entry : std::filesystem::recursive_directory_iterator(m_folder.path())) {
            names.insert(entry.path().string() + " " +
                         std::to_string(entry.is_regular_file() ? entry.file_size() : 0));
        }
        return names;
    };
    const auto before = files();
    m_directory.advertResolved(advert("02:11:22:33:44:55", {10, 0, 0, 9}));
    m_lockdowns.phoneAt("10.0.0.9", {kElsewhere});
    EXPECT_TRUE(listed().empty());
    EXPECT_EQ(m_lockdowns.tries().size(), 2u);
    EXPECT_EQ(files(), before);
}

TEST_F(WifiPhoneDirectoryTest, EndingTheDirectoryStopsTheTriesStillWaiting) {
    pair(kPhoneA, "aa:bb:cc:dd:ee:01", kHostA);
    pair(kPhoneB, "aa:bb:cc:dd:ee:02", kHostB);
    auto directory = std::make_unique<WifiPhoneDirectory>(
        m_store, [this] { return m_now; },
        [this](const NetworkAddress& address, const std::string& hostId,
               const std::string& systemBuid) {
            return m_lockdowns.ask(address, hostId, systemBuid);
        });
    for (std::uint8_t last = 1; last <= 9; ++last) {
        directory->advertResolved(
            advert("02:00:00:00:00:0" + std::to_string(last), {10, 0, 1, last}));
        m_lockdowns.phoneAt("10.0.1." + std::to_string(last), {kElsewhere});
    }
    // Eighteen tries queued; the listing gives up waiting long before they could all be made.
    EXPECT_TRUE(directory->networkDevices().empty());
    const auto made = m_lockdowns.tries().size();
    ASSERT_LT(made, 18u);
    directory.reset();
    // At most the one under way when it ended was still made.
    EXPECT_LE(m_lockdowns.tries().size(), made + 1);
}

TEST_F(WifiPhoneDirectoryTest, APrivateAddressSeenWhileThePhoneIsOnUsbIsLearned) {
    pair(kPhoneA, "aa:bb:cc:dd:ee:01");
    pair(kPhoneB, "aa:bb:cc:dd:ee:02");
    m_directory.advertResolved(advert("02:11:22:33:44:55", {10, 0, 0, 9}));
    EXPECT_TRUE(m_directory.networkDevices().empty());
    // Phone B on the cable, its record's MAC not advertised, one stranger: that is B.
    m_directory.noteUsbDevices({usbPhone("00008110000B11112222333B")});
    const auto devices = m_directory.networkDevices();
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_EQ(devices[0].serialNumber, kPhoneB);
    EXPECT_EQ(m_store.learnedMacs().at("02:11:22:33:44:55"), kPhoneB);
}

TEST_F(WifiPhoneDirectoryTest, NothingIsLearnedWhenThePhoneOnUsbAdvertisesItsOwnMac) {
    pair(kPhoneA, "aa:bb:cc:dd:ee:01");
    pair(kPhoneB, "aa:bb:cc:dd:ee:02");
    m_directory.advertResolved(advert("aa:bb:cc:dd:ee:02", {10, 0, 0, 8}));
    m_directory.advertResolved(advert("02:11:22:33:44:55", {10, 0, 0, 9}));
    m_directory.noteUsbDevices({usbPhone("00008110000B11112222333B")});
    EXPECT_TRUE(m_store.learnedMacs().empty());
    // Nor with two phones on the cable, nor with an unknown one.
    m_directory.noteUsbDevices(
        {usbPhone("00008110000B11112222333B"), usbPhone("00008110000A11112222333A")});
    m_directory.noteUsbDevices({usbPhone("00008110000C11112222333C")});
    EXPECT_TRUE(m_store.learnedMacs().empty());
}

TEST_F(WifiPhoneDirectoryTest, AListingRightAfterTheStartWaitsForDiscoveryToSettle) {
    pair(kPhoneA, "aa:bb:cc:dd:ee:01");
    // A limit no test run reaches: the listing can only come back because discovery settled,
    // and then with the phone it found.
    m_directory.expectDiscovery(std::chrono::hours(1));
    std::thread discovery([this] {
        std::this_thread::sleep_for(100ms);
        m_directory.advertResolved(advert("aa:bb:cc:dd:ee:01", {10, 0, 0, 7}));
        m_directory.discoverySettled();
    });
    EXPECT_EQ(m_directory.networkDevices().size(), 1u);
    discovery.join();
}

TEST_F(WifiPhoneDirectoryTest, ADiscoveryThatNeverSettlesCostsItsLimitOnce) {
    // Taken before the limit starts, so the wait measured is never shorter than the real one.
    const auto started = std::chrono::steady_clock::now();
    m_directory.expectDiscovery(200ms);
    EXPECT_TRUE(m_directory.isAwaitingDiscovery());
    EXPECT_TRUE(m_directory.networkDevices().empty());
    EXPECT_GE(std::chrono::steady_clock::now() - started, 200ms);
    // The limit has passed: a later listing does not wait again.
    EXPECT_FALSE(m_directory.isAwaitingDiscovery());
    EXPECT_TRUE(m_directory.networkDevices().empty());
}

TEST_F(WifiPhoneDirectoryTest, PairRecordsGivenOutByTheSystemMuxerAreKept) {
    m_directory.notePairRecord(kPhoneA, pairRecordBytes("aa:bb:cc:dd:ee:01", "KEPT-BUID"));
    EXPECT_EQ(systemBuidOfPairRecord(*m_directory.pairRecord(kPhoneA)), "KEPT-BUID");
    EXPECT_EQ(m_directory.systemBuid(), "KEPT-BUID");
    m_directory.advertResolved(advert("aa:bb:cc:dd:ee:01", {10, 0, 0, 7}));
    ASSERT_EQ(m_directory.networkDevices().size(), 1u);
}

} // namespace
} // namespace ambrel::testing
