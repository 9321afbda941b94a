#include "diagnosis/SystemConnectionProbe.h"

#include <algorithm>
#include <cctype>
#include <condition_variable>
#include <mutex>
#include <set>
#include <unistd.h>
#include <utility>

#include <avahi-client/client.h>
#include <avahi-common/error.h>
#include <avahi-common/simple-watch.h>

#include "muxer/AvahiDiscovery.h"
#include "muxer/MuxChannel.h"
#include "muxer/MuxMessage.h"
#include "muxer/PairRecordStore.h"
#include "muxer/WifiPhoneDirectory.h"
#include "phone/CommandRunner.h"
#include "phone/LockdownHelperProtocol.h"

namespace ambrel {

namespace {

// Collects the MACs of the adverts avahi reports until discovery has settled.
class AdvertCollector final : public WifiAdvertSink {
public:
    void advertResolved(const WifiAdvert& advert) override {
        if (const auto mac = macOfAdvertName(advert.name)) {
            const std::lock_guard lock(m_mutex);
            m_macs.insert(*mac);
        }
    }
    void advertRemoved(const std::string& name, std::uint32_t) override {
        if (const auto mac = macOfAdvertName(name)) {
            const std::lock_guard lock(m_mutex);
            m_macs.erase(*mac);
        }
    }
    void everyAdvertRemoved() override {
        const std::lock_guard lock(m_mutex);
        m_macs.clear();
    }
    void discoverySettled() override {
        const std::lock_guard lock(m_mutex);
        m_settled = true;
        m_changed.notify_all();
    }

