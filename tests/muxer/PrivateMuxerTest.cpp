#include "muxer/PrivateMuxer.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <poll.h>
#include <string>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

#include <gtest/gtest.h>

#include "muxer/MuxMessage.h"
#include "muxer/SystemDeviceWatch.h"
#include "tests/fakes/FakeEnvironment.h"
#include "tests/fakes/TemporaryFolder.h"
#include "tests/fakes/ThreadActivity.h"
#include "tests/muxer/FakeSystemMuxer.h"

namespace ambrel::testing {
namespace {

using namespace std::chrono_literals;

// Sets a variable of this process's environment for one test and puts the old value back: for
// what libraries read themselves (libdbus the system bus's address).
class ScopedVariable {
public:
    ScopedVariable(const char* name, std::optional<std::string> value) : m_name(name) {
        if (const char* old = std::getenv(name)) {
            m_old = old;
        }
        value ? ::setenv(name, value->c_str(), 1) : ::unsetenv(name);
    }
    ~ScopedVariable() { m_old ? ::setenv(m_name, m_old->c_str(), 1) : ::unsetenv(m_name); }
    ScopedVariable(const ScopedVariable&) = delete;
    ScopedVariable& operator=(const ScopedVariable&) = delete;

private:
    const char* m_name;
    std::optional<std::string> m_old;
};

std::size_t usbDevicesListedAt(const std::filesystem::path& socket) {
    const auto fd = connectUnixSocket(socket.string());
    const MuxChannel channel(fd.get(), -1);
    MuxRequest request;
    request.type = MuxRequestType::listDevices;
    request.messageType = "ListDevices";
    // Waits far beyond any answer the muxer gives, so that a busy machine is no failure.
    if (channel.writeAll(encodeMuxMessage(1, muxRequestDictionary(request, "test")), 30s) !=
        ChannelStatus::ok) {
        return 1000;
    }
    MuxFrame frame;
    if (channel.readFrame(frame, 30s) != ChannelStatus::ok) {
        return 1000;
    }
    const auto reply = parseMuxReply(frame.payload);
    const auto devices = reply ? deviceListOf(*reply) : std::nullopt;
    return devices ? devices->size() : 1000;
}

// Whether someone has connected to the listening `socket` and waits to be accepted.
bool hasWaitingConnection(int socket) {
    pollfd entry{socket, POLLIN, 0};
    return ::poll(&entry, 1, 0) == 1;
}

// A muxer on a socket in `folder` that passes the USB phones of `system` through, keeping its
// own pair records in `ownRecords`.
PrivateMuxer::Setup passingThrough(const TemporaryFolder& folder, const FakeSystemMuxer& system,
                                   const std::filesystem::path& ownRecords) {
    PrivateMuxer::Setup setup;
    setup.socketPath = folder.path() / "run" / "usbmuxd";
    setup.systemMuxerPath = system.socketPath().string();
    setup.systemRecordsFolder = folder.path() / "lockdown";
    setup.ownRecordsFolder = ownRecords;
    return setup;
}

unsigned modeOf(const std::filesystem::path& path) {
    struct stat info {};
    return ::lstat(path.c_str(), &info) == 0 ? (info.st_mode & 0777) : 01000;
}

TEST(PrivateMuxerTest, TheSocketLivesInTheUsersRuntimeFolder) {
    EXPECT_EQ(PrivateMuxer::defaultSocketPath(
                  FakeEnvironment{{"XDG_RUNTIME_DIR", "/run/user/1000"}, {"TMPDIR", "/var/tmp"}}),
              "/run/user/1000/tovrin/usbmuxd");
    EXPECT_EQ(PrivateMuxer::defaultSocketPath(FakeEnvironment{{"TMPDIR", "/var/tmp"}}),
              "/var/tmp/tovrin-" + std::to_string(::getuid()) + "/usbmuxd");
    EXPECT_EQ(PrivateMuxer::defaultSocketPath(FakeEnvironment{}),
              "/tmp/tovrin-" + std::to_string(::getuid()) + "/usbmuxd");
}

TEST(PrivateMuxerTest, StartsOnAPrivateSocketAndPassesUsbThrough) {
    TemporaryFolder folder;
    FakeSystemMuxer system(folder.path() / "system");
    system.addUsbDevice(1, "00008110001A2B3C4D5E6F70");
    auto setup = passingThrough(folder, system, folder.path() / "data" / "pair-records");
    // Nothing of the machine's own avahi-daemon in this test.
    setup.discoverWifiPhones = false;
    PrivateMuxer muxer(setup);
    const auto address = muxer.start();
    ASSERT_TRUE(address);
    EXPECT_EQ(*address, "UNIX:" + setup.socketPath.string());
    EXPECT_EQ(modeOf(setup.socketPath.parent_path()), 0700u);
    EXPECT_EQ(modeOf(setup.socketPath), 0600u);
    EXPECT_EQ(usbDevicesListedAt(setup.socketPath), 1u);

    // A second run of the program uses the first one's muxer.
    PrivateMuxer second(setup);
    EXPECT_EQ(second.start(), address);
    second.stop();
    EXPECT_EQ(usbDevicesListedAt(setup.socketPath), 1u);
}

TEST(PrivateMuxerTest, AFolderThatIsNotOursIsRefused) {
    TemporaryFolder folder;
    std::filesystem::create_directory(folder.path() / "elsewhere");
    std::filesystem::create_directory_symlink(folder.path() / "elsewhere", folder.path() / "run");
    PrivateMuxer::Setup setup;
    setup.socketPath = folder.path() / "run" / "usbmuxd";
    setup.discoverWifiPhones = false;
    PrivateMuxer muxer(setup);
    EXPECT_FALSE(muxer.start());
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "elsewhere" / "usbmuxd"));
}

