// What the program must never do, checked on the real program: listen on a network socket (its
// only listener is its own muxer's private UNIX socket for the phone tools), let text a tool
// printed reach a command line, leave its saved reading open to others whatever the umask,
// or write a start-at-login entry that starts something else than itself.
#include <algorithm>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <csignal>
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/fakes/DesktopExecReader.h"
#include "tests/fakes/ScopedUmask.h"
#include "tests/faults/FaultBundle.h"

namespace ambrel::testing {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using nlohmann::json;

const std::string kConnectedOverWiFi = "Connected over Wi-Fi \u00B7 checks every 5 min";
const std::string kConnectedByUsb = "Connected by USB \u00B7 unplug to test Wi-Fi";
const std::string kNotFound = "iPhone not found. Pair once by USB, enable Finder\u2019s Wi-Fi "
                              "option, and use the same Wi-Fi.";

// Tools of a phone that answers over Wi-Fi with 64 %, so that a whole read runs.
void writeAnsweringPhone(const FaultBundle& bundle) {
    bundle.writeTool("idevice_id", kListsWiFiPhone);
    bundle.writeTool("ideviceinfo", infoTool(batteryAnswer(64)));
}

std::vector<std::string> lines(const fs::path& file) {
    std::vector<std::string> result;
    std::ifstream stream(file);
    for (std::string line; std::getline(stream, line);) {
        result.push_back(line);
    }
    return result;
}

// The socket inodes among the open descriptors of `pid`.
std::set<std::string> socketInodes(pid_t pid) {
    std::set<std::string> inodes;
    std::error_code error;
    const fs::path folder = "/proc/" + std::to_string(pid) + "/fd";
    for (auto entry = fs::directory_iterator(folder, error);
         !error && entry != fs::directory_iterator(); entry.increment(error)) {
        std::error_code linkError;
        const std::string target = fs::read_symlink(entry->path(), linkError).string();
        if (!linkError && target.rfind("socket:[", 0) == 0 && target.back() == ']') {
            inodes.insert(target.substr(8, target.size() - 9));
        }
    }
    return inodes;
}

struct SocketRow {
    std::string inode;
    bool listening = false;
    // unix: the path it is bound to, if any.
    std::string path;
};

// The rows of /proc/<pid>/net/<table>. In tcp and tcp6 the state is the fourth column ("0A"
// is LISTEN) and the inode the tenth; in udp and udp6 a bound socket is all a listener needs;
// in unix the flags are the fourth column (0x10000, accepting connections, marks a listener)
// and the inode the seventh.
std::vector<SocketRow> socketTable(pid_t pid, const std::string& table) {
    std::vector<SocketRow> rows;
    std::ifstream stream("/proc/" + std::to_string(pid) + "/net/" + table);
    std::string line;
    std::getline(stream, line);
    while (std::getline(stream, line)) {
        std::istringstream fields(line);
        std::vector<std::string> columns;
        for (std::string column; fields >> column;) {
            columns.push_back(column);
        }
        if (table == "unix") {
            if (columns.size() >= 7) {
                const unsigned long flags = std::stoul(columns[3], nullptr, 16);
                rows.push_back({columns[6], (flags & 0x10000UL) != 0,
                                columns.size() >= 8 ? columns[7] : std::string()});
            }
        } else if (columns.size() >= 10) {
            const bool isTcp = table.rfind("tcp", 0) == 0;
            rows.push_back({columns[9], isTcp ? columns[3] == "0A" : true, std::string()});
        }
    }
    return rows;
}

TEST(Security, TheWidgetListensOnNoNetworkSocketOnlyOnItsMuxers) {
    TemporaryFolder folder;
    FaultBundle bundle(folder.path());
    ASSERT_EQ(bundle.failure(), "");
    // A phone that answers, so the whole read runs while the sockets are watched.
    writeAnsweringPhone(bundle);
    ChildProcess server({"/usr/bin/xvfb-run", "-a", "-s", "-screen 0 1440x900x24 -noreset",
                         bundle.executable().string()},
                        bundle.environmentForXvfbRun(), folder.path() / "stderr.txt");
    ASSERT_TRUE(server.isStarted());

    std::vector<pid_t> widget;
    // Generous: the limit costs time only when the widget never starts.
    const auto deadline = std::chrono::steady_clock::now() + 60s;
    while (widget.empty() && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(100ms);
        widget = processesRunning(bundle.executable());
    }
    ASSERT_EQ(widget.size(), 1u) << fileBytes(folder.path() / "stderr.txt").value_or("");
    const pid_t pid = widget.front();

    const auto muxerSocket = bundle.runtimeFolder() / "tovrin" / "usbmuxd";
    bool muxerListening = false;
    // Watched for six seconds: the start, the window, the phone read.
    std::set<std::string> seen;
    std::set<std::string> connected;
    for (int sample = 0; sample < 30 && isAlive(pid); ++sample) {
        const auto own = socketInodes(pid);
        seen.insert(own.begin(), own.end());
        for (const char* table : {"tcp", "tcp6", "udp", "udp6", "unix"}) {
            for (const auto& row : socketTable(pid, table)) {
                if (!own.contains(row.inode)) {
                    continue;
                }
                if (std::string(table) != "unix") {
                    EXPECT_FALSE(row.listening) << "the widget listens on a " << table
                                                << " socket (inode " << row.inode << ")";
                    continue;
                }
                connected.insert(row.inode);
                // The one socket it may listen on is its own muxer's, for the phone tools it
                // runs: a UNIX socket in its private runtime folder.
                if (row.listening) {
                    EXPECT_EQ(row.path, muxerSocket.string())
                        << "the widget listens on a unix socket (inode " << row.inode << ")";
                    muxerListening = true;
                }
            }
        }
        std::this_thread::sleep_for(200ms);
    }
    EXPECT_TRUE(isAlive(pid)) << "the widget ended early";
    // Its connection to the X server is the proof that its sockets were found at all.
    EXPECT_FALSE(connected.empty()) << "none of the widget's sockets showed in /proc/net/unix";
    EXPECT_FALSE(seen.empty());
    EXPECT_EQ(lines(bundle.toolLog()).size(), 4u) << "the phone read did not run as expected";
    ASSERT_TRUE(muxerListening) << "the widget's muxer did not start";
    struct stat socketStat {};
    struct stat folderStat {};
    ASSERT_EQ(::stat(muxerSocket.c_str(), &socketStat), 0);
    ASSERT_EQ(::stat(muxerSocket.parent_path().c_str(), &folderStat), 0);
    EXPECT_EQ(socketStat.st_mode & 07777, 0600u);
    EXPECT_EQ(folderStat.st_mode & 07777, 0700u);

    // Quit the widget itself: xvfb-run, stopped by the harness, would leave it and its X server.
    ::kill(pid, SIGTERM);
    for (int wait = 0; wait < 100 && isAlive(pid); ++wait) {
        std::this_thread::sleep_for(100ms);
    }
    EXPECT_FALSE(isAlive(pid)) << "the widget did not quit on SIGTERM";
    server.stop();
}

TEST(Security, ToolOutputNeverReachesAShell) {
    TemporaryFolder folder;
    FaultBundle bundle(folder.path());
    ASSERT_EQ(bundle.failure(), "");
    const fs::path marker = folder.path() / "X";
    const std::string hostile = "abc;touch " + marker.string() + "\n" + "$(touch " +
                                marker.string() + ")\n" + "`touch " + marker.string() + "`\n" +
                                kUdid + ";touch X\n" + "abc;touch X\n$(touch X)\n" +
                                "abc|touch X\nabc&&touch X\n'" + kUdid + "'\n" + kUdid + "$\n";
    // The Wi-Fi list holds nothing but hostile lines; the USB list adds the real phone after
    // them, so that ideviceinfo does run and its arguments can be seen.
    const fs::path hostileList = folder.path() / "hostile-list";
    std::ofstream(hostileList) << hostile;
    bundle.writeTool("idevice_id", "cat '" + hostileList.string() + "'\n[ \"$1\" = -l ] && echo " +
                                       kUdid + "\nexit 0\n");
    bundle.writeTool("ideviceinfo", infoTool(batteryAnswer(71)));

    const auto readings = bundle.readings(60s);
    ASSERT_TRUE(readings.report.is_object()) << readings.outcome.out << readings.outcome.err;
    EXPECT_EQ(readings.report["phoneStatus"], kConnectedByUsb);
    EXPECT_EQ(readings.report["phone"]["percentage"], 71);

    EXPECT_FALSE(fs::exists(marker)) << "a hostile identifier was run by a shell";
    EXPECT_FALSE(fs::exists("X")) << "a hostile identifier was run by a shell";
    // Every query names the real phone, in separate arguments, exactly as it was listed.
    const std::vector<std::string> expected = {
        "idevice_id [-n]",
        "idevice_id [-l]",
        "ideviceinfo [-u] [" + kUdid + "] [-q] [com.apple.mobile.battery] [-x]",
        "ideviceinfo [-u] [" + kUdid + "] [-k] [DeviceName]",
        "ideviceinfo [-u] [" + kUdid + "] [-k] [ProductType]",
    };
    EXPECT_EQ(lines(bundle.toolLog()), expected);
}

TEST(Security, HostileIdentifiersAloneFindNoPhone) {
    TemporaryFolder folder;
    FaultBundle bundle(folder.path());
    ASSERT_EQ(bundle.failure(), "");
    const fs::path marker = folder.path() / "X";
    bundle.writeTool("idevice_id", "echo 'abc;touch " + marker.string() + "'\necho '$(touch " +
                                       marker.string() + ")'\n");
    bundle.writeTool("ideviceinfo", infoTool(batteryAnswer(71)));
    const auto readings = bundle.readings(60s);
    ASSERT_TRUE(readings.report.is_object()) << readings.outcome.out << readings.outcome.err;
    EXPECT_EQ(readings.report["phoneStatus"], kNotFound);
    EXPECT_FALSE(fs::exists(marker));
    const std::vector<std::string> expected = {"idevice_id [-n]", "idevice_id [-l]"};
    EXPECT_EQ(lines(bundle.toolLog()), expected);
}

mode_t modeOf(const fs::path& path) {
    struct stat info {};
    return ::lstat(path.c_str(), &info) == 0 ? info.st_mode & 07777 : 0;
}

TEST(Security, SavedReadingStaysPrivateUnderAPermissiveUmask) {
    TemporaryFolder folder;
    FaultBundle bundle(folder.path());
    ASSERT_EQ(bundle.failure(), "");
    writeAnsweringPhone(bundle);
    // Its folder does not exist yet, nor the one above it: both are made by the program.
    const fs::path dataHome = bundle.dataHome();
    fs::remove_all(dataHome);
    ASSERT_FALSE(fs::exists(dataHome));
    bundle.handOver();

    Readings readings;
    {
        const ScopedUmask permissive(0);
        readings = bundle.readings(60s);
    }
    ASSERT_TRUE(readings.report.is_object()) << readings.outcome.out << readings.outcome.err;
    EXPECT_EQ(readings.report["phoneStatus"], kConnectedOverWiFi);

    const fs::path cache = bundle.cacheFile();
    ASSERT_TRUE(fs::is_regular_file(cache));
    EXPECT_EQ(modeOf(cache), 0600u);
    EXPECT_EQ(modeOf(cache.parent_path()), 0700u);
    EXPECT_EQ(modeOf(dataHome), 0700u);
    EXPECT_EQ(json::parse(fileBytes(cache).value_or(""), nullptr, false), readings.report["phone"]);
    // No temporary file is left beside it, and nothing the program made is open to others.
    for (const auto& entry : fs::directory_iterator(cache.parent_path())) {
        EXPECT_EQ(entry.path().filename(), cache.filename()) << "left behind: " << entry.path();
    }
    for (const auto& place : {dataHome, bundle.configHome()}) {
        std::error_code error;
        for (auto entry = fs::recursive_directory_iterator(place, error);
             !error && entry != fs::recursive_directory_iterator(); entry.increment(error)) {
            EXPECT_EQ(modeOf(entry->path()) & 0022, 0u)
                << entry->path() << " is writable by others";
        }
    }
}

TEST(Security, ExecParserFollowsTheDesktopEntryRules) {
    EXPECT_EQ(readExec("/usr/bin/tovrin"), std::vector<std::string>{"/usr/bin/tovrin"});
    EXPECT_EQ(readExec(R"("/a b/\\$x\\`y\\\\z\\"q" --x)"),
              (std::vector<std::string>{"/a b/$x`y\\z\"q", "--x"}));
    EXPECT_EQ(readExec("/a%%b"), std::vector<std::string>{"/a%b"});
    EXPECT_FALSE(readExec("/a b;c"));
    EXPECT_FALSE(readExec("/a %f"));
    EXPECT_FALSE(readExec("\"/a b"));
}

