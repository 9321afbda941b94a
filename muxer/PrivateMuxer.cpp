#include "muxer/PrivateMuxer.h"

#include <cstdlib>
#include <sys/stat.h>
#include <unistd.h>

namespace ambrel {

namespace {

constexpr const char* kAddressVariable = "USBMUXD_SOCKET_ADDRESS";
constexpr const char* kSystemMuxerVariable = "TOVRIN_SYSTEM_USBMUXD";
// How long a listing right after the start waits for avahi-daemon to report the phones it
// already knows: a phone read at launch would otherwise miss them. Well within the tools'
// 5-second wait for the answer.
constexpr std::chrono::milliseconds kFirstDiscoveryLimit{2000};

// The folder of the socket: made 0700 when missing; refused when it is not a real folder of
// ours, since whoever owns it could swap the socket.
bool makePrivateFolder(const std::filesystem::path& folder) {
    ::mkdir(folder.c_str(), 0700);
    struct stat info {};
    if (::lstat(folder.c_str(), &info) != 0 || !S_ISDIR(info.st_mode) ||
        info.st_uid != ::getuid()) {
        return false;
    }
    return (info.st_mode & 0777) == 0700 || ::chmod(folder.c_str(), 0700) == 0;
}

} // namespace

std::filesystem::path PrivateMuxer::defaultSocketPath(const Environment& environment) {
    const auto runtime = environment.nonEmpty("XDG_RUNTIME_DIR").value_or("");
    if (!runtime.empty() && std::filesystem::path(runtime).is_absolute()) {
        return std::filesystem::path(runtime) / "tovrin" / "usbmuxd";
    }
    auto temporary = environment.nonEmpty("TMPDIR").value_or("");
    if (temporary.empty() || !std::filesystem::path(temporary).is_absolute()) {
        temporary = "/tmp";
    }
    return std::filesystem::path(temporary) / ("tovrin-" + std::to_string(::getuid())) / "usbmuxd";
}

PrivateMuxer::PrivateMuxer(Setup setup)
    : m_setup(std::move(setup)), m_records(m_setup.systemRecordsFolder, m_setup.ownRecordsFolder),
      m_directory(
          m_records, [] { return std::chrono::steady_clock::now(); },
          [](const NetworkAddress& address, const std::string& hostId,
             const std::string& systemBuid) {
              return probeLockdown(address, hostId, systemBuid, WifiPhoneDirectory::kTryLimit);
          }) {}

PrivateMuxer::~PrivateMuxer() {
    stop();
}

std::optional<std::string> PrivateMuxer::start() {
    const auto address = "UNIX:" + m_setup.socketPath.string();
    m_address = address;
    if (!makePrivateFolder(m_setup.socketPath.parent_path())) {
        return std::nullopt;
    }
    MuxerServer::Options options;
    options.socketPath = m_setup.socketPath;
    options.systemMuxerPath = m_setup.systemMuxerPath;
    options.network = &m_directory;
    options.arrivals = m_setup.arrivals;
    m_directory.setArrivalSink(m_setup.arrivals);
    m_server = std::make_unique<MuxerServer>(options);
    if (!m_server->start()) {
        m_server.reset();
        // Another run of the program (the widget while --readings runs) serves there.
        return connectUnixSocket(m_setup.socketPath.string()).isValid() ? std::optional(address)
                                                                        : std::nullopt;
    }
    if (m_setup.discoverWifiPhones) {
        m_directory.expectDiscovery(kFirstDiscoveryLimit);
        m_discovery = std::make_unique<AvahiDiscovery>(m_directory);
        m_discovery->start();
    }
    return address;
}

void PrivateMuxer::stop() {
    if (m_server) {
        m_server->stop();
        m_server.reset();
    }
    if (m_discovery) {
        m_discovery->stop();
        m_discovery.reset();
    }
}

bool PrivateMuxer::isDiscovering() const {
    return m_discovery && m_discovery->isUsable();
}

std::string systemMuxerSocketPath(const Environment& environment) {
    return environment.nonEmpty(kSystemMuxerVariable)
        .value_or(PrivateMuxer::Setup().systemMuxerPath);
}

std::unique_ptr<PrivateMuxer> startPrivateMuxer(const Environment& environment,
                                                const std::filesystem::path& dataFolder,
                                                PhoneArrivalSink* arrivals) {
    if (environment.nonEmpty(kAddressVariable)) {
        return nullptr;
    }
    PrivateMuxer::Setup setup;
    setup.socketPath = PrivateMuxer::defaultSocketPath(environment);
    setup.ownRecordsFolder = dataFolder / "pair-records";
    setup.systemMuxerPath = systemMuxerSocketPath(environment);
    setup.arrivals = arrivals;
    auto muxer = std::make_unique<PrivateMuxer>(setup);
    if (!muxer->start()) {
        return nullptr;
    }
    return muxer;
}

} // namespace ambrel
