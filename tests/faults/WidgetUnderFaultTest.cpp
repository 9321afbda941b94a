// The widget itself on an X server (xvfb-run) while its phone tool hangs: the read runs beside
// the window, so the program stays responsive, still captures its preview, and when told to quit
// it ends promptly and takes the hanging tool with it.
#include <csignal>
#include <cstdint>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <future>

#include <gtest/gtest.h>
#include <sys/socket.h>

#include "muxer/MuxChannel.h"
#include "muxer/MuxMessage.h"
#include "tests/faults/FaultBundle.h"

namespace ambrel::testing {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr char kPngSignature[] = "\x89PNG\r\n\x1a\n";
// How long to wait for what must happen before giving up: generous, since it costs time only
// when the test fails anyway, and a loaded machine may be slow to end a program.
constexpr std::chrono::seconds kPatience{60};

template <typename Condition> bool eventually(Condition condition, std::chrono::seconds limit) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (std::chrono::steady_clock::now() < deadline) {
        if (condition()) {
            return true;
        }
        std::this_thread::sleep_for(100ms);
    }
    return condition();
}

std::uint32_t bigEndian32(const std::string& bytes, std::size_t offset) {
    std::uint32_t value = 0;
    for (std::size_t index = 0; index < 4; ++index) {
        value = (value << 8) | static_cast<unsigned char>(bytes[offset + index]);
    }
    return value;
}

TEST(WidgetUnderFault, HangingToolNeitherBlocksTheWidgetNorOutlivesIt) {
    TemporaryFolder folder;
    ASSERT_FALSE(folder.path().empty());
    FaultBundle bundle(folder.path());
    ASSERT_EQ(bundle.failure(), "");
    bundle.writeTool("idevice_id",
                     "echo $$ >> \"${0%/*}/hanging\"\ntrap '' TERM\nexec sleep 600\n");
    bundle.writeTool("ideviceinfo", "exit 0\n");
    const fs::path hangingFile = bundle.toolFolder() / "hanging";
    const fs::path capture = folder.path() / "card.png";

    ChildProcess server({"/usr/bin/xvfb-run", "-a", "-s", "-screen 0 1440x900x24 -noreset",
                         bundle.executable().string(), "--capture-preview", capture.string()},
                        bundle.environmentForXvfbRun(), folder.path() / "stderr.txt");
    ASSERT_TRUE(server.isStarted());

    // The capture is due four seconds after the panel shows, while the first list run still
    // waits out its six seconds.
    std::string png;
    const bool captured = eventually(
        [&] {
            png = fileBytes(capture).value_or("");
            return png.size() >= 33 && png.compare(0, 8, kPngSignature) == 0;
        },
        40s);
    ASSERT_TRUE(captured) << "no preview; stderr: "
                          << fileBytes(folder.path() / "stderr.txt").value_or("");
    const auto widgets = processesRunning(bundle.executable());
    ASSERT_EQ(widgets.size(), 1u) << "the widget is not running";
    std::vector<pid_t> hanging;
    {
        std::ifstream stream(hangingFile);
        for (long pid = 0; stream >> pid;) {
            hanging.push_back(static_cast<pid_t>(pid));
        }
    }
    ASSERT_FALSE(hanging.empty()) << "the tool never ran";
    EXPECT_TRUE(isAlive(hanging.back())) << "the capture came only after the hang ended";

    // The whole card at one device pixel per point.
    EXPECT_EQ(png.compare(12, 4, "IHDR"), 0);
    EXPECT_EQ(bigEndian32(png, 16), 360u);
    EXPECT_EQ(bigEndian32(png, 20), 170u);

    ASSERT_EQ(::kill(widgets.front(), SIGTERM), 0);
    EXPECT_TRUE(eventually([&] { return !isAlive(widgets.front()); }, kPatience))
        << "the widget did not quit on SIGTERM";
    EXPECT_TRUE(eventually([&] { return server.hasEnded(); }, kPatience));
    {
        std::ifstream stream(hangingFile);
        hanging.clear();
        for (long pid = 0; stream >> pid;) {
            hanging.push_back(static_cast<pid_t>(pid));
        }
    }
    for (const pid_t pid : hanging) {
        EXPECT_TRUE(eventually([&] { return !isAlive(pid); }, kPatience))
            << "the hanging tool " << pid << " outlived the widget";
    }
}