std::optional<std::string> execLine(const std::string& entry) {
    std::istringstream stream(entry);
    bool inMainGroup = false;
    for (std::string line; std::getline(stream, line);) {
        if (!line.empty() && line.front() == '[') {
            inMainGroup = line == "[Desktop Entry]";
        } else if (inMainGroup && line.rfind("Exec=", 0) == 0) {
            return line.substr(5);
        }
    }
    return std::nullopt;
}

TEST(Security, StartAtLoginEntryQuotesAHostileProgramPath) {
    TemporaryFolder folder;
    FaultBundle bundle(folder.path() / "plain");
    ASSERT_EQ(bundle.failure(), "");
    // Every character the Exec rules treat specially, in the name of the folder the program
    // lives in.
    const fs::path hostile = folder.path() / "Tovrin's \"odd\" $HOME `id` 100% \\ copy; & | *";
    fs::create_directories(hostile);
    fs::copy(bundle.executable().parent_path().parent_path(), hostile, fs::copy_options::recursive);
    const fs::path executable = hostile / "bin" / "tovrin";
    ASSERT_TRUE(fs::exists(executable));

    const auto environment = bundle.environment();
    const auto enabled = runProcess({executable.string(), "--enable-login"}, environment, 30s);
    ASSERT_EQ(enabled.exitCode, 0) << enabled.out << enabled.err;
    const auto report = json::parse(enabled.out, nullptr, false);
    ASSERT_TRUE(report.is_object()) << enabled.out;
    EXPECT_EQ(report["status"], "enabled");
    EXPECT_EQ(report["appPath"].get<std::string>().find(hostile.string()), 0u) << report;

    const fs::path entryFile = bundle.configHome() / "autostart" /
                               (report["bundleIdentifier"].get<std::string>() + ".desktop");
    const auto entry = fileBytes(entryFile);
    ASSERT_TRUE(entry) << entryFile;
    const auto exec = execLine(*entry);
    ASSERT_TRUE(exec) << *entry;
    const auto arguments = readExec(*exec);
    ASSERT_TRUE(arguments) << "Exec=" << *exec << " does not follow the rules";
    ASSERT_EQ(arguments->size(), 1u) << "Exec=" << *exec;
    EXPECT_EQ(arguments->front(), fs::canonical(executable).string()) << "Exec=" << *exec;

    // What the desktop would start is this very program, and it sees its entry as its own.
    const auto status = runProcess({arguments->front(), "--login-status"}, environment, 30s);
    EXPECT_EQ(status.exitCode, 0) << status.err;
    const auto statusReport = json::parse(status.out, nullptr, false);
    ASSERT_TRUE(statusReport.is_object()) << status.out;
    EXPECT_EQ(statusReport["status"], "enabled");
    EXPECT_EQ(statusReport["enabled"], true);
}

} // namespace
} // namespace ambrel::testing
