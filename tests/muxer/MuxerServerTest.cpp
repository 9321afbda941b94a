#include "muxer/MuxerServer.h"

#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstring>
#include <future>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "muxer/MuxMessage.h"
#include "tests/fakes/TemporaryFolder.h"
#include "tests/fakes/ThreadActivity.h"
#include "tests/muxer/FakeNetworkPhones.h"
#include "tests/muxer/FakeSystemMuxer.h"
#include "tests/muxer/RecordingArrivals.h"

namespace ambrel::testing {
namespace {

using namespace std::chrono_literals;
using namespace std::string_literals;

const std::string kSerial = "00008110001A2B3C4D5E6F70";
const std::string kUdid = "00008110-001A2B3C4D5E6F70";
// Another phone's serial.
const std::string kOtherSerial = "00008030-000A11112222333E";

MuxDevice wifiPhone(std::uint32_t id, const std::string& serial, std::uint16_t port = 62078) {
    MuxDevice device;
    device.deviceId = id;
    device.serialNumber = serial;
    device.connection = MuxDevice::Connection::network;
    NetworkAddress address;
    address.bytes = {127, 0, 0, 1};
    address.port = port;
    device.address = address;
    device.serviceName = "aa:bb:cc:dd:ee:ff@fe80::1._apple-mobdev2._tcp.local.";
    device.interfaceIndex = 1;
    return device;
}

// A client as libusbmuxd is one: one request, one reply.
class TestClient {
public:
    explicit TestClient(const std::filesystem::path& socket)
        : m_fd(connectUnixSocket(socket.string())) {}

    bool isConnected() const { return m_fd.isValid(); }
    int fd() const { return m_fd.get(); }

    bool send(const MuxRequest& request, std::uint32_t tag) {
        return sendBytes(encodeMuxMessage(tag, muxRequestDictionary(request, "test")));
    }
    bool sendBytes(const std::string& bytes) {
        return MuxChannel(m_fd.get(), -1).writeAll(bytes, 5s) == ChannelStatus::ok;
    }
    // The next reply, or nothing within `limit` (far beyond any answer the muxer gives).
    std::optional<MuxFrame> receive(std::chrono::milliseconds limit = 30s) {
        MuxFrame frame;
        if (MuxChannel(m_fd.get(), -1).readFrame(frame, limit) != ChannelStatus::ok) {
            return std::nullopt;
        }
        return frame;
    }
    std::optional<MuxReply> ask(const MuxRequest& request, std::uint32_t tag = 7) {
        if (!send(request, tag)) {
            return std::nullopt;
        }
        const auto frame = receive();
        if (!frame) {
            return std::nullopt;
        }
        EXPECT_EQ(frame->header.tag, tag);
        return parseMuxReply(frame->payload);
    }
    // Whether the muxer hung up (end of file within `limit`).
    bool isHungUp(std::chrono::milliseconds limit = 30s) {
        pollfd fd{m_fd.get(), POLLIN, 0};
        if (::poll(&fd, 1, static_cast<int>(limit.count())) != 1) {
            return false;
        }
        char byte = 0;
        // Unread bytes left on the muxer's side turn its close into a reset.
        const auto got = ::recv(m_fd.get(), &byte, 1, MSG_DONTWAIT);
        return got == 0 || (got < 0 && errno == ECONNRESET);
    }

private:
    UniqueFd m_fd;
};

MuxRequest request(MuxRequestType type, const std::string& name) {
    MuxRequest result;
    result.type = type;
    result.messageType = name;
    return result;
}

MuxRequest connectRequest(std::uint32_t deviceId, std::uint16_t port) {
    auto result = request(MuxRequestType::connect, "Connect");
    result.deviceId = deviceId;
    result.port = port;
    return result;
}

MuxRequest pairRecordRequest(const std::string& udid) {
    auto result = request(MuxRequestType::readPairRecord, "ReadPairRecord");
    result.pairRecordId = udid;
    return result;
}

std::vector<MuxDevice> listed(const std::optional<MuxReply>& reply) {
    if (!reply) {
        ADD_FAILURE() << "no reply";
        return {};
    }
    auto devices = deviceListOf(*reply);
    if (!devices) {
        ADD_FAILURE() << "no device list";
        return {};
    }
    return *devices;
}

// The one thread named `name`, once it is asleep; 0 if there is none or it does not sleep.
pid_t sleepingThreadNamed(const std::string& name) {
    const auto deadline = std::chrono::steady_clock::now() + 60s;
    while (std::chrono::steady_clock::now() < deadline) {
        const auto threads = ThreadActivity::threadsNamed(name);
        if (threads.size() == 1 && ThreadActivity::isAsleep(threads[0])) {
            return threads[0];
        }
        std::this_thread::sleep_for(10ms);
    }
    return 0;
}

class MuxerServerTest : public ::testing::Test {
protected:
    void startMuxer(FakeSystemMuxer::Behaviour behaviour = FakeSystemMuxer::Behaviour::normal,
                    bool withSystemMuxer = true) {
        ASSERT_FALSE(m_folder.path().empty());
        if (withSystemMuxer) {
            m_system = std::make_unique<FakeSystemMuxer>(m_folder.path() / "system", behaviour);
        }
        MuxerServer::Options options;
        options.socketPath = m_folder.path() / "muxer";
        options.systemMuxerPath = (m_folder.path() / "system").string();
        options.network = &m_network;
        options.systemMuxerLimit = 500ms;
        options.clientLimit = m_clientLimit;
        options.listenPeriod = 50ms;
        options.standingListen = m_standingListen;
        options.arrivals = &m_arrivals;
        m_muxer = std::make_unique<MuxerServer>(options);
        ASSERT_TRUE(m_muxer->start()) << m_muxer->failure();
    }