    std::vector<std::string> waitForMacs(std::chrono::milliseconds limit) {
        std::unique_lock lock(m_mutex);
        m_changed.wait_for(lock, limit, [this] { return m_settled; });
        return {m_macs.begin(), m_macs.end()};
    }

private:
    std::mutex m_mutex;
    std::condition_variable m_changed;
    std::set<std::string> m_macs;
    bool m_settled = false;
};

std::string trimmed(std::string text) {
    while (!text.empty() && std::isspace(static_cast<unsigned char>(text.back()))) {
        text.pop_back();
    }
    return text;
}

// One request to the system muxer at `socketPath` and its reply; nothing when it does not
// answer within the muxer's limit.
std::optional<MuxReply> askSystemMuxer(const std::filesystem::path& socketPath,
                                       const MuxRequest& request) {
    const UniqueFd socket = connectUnixSocket(socketPath.string());
    if (!socket.isValid()) {
        return std::nullopt;
    }
    const MuxChannel channel(socket.get(), -1);
    MuxFrame frame;
    if (channel.writeAll(encodeMuxMessage(1, muxRequestDictionary(request, "tovrin")),
                         SystemConnectionProbe::kMuxerLimit) != ChannelStatus::ok ||
        channel.readFrame(frame, SystemConnectionProbe::kMuxerLimit) != ChannelStatus::ok) {
        return std::nullopt;
    }
    return parseMuxReply(frame.payload);
}

} // namespace

SystemConnectionProbe::SystemConnectionProbe(Setup setup)
    : m_setup(std::move(setup)), m_helper(m_setup.toolDirectory, m_setup.launcher) {}

std::vector<std::string> SystemConnectionProbe::missingTools() {
    std::vector<std::string> missing;
    for (const char* name :
         {"idevice_id", "ideviceinfo", "idevicepair", LockdownHelperProtocol::kFileName}) {
        const auto path = m_setup.toolDirectory / name;
        if (::access(path.c_str(), X_OK) != 0) {
            missing.emplace_back(name);
        }
    }
    return missing;
}

std::optional<std::vector<PhoneOnMuxer>> SystemConnectionProbe::systemMuxerPhones() {
    if (!m_setup.systemMuxerSocket) {
        auto listed = m_helper.listPhones();
        if (!listed) {
            return std::nullopt;
        }
        return std::move(listed).value();
    }
    MuxRequest request;
    request.type = MuxRequestType::listDevices;
    request.messageType = "ListDevices";
    const auto reply = askSystemMuxer(*m_setup.systemMuxerSocket, request);
    if (!reply) {
        return std::nullopt;
    }
    const auto devices = deviceListOf(*reply);
    if (!devices) {
        return std::nullopt;
    }
    std::vector<PhoneOnMuxer> phones;
    for (const auto& device : *devices) {
        phones.push_back({udidOfSerial(device.serialNumber),
                          device.connection == MuxDevice::Connection::network ? PhoneLink::wifi
                                                                              : PhoneLink::usb});
    }
    return phones;
}

std::optional<bool> SystemConnectionProbe::isPaired(const std::string& udid) {
    if (!m_setup.ownRecordsFolder.empty()) {
        const PairRecordStore records(m_setup.systemRecordsFolder, m_setup.ownRecordsFolder);
        if (records.record(udid)) {
            return true;
        }
    }
    if (!m_setup.systemMuxerSocket) {
        return std::nullopt;
    }
    MuxRequest request;
    request.type = MuxRequestType::readPairRecord;
    request.messageType = "ReadPairRecord";
    request.pairRecordId = udid;
    const auto reply = askSystemMuxer(*m_setup.systemMuxerSocket, request);
    if (!reply) {
        return std::nullopt;
    }
    if (reply->kind == MuxReply::Kind::answer) {
        return dataIn(reply->dictionary.get(), "PairRecordData").has_value();
    }
    // usbmuxd answers a record it does not have with "bad device".
    if (reply->kind == MuxReply::Kind::result &&
        reply->number == static_cast<std::uint32_t>(MuxResult::badDevice)) {
        return false;
    }
    return std::nullopt;
}

Expected<PhoneDetails, LockdownError> SystemConnectionProbe::details(const std::string& udid,
                                                                     bool networkOnly) {
    return m_helper.details(udid, networkOnly);
}

bool SystemConnectionProbe::usbmuxdInstalled() {
    return ::access(m_setup.usbmuxdProgram.c_str(), X_OK) == 0;
}

bool SystemConnectionProbe::avahiDaemonInstalled() {
    return ::access(m_setup.avahiDaemonProgram.c_str(), X_OK) == 0;
}

bool SystemConnectionProbe::avahiDaemonRuns() {
    AvahiSimplePoll* poll = avahi_simple_poll_new();
    if (poll == nullptr) {
        return false;
    }
    int error = 0;
    // Without AVAHI_CLIENT_NO_FAIL the client fails at once when no daemon answers.
    AvahiClient* client = avahi_client_new(
        avahi_simple_poll_get(poll), static_cast<AvahiClientFlags>(0),
        [](AvahiClient*, AvahiClientState, void*) {}, nullptr, &error);
    const bool running =
        client != nullptr && avahi_client_get_state(client) == AVAHI_CLIENT_S_RUNNING;
    if (client != nullptr) {
        avahi_client_free(client);
    }
    avahi_simple_poll_free(poll);
    return running;
}

std::vector<std::string> SystemConnectionProbe::advertisedMacs() {
    AdvertCollector collector;
    std::vector<std::string> macs;
    {
        AvahiDiscovery discovery(collector);
        // Without a bus or a daemon, discovery settles at once with nothing found.
        discovery.start();
        macs = collector.waitForMacs(kDiscoveryLimit);
        discovery.stop();
    }
    return macs;
}

std::vector<KnownWifiPhone> SystemConnectionProbe::knownPhones() {
    const PairRecordStore records(m_setup.systemRecordsFolder, m_setup.ownRecordsFolder);
    std::vector<KnownWifiPhone> phones;
    for (const auto& [mac, udid] : records.learnedMacs()) {
        phones.push_back({udid, mac});
    }
    for (const auto& phone : records.knownPhones()) {
        phones.push_back({phone.udid, phone.wifiMac});
    }
    return phones;
}

Expected<int, std::string> SystemConnectionProbe::wifiBatteryLevel(const std::string& udid) {
    if (!m_setup.launcher) {
        return unexpected(std::string(CommandRunner::kLaunchFailure));
    }
    const auto output = CommandRunner::run(
        *m_setup.launcher, m_setup.toolDirectory / "ideviceinfo",
        {"-u", udid, "-n", "-q", "com.apple.mobile.battery", "-k", "BatteryCurrentCapacity"},
        kBatteryTimeout);
    const std::string text = trimmed(output.stdoutText);
    if (!output.succeeded() || text.empty() ||
        !std::all_of(text.begin(), text.end(),
                     [](unsigned char c) { return std::isdigit(c) != 0; }) ||
        text.size() > 3) {
        return unexpected(trimmed(output.stderrText + output.stdoutText));
    }
    return std::stoi(text);
}

} // namespace ambrel