TEST(PrivateMuxerTest, WithoutASystemBusTheMuxerServesUsbOnly) {
    TemporaryFolder folder;
    const ScopedVariable bus("DBUS_SYSTEM_BUS_ADDRESS",
                             "unix:path=" + (folder.path() / "no-bus").string());
    FakeSystemMuxer system(folder.path() / "system");
    system.addUsbDevice(1, "00008110001A2B3C4D5E6F70");
    const auto setup = passingThrough(folder, system, folder.path() / "own");
    PrivateMuxer muxer(setup);
    ASSERT_TRUE(muxer.start());
    // A listing waits until discovery gave up, which is at once without a bus.
    EXPECT_EQ(usbDevicesListedAt(setup.socketPath), 1u);
    EXPECT_FALSE(muxer.isDiscovering());
}

// A system bus that takes the connection and never says a word (a hung dbus-daemon): the
// program starts its muxer and serves USB all the same, and quits, without waiting for it.
// Discovery stays stuck on that bus for as long as the test runs, so a step that waited for it
// would never come back.
TEST(PrivateMuxerTest, ASilentSystemBusDelaysNeitherStartNorListingsNorQuitting) {
    TemporaryFolder folder;
    const auto busPath = folder.path() / "silent-bus";
    UniqueFd bus(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    std::strncpy(address.sun_path, busPath.c_str(), sizeof address.sun_path - 1);
    ASSERT_EQ(::bind(bus.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
    // Connections wait in the backlog, never accepted, never answered.
    ASSERT_EQ(::listen(bus.get(), 16), 0);
    const ScopedVariable busAddress("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + busPath.string());
    FakeSystemMuxer system(folder.path() / "system");
    const FakeEnvironment environment{{"XDG_RUNTIME_DIR", folder.path().string()},
                                      {"TOVRIN_SYSTEM_USBMUXD", system.socketPath().string()}};
    system.addUsbDevice(4, "00008110001A2B3C4D5E6F70");

    auto muxer = startPrivateMuxer(environment, folder.path() / "data");
    ASSERT_NE(muxer, nullptr);
    // Discovery connects on a thread of its own, after the start has returned.
    const auto deadline = std::chrono::steady_clock::now() + 30s;
    while (!hasWaitingConnection(bus.get()) && muxer->isDiscovering() &&
           std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(10ms);
    }
    if (!hasWaitingConnection(bus.get()) && !muxer->isDiscovering()) {
        // libdbus reads the bus's address once per process; ctest runs each test in its own.
        GTEST_SKIP() << "an earlier test in this process set libdbus's system bus address";
    }
    ASSERT_TRUE(hasWaitingConnection(bus.get())) << "discovery never reached the bus";

    // A listing waits for discovery no longer than its first-listing limit, and comes while
    // discovery is still stuck.
    EXPECT_EQ(usbDevicesListedAt(folder.path() / "tovrin" / "usbmuxd"), 1u);
    EXPECT_TRUE(muxer->isDiscovering()) << "discovery ended: the bus was not silent";

    // Nor does quitting wait for it.
    muxer.reset();
}

// The threads of this process that `before` did not have.
std::vector<pid_t> newThreads(const std::vector<pid_t>& before) {
    std::vector<pid_t> added;
    for (const pid_t thread : ThreadActivity::threads()) {
        if (std::find(before.begin(), before.end(), thread) == before.end()) {
            added.push_back(thread);
        }
    }
    return added;
}

// How often the threads have gone to sleep, together; -1 once any has ended.
long switchesOf(const std::vector<pid_t>& threads) {
    long total = 0;
    for (const pid_t thread : threads) {
        const auto switches = ThreadActivity::voluntarySwitches(thread);
        if (!switches) {
            return -1;
        }
        total += *switches;
    }
    return total;
}

// A system bus without avahi-daemon on it (the test's own session bus stands in): discovery
// waits for the daemon to appear, and while it waits neither it nor the muxer wakes; stopping
// ends every thread they started.
TEST(PrivateMuxerTest, WaitingForAvahiNothingWakesAndTheStopEndsEveryThread) {
    const char* sessionBus = std::getenv("DBUS_SESSION_BUS_ADDRESS");
    ASSERT_NE(sessionBus, nullptr) << "the test has no session bus";
    const ScopedVariable bus("DBUS_SYSTEM_BUS_ADDRESS", std::string(sessionBus));
    TemporaryFolder folder;
    // A thread started and ended first, so that the threads a runtime adds with the first one
    // (the thread sanitizer's own, which wakes often) are there before the count.
    std::thread([] {}).join();
    const auto before = ThreadActivity::threads();
    PrivateMuxer::Setup setup;
    setup.socketPath = folder.path() / "run" / "usbmuxd";
    setup.systemMuxerPath = (folder.path() / "no-system-muxer").string();
    setup.systemRecordsFolder = folder.path() / "lockdown";
    setup.ownRecordsFolder = folder.path() / "own";
    setup.discoverWifiPhones = true;
    PrivateMuxer muxer(setup);
    ASSERT_TRUE(muxer.start());

    // Settled: the threads that are left all asleep, and none woke for a second.
    const auto deadline = std::chrono::steady_clock::now() + 60s;
    std::vector<pid_t> started;
    bool settled = false;
    while (!settled && std::chrono::steady_clock::now() < deadline) {
        started = newThreads(before);
        const long switches = switchesOf(started);
        std::this_thread::sleep_for(1s);
        settled = switches >= 0 && switchesOf(started) == switches &&
                  std::all_of(started.begin(), started.end(), ThreadActivity::isAsleep);
    }
    ASSERT_TRUE(settled);
    if (!muxer.isDiscovering()) {
        // libdbus reads the bus's address once per process; ctest runs each test in its own.
        GTEST_SKIP() << "an earlier test in this process set libdbus's system bus address";
    }
    const long asleep = switchesOf(started);
    ASSERT_GE(asleep, 0);
    std::this_thread::sleep_for(SystemDeviceWatch::kRetry * 2 + 500ms);
    EXPECT_EQ(switchesOf(started), asleep) << "a thread woke with nothing to do";

    muxer.stop();
    EXPECT_TRUE(newThreads(before).empty()) << "a thread outlived the stop";
}

TEST(PrivateMuxerTest, TheUsersOwnMuxerIsLeftAlone) {
    TemporaryFolder folder;
    const FakeEnvironment environment{{"USBMUXD_SOCKET_ADDRESS", "127.0.0.1:27015"},
                                      {"XDG_RUNTIME_DIR", folder.path().string()}};
    EXPECT_EQ(startPrivateMuxer(environment, folder.path()), nullptr);
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "tovrin"));
}

// The tools are pointed at the muxer by the address it gives (which the program hands the
// launcher), never through this process's own environment.
TEST(PrivateMuxerTest, ItGivesTheToolsItsAddressAndLeavesTheProcessEnvironmentAlone) {
    TemporaryFolder folder;
    const ScopedVariable bus("DBUS_SYSTEM_BUS_ADDRESS",
                             "unix:path=" + (folder.path() / "no-bus").string());
    FakeSystemMuxer system(folder.path() / "system");
    const FakeEnvironment environment{{"XDG_RUNTIME_DIR", folder.path().string()},
                                      {"TOVRIN_SYSTEM_USBMUXD", system.socketPath().string()}};
    system.addUsbDevice(4, "00008110001A2B3C4D5E6F70");
    const char* before = std::getenv("USBMUXD_SOCKET_ADDRESS");
    const std::optional<std::string> addressBefore =
        before != nullptr ? std::optional<std::string>(before) : std::nullopt;
    const auto muxer = startPrivateMuxer(environment, folder.path() / "data");
    ASSERT_NE(muxer, nullptr);
    const auto socket = folder.path() / "tovrin" / "usbmuxd";
    EXPECT_EQ(muxer->address(), "UNIX:" + socket.string());
    const char* after = std::getenv("USBMUXD_SOCKET_ADDRESS");
    EXPECT_EQ(after != nullptr ? std::optional<std::string>(after) : std::nullopt, addressBefore);
    EXPECT_EQ(usbDevicesListedAt(socket), 1u);
}

} // namespace
} // namespace ambrel::testing

// avahi-client's connect and its free take two of libdbus's locks in opposite orders, which the
// thread sanitizer reports as a possible deadlock once discovery has connected and is stopped.
// Discovery never runs the two at once (a stop while it connects leaves the closing to the
// connecting thread), so the cycle cannot close. Debian's libdbus has no symbols, so the
// library's name is the narrowest match.
extern "C" const char* __tsan_default_suppressions() {
    return "deadlock:libdbus-1.so\n";
}