// Asks the muxer at `socket` for its devices; whether a device list came back. Waits far beyond
// any answer the muxer gives, so that a busy machine is no failure.
bool listsDevices(const fs::path& socket) {
    const auto fd = connectUnixSocket(socket.string());
    const MuxChannel channel(fd.get(), -1);
    MuxRequest request;
    request.type = MuxRequestType::listDevices;
    request.messageType = "ListDevices";
    if (!fd.isValid() ||
        channel.writeAll(encodeMuxMessage(1, muxRequestDictionary(request, "test")), 30s) !=
            ChannelStatus::ok) {
        return false;
    }
    MuxFrame frame;
    if (channel.readFrame(frame, 30s) != ChannelStatus::ok) {
        return false;
    }
    const auto reply = parseMuxReply(frame.payload);
    return reply && deviceListOf(*reply);
}

TEST(WidgetUnderFault, MisbehavingMuxerClientsNeverTakeTheWidgetDown) {
    TemporaryFolder folder;
    ASSERT_FALSE(folder.path().empty());
    FaultBundle bundle(folder.path());
    ASSERT_EQ(bundle.failure(), "");
    bundle.writeTool("idevice_id", "exit 0\n");
    bundle.writeTool("ideviceinfo", "exit 0\n");
    ChildProcess server({"/usr/bin/xvfb-run", "-a", "-s", "-screen 0 1440x900x24 -noreset",
                         bundle.executable().string()},
                        bundle.environmentForXvfbRun(), folder.path() / "stderr.txt");
    ASSERT_TRUE(server.isStarted());
    // Whatever happens, the widget goes with the test: xvfb-run, stopped by the harness, would
    // leave it and its X server behind.
    struct WidgetReaper {
        const FaultBundle& bundle;
        ~WidgetReaper() {
            for (const pid_t pid : processesRunning(bundle.executable())) {
                ::kill(pid, SIGKILL);
            }
        }
    } reaper{bundle};
    const auto socket = bundle.runtimeFolder() / "tovrin" / "usbmuxd";
    ASSERT_TRUE(eventually([&] { return listsDevices(socket); }, kPatience))
        << "the widget's muxer never answered; stderr: "
        << fileBytes(folder.path() / "stderr.txt").value_or("");
    // A tool being started shows as a second copy of the program until it replaces itself.
    std::vector<pid_t> widgets;
    ASSERT_TRUE(eventually(
        [&] {
            widgets = processesRunning(bundle.executable());
            return widgets.size() == 1;
        },
        10s));

    // The muxer may rightly hang up on such a client before it has written everything, so how
    // its write ends is not checked: only that the widget lives on and answers the next client.
    const auto sendAndHangUp = [&](const std::string& bytes) {
        const auto fd = connectUnixSocket(socket.string());
        ASSERT_TRUE(fd.isValid());
        (void)MuxChannel(fd.get(), -1).writeAll(bytes, 5s);
    };
    sendAndHangUp("garbage that is no muxer message at all");
    sendAndHangUp(encodeMuxHeader({0xFFFFFFF0u, 1, 8, 1}) + std::string(65536, 'x'));
    sendAndHangUp(encodeMuxHeader({4000, 1, 8, 1}) + "<?xml version=");
    sendAndHangUp(encodeMuxHeader({16 + 9, 1, 8, 1}) + "<dict/>\n\n");
    std::vector<std::future<bool>> clients;
    for (int i = 0; i < 100; ++i) {
        clients.push_back(std::async(std::launch::async, [&] { return listsDevices(socket); }));
    }
    int answered = 0;
    for (auto& client : clients) {
        answered += client.get() ? 1 : 0;
    }
    EXPECT_EQ(answered, 100);
    EXPECT_TRUE(isAlive(widgets.front())) << "the widget ended";
    EXPECT_TRUE(listsDevices(socket));

    ASSERT_EQ(::kill(widgets.front(), SIGTERM), 0);
    EXPECT_TRUE(eventually([&] { return !isAlive(widgets.front()); }, kPatience));
    EXPECT_TRUE(eventually([&] { return server.hasEnded(); }, kPatience));
    // The socket goes with the widget.
    EXPECT_FALSE(fs::exists(socket));
}

} // namespace
} // namespace ambrel::testing