    TestClient client() const { return TestClient(m_muxer->socketPath()); }

    // Asks `request` of a new client: the reply must be a result. Its number; -1 without one.
    std::int64_t resultOf(const MuxRequest& request) const {
        auto c = client();
        const auto reply = c.ask(request);
        EXPECT_TRUE(reply);
        if (!reply) {
            return -1;
        }
        EXPECT_EQ(reply->kind, MuxReply::Kind::result);
        return reply->number;
    }

    void expectServing() {
        auto probe = client();
        ASSERT_TRUE(probe.isConnected());
        const auto reply = probe.ask(request(MuxRequestType::listDevices, "ListDevices"));
        ASSERT_TRUE(reply);
        EXPECT_TRUE(deviceListOf(*reply));
    }

    // Waits until listings come from the Listen standing at the system muxer.
    bool standingListenWithin(std::chrono::milliseconds limit) const {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (!m_muxer->watchesSystemMuxer()) {
            if (std::chrono::steady_clock::now() >= deadline) {
                return false;
            }
            std::this_thread::sleep_for(10ms);
        }
        return true;
    }

    // The devices listed with this phone on USB as `usbId` and another on Wi-Fi as `wifiId`.
    std::vector<MuxDevice> listedWithPhones(std::uint32_t usbId, std::uint32_t wifiId) {
        startMuxer();
        m_system->addUsbDevice(usbId, kSerial);
        m_network.setDevices({wifiPhone(wifiId, kOtherSerial)});
        return listedDevices();
    }

    // The devices the muxer lists to a new client.
    std::vector<MuxDevice> listedDevices() const {
        auto c = client();
        return listed(c.ask(request(MuxRequestType::listDevices, "ListDevices")));
    }

    std::vector<std::uint32_t> listedUsbIds() const {
        std::vector<std::uint32_t> ids;
        for (const auto& device : listedDevices()) {
            if (device.connection == MuxDevice::Connection::usb) {
                ids.push_back(device.deviceId);
            }
        }
        return ids;
    }

    bool m_standingListen = true;
    RecordingArrivals m_arrivals;
    std::chrono::milliseconds m_clientLimit = 2000ms;
    TemporaryFolder m_folder;
    FakeNetworkPhones m_network;
    std::unique_ptr<FakeSystemMuxer> m_system;
    std::unique_ptr<MuxerServer> m_muxer;
};

TEST_F(MuxerServerTest, TheSocketIsOnlyForItsOwner) {
    startMuxer();
    struct stat info {};
    ASSERT_EQ(::stat(m_muxer->socketPath().c_str(), &info), 0);
    EXPECT_TRUE(S_ISSOCK(info.st_mode));
    EXPECT_EQ(info.st_mode & 0777, 0600u);
    m_muxer->stop();
    EXPECT_FALSE(std::filesystem::exists(m_muxer->socketPath()));
}

TEST_F(MuxerServerTest, ASocketLeftByACrashedRunIsReplaced) {
    {
        const UniqueFd stale(::socket(AF_UNIX, SOCK_STREAM, 0));
        sockaddr_un address{};
        address.sun_family = AF_UNIX;
        const auto path = (m_folder.path() / "muxer").string();
        std::memcpy(address.sun_path, path.c_str(), path.size());
        ASSERT_EQ(::bind(stale.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    }
    startMuxer();
    expectServing();
}

TEST_F(MuxerServerTest, ListDevicesMergesUsbAndWiFiPhones) {
    const auto devices = listedWithPhones(3, 0x10001);
    ASSERT_EQ(devices.size(), 2u);
    EXPECT_EQ(devices[0].deviceId, 3u);
    EXPECT_EQ(devices[0].connection, MuxDevice::Connection::usb);
    EXPECT_EQ(devices[0].serialNumber, kSerial);
    // The system muxer's own properties pass through.
    EXPECT_EQ(integerIn(devices[0].properties.get(), "ProductID"), 4776u);
    EXPECT_EQ(devices[1].deviceId, 0x10001u);
    EXPECT_EQ(devices[1].connection, MuxDevice::Connection::network);
    ASSERT_TRUE(devices[1].address);
    EXPECT_EQ(devices[1].address->port, 62078);
    EXPECT_EQ(m_network.notedUsbSerials(), std::vector<std::string>{kSerial});
}

TEST_F(MuxerServerTest, AWiFiEntryThatWouldClashWithAUsbIdIsLeftOut) {
    const auto devices = listedWithPhones(5, 5);
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_EQ(devices[0].connection, MuxDevice::Connection::usb);
}

TEST_F(MuxerServerTest, NoSystemMuxerMeansNoUsbDevicesOnly) {
    startMuxer(FakeSystemMuxer::Behaviour::normal, false);
    EXPECT_TRUE(listedDevices().empty());
    m_network.setDevices({wifiPhone(0x10001, kSerial)});
    const auto devices = listedDevices();
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_EQ(devices[0].connection, MuxDevice::Connection::network);
}

TEST_F(MuxerServerTest, ASilentSystemMuxerCostsOnlyItsLimit) {
    startMuxer(FakeSystemMuxer::Behaviour::silent);
    m_network.setDevices({wifiPhone(0x10001, kSerial)});
    auto c = client();
    const auto started = std::chrono::steady_clock::now();
    // The silent system muxer holds every request unanswered until it is hung up on: the
    // listing can only come back because the muxer gave up on it at its own limit.
    const auto devices = listed(c.ask(request(MuxRequestType::listDevices, "ListDevices")));
    const auto took = std::chrono::steady_clock::now() - started;
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_EQ(devices[0].connection, MuxDevice::Connection::network);
    EXPECT_GE(took, 500ms);
}

TEST_F(MuxerServerTest, GarbageFromTheSystemMuxerCountsAsNoUsbDevices) {
    startMuxer(FakeSystemMuxer::Behaviour::garbage);
    EXPECT_TRUE(listedDevices().empty());
}

TEST_F(MuxerServerTest, ASystemMuxerThatRefusesListDevicesIsAskedByListening) {
    m_standingListen = false;
    startMuxer(FakeSystemMuxer::Behaviour::refusesListDevices);
    m_system->addUsbDevice(2, kSerial);
    const auto devices = listedDevices();
    ASSERT_EQ(devices.size(), 1u);
    EXPECT_EQ(devices[0].serialNumber, kSerial);
    EXPECT_EQ(m_system->requestsOf("Listen"), 1);
}

TEST_F(MuxerServerTest, ListingsComeFromAStandingListenAndFollowEveryChange) {
    startMuxer();
    m_system->addUsbDevice(3, kSerial);
    ASSERT_TRUE(standingListenWithin(30s));
    m_network.setDevices({wifiPhone(0x10001, kOtherSerial)});
    const auto devices = listedDevices();
    ASSERT_EQ(devices.size(), 2u);
    EXPECT_EQ(devices[0].deviceId, 3u);
    EXPECT_EQ(devices[0].serialNumber, kSerial);
    EXPECT_EQ(integerIn(devices[0].properties.get(), "ProductID"), 4776u);
    EXPECT_EQ(devices[1].deviceId, 0x10001u);
    EXPECT_EQ(m_network.notedUsbSerials(), std::vector<std::string>{kSerial});
    EXPECT_EQ(m_system->requestsOf("ListDevices"), 0);

    // A change is listed as soon as the system muxer made it: by asking while the watch has not
    // taken the change in yet, from the watch once it has.
    m_system->addUsbDevice(4, kOtherSerial);
    EXPECT_EQ(listedUsbIds(), (std::vector<std::uint32_t>{3, 4}));
    m_system->removeUsbDevice(3);
    EXPECT_EQ(listedUsbIds(), std::vector<std::uint32_t>{4});
    m_system->removeUsbDevice(4);
    EXPECT_TRUE(listedUsbIds().empty());
    ASSERT_TRUE(standingListenWithin(30s));
    const int asked = m_system->requestsOf("ListDevices");
    EXPECT_TRUE(listedUsbIds().empty());
    m_system->addUsbDevice(5, kSerial);
    EXPECT_EQ(listedUsbIds(), std::vector<std::uint32_t>{5});
    ASSERT_TRUE(standingListenWithin(30s));
    EXPECT_EQ(listedUsbIds(), std::vector<std::uint32_t>{5});
    // The listings made once the watch was current did not ask; only the one right after the
    // change may have.
    EXPECT_LE(m_system->requestsOf("ListDevices"), asked + 1);
    EXPECT_EQ(m_system->requestsOf("Listen"), 1);
}

TEST_F(MuxerServerTest, AStandingListenKeepsNoDevicesOfASystemMuxerThatEnded) {
    startMuxer();
    m_system->addUsbDevice(3, kSerial);
    ASSERT_TRUE(standingListenWithin(30s));
    EXPECT_EQ(listedUsbIds(), std::vector<std::uint32_t>{3});

    m_system.reset();
    EXPECT_TRUE(listedUsbIds().empty());
    EXPECT_FALSE(m_muxer->watchesSystemMuxer());

    // Back again: listed at once by asking, then from a new standing Listen.
    m_system = std::make_unique<FakeSystemMuxer>(m_folder.path() / "system");
    m_system->addUsbDevice(3, kSerial);
    EXPECT_EQ(listedUsbIds(), std::vector<std::uint32_t>{3});
    ASSERT_TRUE(standingListenWithin(SystemDeviceWatch::kRetry + 30s));
    const int asked = m_system->requestsOf("ListDevices");
    EXPECT_EQ(listedUsbIds(), std::vector<std::uint32_t>{3});
    EXPECT_EQ(m_system->requestsOf("ListDevices"), asked);
    EXPECT_EQ(m_system->requestsOf("Listen"), 1);
}

TEST_F(MuxerServerTest, PhonesPluggedInAreToldAsArrivals) {
    startMuxer();
    // One already plugged in when the Listen starts (the system muxer started for it).
    m_system->addUsbDevice(3, kSerial);
    ASSERT_TRUE(m_arrivals.waitFor(1, 60s));
    m_system->removeUsbDevice(3);
    m_system->addUsbDevice(4, "00008030000A11112222333E");
    ASSERT_TRUE(m_arrivals.waitFor(2, 60s));
    // Unplugging is no arrival: the two plugs are all there is.
    EXPECT_EQ(m_arrivals.arrivals(),
              (std::vector<std::string>{"usb " + kUdid, "usb 00008030-000A11112222333E"}));
}

TEST_F(MuxerServerTest, WithoutAStandingListenEveryListingAsksTheSystemMuxer) {
    m_standingListen = false;
    startMuxer();
    m_system->addUsbDevice(3, kSerial);
    std::this_thread::sleep_for(SystemDeviceWatch::kSettle * 2);
    EXPECT_FALSE(m_muxer->watchesSystemMuxer());
    EXPECT_EQ(listedUsbIds(), std::vector<std::uint32_t>{3});
    EXPECT_EQ(listedUsbIds(), std::vector<std::uint32_t>{3});
    EXPECT_EQ(m_system->requestsOf("ListDevices"), 2);
    EXPECT_EQ(m_system->requestsOf("Listen"), 0);
}

TEST_F(MuxerServerTest, ConnectToAUsbDeviceRelaysBytesBothWays) {
    startMuxer();
    m_system->addUsbDevice(3, kSerial);
    auto c = client();
    const auto reply = c.ask(connectRequest(3, 62078));
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->kind, MuxReply::Kind::result);
    EXPECT_EQ(reply->number, 0u);
    ASSERT_TRUE(c.sendBytes("hello"));
    std::string echoed(11, '\0');
    ASSERT_EQ(::recv(c.fd(), echoed.data(), echoed.size(), MSG_WAITALL), 11);
    EXPECT_EQ(echoed, "62078:hello");
    // After the first answer the device end echoes plainly; a big block goes through whole.
    std::string block(1000000, '\0');
    for (std::size_t i = 0; i < block.size(); ++i) {
        block[i] = static_cast<char>('a' + i % 26);
    }
    std::thread writer([&] { c.sendBytes(block); });
    std::string back;
    char buffer[65536];
    while (back.size() < block.size()) {
        pollfd fd{c.fd(), POLLIN, 0};
        if (::poll(&fd, 1, 5000) != 1) {
            break;
        }
        const auto got = ::recv(c.fd(), buffer, sizeof buffer, 0);
        if (got <= 0) {
            break;
        }
        back.append(buffer, static_cast<std::size_t>(got));
    }
    writer.join();
    ASSERT_EQ(back.size(), block.size());
    EXPECT_TRUE(back == block);
}

TEST_F(MuxerServerTest, ConnectToAnUnknownDeviceGivesTheSystemMuxersAnswer) {
    startMuxer();
    EXPECT_EQ(resultOf(connectRequest(9, 62078)), 2);
}

TEST_F(MuxerServerTest, ConnectWithoutSystemMuxerIsRefusedNotHung) {
    startMuxer(FakeSystemMuxer::Behaviour::normal, false);
    EXPECT_NE(resultOf(connectRequest(1, 62078)), 0);
}

TEST_F(MuxerServerTest, ConnectToAWiFiPhoneOpensTcpToItsAddress) {
    const UniqueFd phone(::socket(AF_INET, SOCK_STREAM, 0));
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ASSERT_EQ(::bind(phone.get(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
    socklen_t length = sizeof address;
    ASSERT_EQ(::getsockname(phone.get(), reinterpret_cast<sockaddr*>(&address), &length), 0);
    ASSERT_EQ(::listen(phone.get(), 1), 0);
    const auto port = ntohs(address.sin_port);

    startMuxer();
    m_network.setDevices({wifiPhone(0x10001, kSerial, 62078)});
    auto c = client();
    const auto reply = c.ask(connectRequest(0x10001, port));
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->number, 0u);
    const UniqueFd accepted(::accept(phone.get(), nullptr, nullptr));
    ASSERT_TRUE(accepted.isValid());
    ASSERT_TRUE(c.sendBytes("ping"));
    char got[4] = {};
    ASSERT_EQ(::recv(accepted.get(), got, 4, MSG_WAITALL), 4);
    EXPECT_EQ(std::string(got, 4), "ping");
    ASSERT_EQ(::send(accepted.get(), "pong", 4, 0), 4);
    ASSERT_EQ(::recv(c.fd(), got, 4, MSG_WAITALL), 4);
    EXPECT_EQ(std::string(got, 4), "pong");
}

TEST_F(MuxerServerTest, PairRecordsComeFromTheSystemMuxerFirst) {
    startMuxer();
    m_system->setPairRecord(kUdid, "system record");
    m_network.setPairRecord(kUdid, "kept record");
    auto c = client();
    const auto reply = c.ask(pairRecordRequest(kUdid));
    ASSERT_TRUE(reply);
    EXPECT_EQ(dataIn(reply->dictionary.get(), "PairRecordData"), "system record");
    EXPECT_EQ(m_network.notedRecords().at(kUdid), "system record");
}

TEST_F(MuxerServerTest, PairRecordsTheSystemMuxerLacksComeFromTheSource) {
    startMuxer(FakeSystemMuxer::Behaviour::normal, false);
    m_network.setPairRecord(kUdid, "kept record");
    auto c = client();
    const auto reply = c.ask(pairRecordRequest(kUdid));
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->kind, MuxReply::Kind::answer);
    EXPECT_EQ(dataIn(reply->dictionary.get(), "PairRecordData"), "kept record");
}

TEST_F(MuxerServerTest, AMissingPairRecordIsNeverResultZero) {
    startMuxer();
    EXPECT_NE(resultOf(pairRecordRequest("unknown")), 0);

    m_system.reset();
    EXPECT_NE(resultOf(pairRecordRequest("unknown")), 0);
}

TEST_F(MuxerServerTest, ReadBuidIsForwardedElseTakenFromTheSource) {
    startMuxer();
    auto c = client();
    auto reply = c.ask(request(MuxRequestType::readBuid, "ReadBUID"));
    ASSERT_TRUE(reply);
    EXPECT_EQ(stringIn(reply->dictionary.get(), "BUID"), "FAKE-SYSTEM-BUID");

    m_system.reset();
    m_network.setBuid("RECORD-BUID");
    auto d = client();
    reply = d.ask(request(MuxRequestType::readBuid, "ReadBUID"));
    ASSERT_TRUE(reply);
    EXPECT_EQ(stringIn(reply->dictionary.get(), "BUID"), "RECORD-BUID");
}

TEST_F(MuxerServerTest, OtherRequestsArePassedOn) {
    startMuxer();
    auto c = client();
    auto save = request(MuxRequestType::savePairRecord, "SavePairRecord");
    save.pairRecordId = kUdid;
    const auto reply = c.ask(save);
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->number, 0u);
    EXPECT_EQ(m_system->requestsOf("SavePairRecord"), 1);
}

TEST_F(MuxerServerTest, ListenAnnouncesUsbAndWiFiPhonesAsTheyComeAndGo) {
    startMuxer();
    m_system->addUsbDevice(3, kSerial);
    auto c = client();
    const auto result = c.ask(request(MuxRequestType::listen, "Listen"));
    ASSERT_TRUE(result);
    EXPECT_EQ(result->kind, MuxReply::Kind::result);
    EXPECT_EQ(result->number, 0u);

    const auto next = [&]() -> std::optional<MuxReply> {
        const auto frame = c.receive();
        return frame ? parseMuxReply(frame->payload) : std::nullopt;
    };
    auto event = next();
    ASSERT_TRUE(event);
    EXPECT_EQ(event->kind, MuxReply::Kind::attached);
    EXPECT_EQ(event->deviceId, 3u);

    m_network.setDevices({wifiPhone(0x10001, kSerial)});
    event = next();
    ASSERT_TRUE(event);
    EXPECT_EQ(event->kind, MuxReply::Kind::attached);
    EXPECT_EQ(event->deviceId, 0x10001u);
    EXPECT_EQ(event->device->connection, MuxDevice::Connection::network);

    m_network.setDevices({});
    event = next();
    ASSERT_TRUE(event);
    EXPECT_EQ(event->kind, MuxReply::Kind::detached);
    EXPECT_EQ(event->deviceId, 0x10001u);

    m_system->removeUsbDevice(3);
    event = next();
    ASSERT_TRUE(event);
    EXPECT_EQ(event->kind, MuxReply::Kind::detached);
    EXPECT_EQ(event->deviceId, 3u);
}

TEST_F(MuxerServerTest, ListenReportsUsbDevicesGoneWhenTheSystemMuxerEnds) {
    startMuxer();
    m_system->addUsbDevice(3, kSerial);
    auto c = client();
    ASSERT_TRUE(c.ask(request(MuxRequestType::listen, "Listen")));
    auto frame = c.receive();
    ASSERT_TRUE(frame);
    EXPECT_EQ(parseMuxReply(frame->payload)->kind, MuxReply::Kind::attached);
    m_system.reset();
    frame = c.receive();
    ASSERT_TRUE(frame);
    const auto event = parseMuxReply(frame->payload);
    ASSERT_TRUE(event);
    EXPECT_EQ(event->kind, MuxReply::Kind::detached);
    EXPECT_EQ(event->deviceId, 3u);
}

TEST_F(MuxerServerTest, GarbageHugeMessagesAndHangUpsEndOnlyThatClient) {
    startMuxer();
    {
        auto c = client();
        ASSERT_TRUE(c.sendBytes("this is not a muxer message at all"));
        EXPECT_TRUE(c.isHungUp());
    }
    {
        auto c = client();
        MuxHeader huge{0x7FFFFFFF, 1, 8, 1};
        ASSERT_TRUE(c.sendBytes(encodeMuxHeader(huge)));
        EXPECT_TRUE(c.isHungUp());
    }
    {
        auto c = client();
        MuxHeader header{1000, 1, 8, 1};
        ASSERT_TRUE(c.sendBytes(encodeMuxHeader(header) + "<?xml"));
        // hangs up mid-message
    }
    {
        auto c = client();
        MuxHeader header{16 + 7, 1, 8, 1};
        ASSERT_TRUE(c.sendBytes(encodeMuxHeader(header) + "garbage"));
        EXPECT_TRUE(c.isHungUp());
    }
    {
        // A client that never finishes its message is dropped at the client limit.
        auto c = client();
        ASSERT_TRUE(c.sendBytes(encodeMuxHeader({100, 1, 8, 1})));
        EXPECT_TRUE(c.isHungUp());
    }
    expectServing();
}

TEST_F(MuxerServerTest, AHundredClientsAtOnceAreAllAnswered) {
    startMuxer();
    m_system->addUsbDevice(3, kSerial);
    std::vector<std::future<std::size_t>> answers;
    for (int i = 0; i < 100; ++i) {
        answers.push_back(std::async(std::launch::async, [this] {
            auto c = client();
            const auto reply = c.ask(request(MuxRequestType::listDevices, "ListDevices"));
            const auto devices = reply ? deviceListOf(*reply) : std::nullopt;
            return devices ? devices->size() : std::size_t{0};
        }));
    }
    for (auto& answer : answers) {
        EXPECT_EQ(answer.get(), 1u);
    }
}

TEST_F(MuxerServerTest, ClientsBeyondTheLimitAreHungUpOnAndServedAgainLater) {
    startMuxer();
    std::vector<TestClient> idle;
    for (int i = 0; i < MuxerServer::kMostClients; ++i) {
        idle.push_back(client());
    }
    const auto deadline = std::chrono::steady_clock::now() + 30s;
    while (m_muxer->clientCount() < MuxerServer::kMostClients &&
           std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(10ms);
    }
    ASSERT_EQ(m_muxer->clientCount(), MuxerServer::kMostClients);
    auto extra = client();
    EXPECT_TRUE(extra.isHungUp());
    idle.clear();
    const auto freed = std::chrono::steady_clock::now() + 30s;
    while (m_muxer->clientCount() > 0 && std::chrono::steady_clock::now() < freed) {
        std::this_thread::sleep_for(10ms);
    }
    expectServing();
}

TEST_F(MuxerServerTest, StopEndsIdleListeningAndRelayingClientsAtOnce) {
    // None of the three would ever end by itself: the idle one has an hour to finish its
    // message, the listening and the relaying ones wait for their peers. So stop() returns only
    // if it ends them itself.
    m_clientLimit = std::chrono::hours(1);
    startMuxer();
    m_system->addUsbDevice(3, kSerial);
    auto idle = client();
    auto listening = client();
    ASSERT_TRUE(listening.ask(request(MuxRequestType::listen, "Listen")));
    auto relaying = client();
    ASSERT_TRUE(relaying.ask(connectRequest(3, 62078)));
    ASSERT_TRUE(idle.sendBytes(encodeMuxHeader({100, 1, 8, 1})));
    m_muxer->stop();
    EXPECT_TRUE(idle.isHungUp());
    EXPECT_TRUE(relaying.isHungUp());
    EXPECT_FALSE(std::filesystem::exists(m_muxer->socketPath()));
}

TEST_F(MuxerServerTest, IdleThreadsSleepUntilThereIsWorkAndEndWithTheStop) {
    // No system muxer and no client: the accepting thread and the USB watch have nothing to do
    // and must not wake for it, not even once in twice the watch's retry period.
    startMuxer(FakeSystemMuxer::Behaviour::normal, false);
    const pid_t accepting = sleepingThreadNamed("mux-accept");
    const pid_t watching = sleepingThreadNamed("usb-watch");
    ASSERT_NE(accepting, 0);
    ASSERT_NE(watching, 0);
    const auto acceptingBefore = ThreadActivity::voluntarySwitches(accepting);
    const auto watchingBefore = ThreadActivity::voluntarySwitches(watching);
    ASSERT_TRUE(acceptingBefore && watchingBefore);

    std::this_thread::sleep_for(SystemDeviceWatch::kRetry * 2 + 500ms);

    EXPECT_EQ(ThreadActivity::voluntarySwitches(accepting), acceptingBefore);
    EXPECT_EQ(ThreadActivity::voluntarySwitches(watching), watchingBefore);
    // And still wide awake to work: a client is served, a system muxer that appears is
    // listened to.
    expectServing();
    m_system = std::make_unique<FakeSystemMuxer>(m_folder.path() / "system");
    m_system->addUsbDevice(3, kSerial);
    ASSERT_TRUE(standingListenWithin(30s));
    EXPECT_EQ(listedUsbIds(), std::vector<std::uint32_t>{3});

    // stop() returns with both threads gone: it joined them, there was no period to wait out.
    m_muxer->stop();
    EXPECT_TRUE(ThreadActivity::threadsNamed("mux-accept").empty());
    EXPECT_TRUE(ThreadActivity::threadsNamed("usb-watch").empty());
}

TEST_F(MuxerServerTest, AServedClientsThreadEndsWithoutWakingTheAcceptingOne) {
    startMuxer();
    expectServing();
    const auto accepting = sleepingThreadNamed("mux-accept");
    ASSERT_NE(accepting, 0);
    const auto switchesBefore = ThreadActivity::voluntarySwitches(accepting);
    // The client's thread ends once its client has gone; the accepting thread sleeps on, and
    // joins it at the next client.
    const auto deadline = std::chrono::steady_clock::now() + MuxerServer::kWorkerLinger + 60s;
    while (!ThreadActivity::threadsNamed("mux-client").empty() &&
           std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(50ms);
    }
    EXPECT_TRUE(ThreadActivity::threadsNamed("mux-client").empty());
    EXPECT_EQ(ThreadActivity::voluntarySwitches(accepting), switchesBefore);
    expectServing();
}

TEST_F(MuxerServerTest, ASystemMuxerInAFolderMadeLaterIsFoundByRetrying) {
    // A folder that does not exist cannot be watched: the watch falls back to trying again.
    MuxerServer::Options options;
    options.socketPath = m_folder.path() / "muxer";
    options.systemMuxerPath = (m_folder.path() / "later" / "system").string();
    options.network = &m_network;
    options.systemMuxerLimit = 500ms;
    m_muxer = std::make_unique<MuxerServer>(options);
    ASSERT_TRUE(m_muxer->start()) << m_muxer->failure();
    ASSERT_NE(sleepingThreadNamed("usb-watch"), 0);
    std::filesystem::create_directory(m_folder.path() / "later");
    m_system = std::make_unique<FakeSystemMuxer>(m_folder.path() / "later" / "system");
    m_system->addUsbDevice(3, kSerial);
    ASSERT_TRUE(standingListenWithin(SystemDeviceWatch::kRetry + 30s));
    EXPECT_EQ(listedUsbIds(), std::vector<std::uint32_t>{3});
}

} // namespace
} // namespace ambrel::testing
