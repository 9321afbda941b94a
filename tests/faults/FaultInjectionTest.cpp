// `tovrin --readings` from a bundle of its own whose phone tools misbehave in every way a
// program can, and whose saved reading is damaged in every way a file can be. Each case checks
// the worded outcome, that the run ends by itself (a hanging tool is killed, not waited for),
// and that nothing is lost: the last good reading is still reported and still on disk, byte for
// byte.
#include <csignal>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/fakes/ExpectedTexts.h"
#include "tests/faults/FaultBundle.h"

namespace ambrel::testing {
namespace {

using namespace ::ambrel::testing::expected;

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using nlohmann::json;

// A tool that prints nothing and succeeds.
const std::string kSilent = "exit 0\n";
// A tool that ignores SIGTERM and waits until it is killed. Its process id goes to the file
// "hanging" in the tool folder first (exec keeps both the id and the ignored signal).
const std::string kHangs = "echo $$ >> \"${0%/*}/hanging\"\ntrap '' TERM\nexec sleep 600\n";

// Worst cases, in seconds, of the tool runs of one read attempt: what a run is allowed before
// the harness gives up on it.
constexpr double kBothLists = 2 * worstRun(kListTimeout);
constexpr double kOneWiFiQuery = kBothLists + worstRun(kBatteryTimeout);
constexpr double kNewPhoneRead =
    worstRun(kListTimeout) + worstRun(kBatteryTimeout) + 2 * worstRun(kKeyTimeout);

struct FileState {
    bool exists = false;
    fs::file_type type = fs::file_type::none;
    mode_t mode = 0;
    uid_t owner = 0;
    std::optional<std::string> bytes;
    std::string linkTarget;
    std::vector<std::string> children;

    friend bool operator==(const FileState&, const FileState&) = default;
};

FileState stateOf(const fs::path& path) {
    FileState state;
    struct stat info {};
    if (::lstat(path.c_str(), &info) != 0) {
        return state;
    }
    state.exists = true;
    state.mode = info.st_mode;
    state.owner = info.st_uid;
    state.type = fs::symlink_status(path).type();
    if (state.type == fs::file_type::regular) {
        state.bytes = fileBytes(path);
    } else if (state.type == fs::file_type::symlink) {
        state.linkTarget = fs::read_symlink(path).string();
    } else if (state.type == fs::file_type::directory) {
        for (const auto& entry : fs::directory_iterator(path)) {
            state.children.push_back(entry.path().filename().string() + "=" +
                                     fileBytes(entry.path()).value_or("?"));
        }
    }
    return state;
}

std::string describe(const FileState& state) {
    std::ostringstream text;
    text << "exists " << state.exists << ", type " << static_cast<int>(state.type) << ", mode "
         << std::oct << state.mode << std::dec << ", owner " << state.owner << ", "
         << (state.bytes ? state.bytes->size() : 0) << " bytes, link '" << state.linkTarget << "'";
    return text.str();
}

class FaultInjection : public ::testing::Test {
protected:
    void SetUp() override {
        ASSERT_FALSE(m_folder.path().empty());
        m_bundle = std::make_unique<FaultBundle>(m_folder.path());
        ASSERT_EQ(m_bundle->failure(), "");
        m_saved = savedReading("Saved iPhone", 42, secondsSinceReferenceDate() - 120.0);
        m_bundle->writeCache(m_saved);
    }

    // One run, checked to have ended by itself with one report line, and to have taken at
    // least `atLeast` seconds (the limits it had to wait out). `bound` is the worst case the
    // tools' limits allow; the harness gives up on the run only long after it.
    json run(double bound, double atLeast = 0.0) {
        const auto limit = std::chrono::duration<double>(bound + 30.0);
        m_last = m_bundle->readings(limit);
        const auto& outcome = m_last.outcome;
        EXPECT_TRUE(outcome.started);
        EXPECT_FALSE(outcome.timedOut) << "still running after " << limit.count() << " s";
        EXPECT_EQ(outcome.signal, 0);
        EXPECT_EQ(outcome.exitCode, 0) << outcome.err;
        EXPECT_GE(outcome.elapsed.count(), atLeast);
        EXPECT_TRUE(m_last.report.is_object())
            << "stdout: " << outcome.out << "\nstderr: " << outcome.err;
        return m_last.report.is_object() ? m_last.report : json::object();
    }

    static void expectOutcome(const json& report, const std::string& state,
                              const std::string& message) {
        EXPECT_EQ(report.value("phoneSetupState", ""), state);
        EXPECT_EQ(report.value("phoneStatus", ""), message);
    }

    // The reading saved before the run is still the one shown and is still on disk unchanged.
    void expectNothingLost(const json& report) const {
        EXPECT_EQ(report.value("phone", json()), json::parse(m_saved));
        EXPECT_EQ(fileBytes(m_bundle->cacheFile()), m_saved);
    }

    std::size_t runsOf(const std::string& tool, const std::string& containing = {}) const {
        std::size_t count = 0;
        for (const auto& line : m_bundle->toolRuns()) {
            if (line.rfind(tool + " ", 0) == 0 || line == tool) {
                count += line.find(containing) != std::string::npos ? 1 : 0;
            }
        }
        return count;
    }

    // The process ids the hanging tools recorded.
    std::vector<pid_t> hangingTools() const {
        std::vector<pid_t> pids;
        std::ifstream stream(m_bundle->toolFolder() / "hanging");
        for (long pid = 0; stream >> pid;) {
            pids.push_back(static_cast<pid_t>(pid));
        }
        return pids;
    }

    TemporaryFolder m_folder;
    std::unique_ptr<FaultBundle> m_bundle;
    std::string m_saved;
    Readings m_last;
};

TEST_F(FaultInjection, MissingToolsAskForAReinstallAtOnce) {
    const auto report = run(kLaunchAllowance);
    expectOutcome(report, "unavailable", kMissingTools);
    expectNothingLost(report);
    EXPECT_TRUE(m_bundle->toolRuns().empty());
}

TEST_F(FaultInjection, ToolsThatAreNotExecutableAreNeverStarted) {
    const auto readable = fs::perms(0644);
    m_bundle->writeTool("idevice_id", kListsWiFiPhone, readable);
    m_bundle->writeTool("ideviceinfo", infoTool(batteryAnswer(90)), readable);
    const auto report = run(kLaunchAllowance);
    expectOutcome(report, "unavailable", kMissingTools);
    expectNothingLost(report);
    EXPECT_TRUE(m_bundle->toolRuns().empty());
}

TEST_F(FaultInjection, OneToolMissingIsLikeBothMissing) {
    m_bundle->writeTool("idevice_id", kListsWiFiPhone);
    const auto report = run(kLaunchAllowance);
    expectOutcome(report, "unavailable", kMissingTools);
    expectNothingLost(report);
    EXPECT_TRUE(m_bundle->toolRuns().empty());
}

TEST_F(FaultInjection, ListToolThatIgnoresSigtermIsKilledAtItsLimit) {
    m_bundle->writeTool("idevice_id", kHangs);
    m_bundle->writeTool("ideviceinfo", infoTool(batteryAnswer(90)));
    // Both lists wait out their limit; the attempt made no Wi-Fi query, so there is no retry.
    const auto report = run(kLaunchAllowance + kBothLists, 2 * kListTimeout);
    expectOutcome(report, "notFound", kTimedOut);
    expectNothingLost(report);
    EXPECT_EQ(runsOf("idevice_id"), 2u);
    EXPECT_EQ(runsOf("ideviceinfo"), 0u);
    const auto hanging = hangingTools();
    EXPECT_EQ(hanging.size(), 2u);
    for (const pid_t pid : hanging) {
        EXPECT_FALSE(isAlive(pid)) << "the hanging tool " << pid << " was left running";
    }
}

TEST_F(FaultInjection, BatteryQueryThatHangsIsKilledAndTriedOnceMore) {
    m_bundle->writeTool("idevice_id", kListsWiFiPhone);
    m_bundle->writeTool("ideviceinfo", infoTool(kHangs));
    // A Wi-Fi query that timed out is transient: the read is made a second time.
    const auto report = run(kLaunchAllowance + 2 * kOneWiFiQuery + kTransientRetryPause,
                            2 * kBatteryTimeout + kTransientRetryPause);
    expectOutcome(report, "notFound", kTimedOut);
    expectNothingLost(report);
    EXPECT_EQ(runsOf("ideviceinfo", "[com.apple.mobile.battery]"), 2u);
    EXPECT_EQ(runsOf("ideviceinfo", "[-k]"), 0u);
    for (const pid_t pid : hangingTools()) {
        EXPECT_FALSE(isAlive(pid)) << "the hanging tool " << pid << " was left running";
    }
}

TEST_F(FaultInjection, ToolsThatCrashMeanTheServiceIsUnreachable) {
    const std::string crashes = "kill -SEGV $$\n";
    m_bundle->writeTool("idevice_id", crashes);
    m_bundle->writeTool("ideviceinfo", crashes);
    const auto report = run(kLaunchAllowance + kBothLists);
    expectOutcome(report, "unavailable", kServiceUnreachable);
    expectNothingLost(report);
    EXPECT_EQ(runsOf("idevice_id"), 2u);
}

TEST_F(FaultInjection, BatteryQueryThatCrashesAfterTheListIsTemporary) {
    m_bundle->writeTool("idevice_id", kListsWiFiPhone);
    m_bundle->writeTool("ideviceinfo", infoTool("kill -SEGV $$"));
    const auto report = run(kLaunchAllowance + 2 * kOneWiFiQuery + kTransientRetryPause);
    expectOutcome(report, "notFound", kTemporarilyUnavailable);
    expectNothingLost(report);
    EXPECT_EQ(runsOf("ideviceinfo", "[com.apple.mobile.battery]"), 2u);
}

TEST_F(FaultInjection, HundredMegabytesOfOutputAreDrainedNotWaitedOn) {
    m_bundle->writeTool("idevice_id", kListsWiFiPhone);
    // A document that never ends: only its first 64 KiB are kept, which do not parse. Had the
    // runner stopped reading, the tool would block and time out, which words differently.
    m_bundle->writeTool(
        "ideviceinfo",
        infoTool("printf '%s' '<?xml version=\"1.0\"?><plist><dict><key>BatteryCurrentCapacity"
                 "</key><integer>5'\nhead -c 104857600 /dev/zero | tr '\\0' '7'"));
    const auto report = run(kLaunchAllowance + 2 * kOneWiFiQuery + kTransientRetryPause);
    expectOutcome(report, "notFound", kTemporarilyUnavailable);
    expectNothingLost(report);
    EXPECT_EQ(runsOf("ideviceinfo", "[com.apple.mobile.battery]"), 2u);
}

TEST_F(FaultInjection, BinaryGarbageListsNoPhone) {
    const std::string garbage =
        "i=0\nwhile [ $i -lt 64 ]; do\n"
        "printf '\\000\\001\\377\\376\\033[2J\\r\\n\\200\\300\\257\\355\\240\\200ab:cd\\t\\v'\n"
        "i=$((i+1))\ndone\n";
    m_bundle->writeTool("idevice_id", garbage);
    m_bundle->writeTool("ideviceinfo", garbage);
    const auto report = run(kLaunchAllowance + kBothLists);
    expectOutcome(report, "notFound", kNotFound);
    expectNothingLost(report);
    EXPECT_EQ(runsOf("ideviceinfo"), 0u);
}

TEST_F(FaultInjection, InvalidUtf8AroundALockdownErrorStillReadsAsLocked) {
    m_bundle->writeTool("idevice_id", kListsWiFiPhone);
    m_bundle->writeTool(
        "ideviceinfo",
        infoTool("printf 'ERROR: \\377\\376 Could not connect to lockdownd: \\300\\257Password "
                 "\\355\\240\\200protected (-17)\\n' >&2\nexit 255"));
    // A locked phone is not transient: no second attempt.
    const auto report = run(kLaunchAllowance + kOneWiFiQuery);
    expectOutcome(report, "notFound", kLocked);
    expectNothingLost(report);
    EXPECT_EQ(runsOf("ideviceinfo", "[com.apple.mobile.battery]"), 1u);
}

TEST_F(FaultInjection, TruncatedPropertyListIsNoReading) {
    m_bundle->writeTool("idevice_id", kListsWiFiPhone);
    m_bundle->writeTool("ideviceinfo", infoTool(batteryAnswer(90) + " | head -c 180"));
    const auto report = run(kLaunchAllowance + 2 * kOneWiFiQuery + kTransientRetryPause);
    expectOutcome(report, "notFound", kTemporarilyUnavailable);
    expectNothingLost(report);
}

TEST_F(FaultInjection, NulByteInsideABatteryAnswerIsReadNotFatal) {
    m_bundle->writeTool("idevice_id", kListsWiFiPhone);
    // A NUL byte inside a string of the answer once aborted the whole program in libplist.
    m_bundle->writeTool(
        "ideviceinfo",
        infoTool("printf '<?xml version=\"1.0\"?>\\n<plist version=\"1.0\"><dict><key>Name</key>"
                 "<string>a\\000b</string><key>BatteryCurrentCapacity</key><integer>33</integer>"
                 "</dict></plist>\\n'"));
    const auto report = run(kLaunchAllowance + kNewPhoneRead);
    expectOutcome(report, "ready", kConnectedOverWiFi);
    ASSERT_TRUE(report["phone"].is_object());
    EXPECT_EQ(report["phone"]["percentage"], 33);
    EXPECT_EQ(json::parse(fileBytes(m_bundle->cacheFile()).value_or("")), report["phone"]);
}

TEST_F(FaultInjection, ToolsThatSucceedSilentlyFindNoPhone) {
    m_bundle->writeTool("idevice_id", kSilent);
    m_bundle->writeTool("ideviceinfo", kSilent);
    const auto report = run(kLaunchAllowance + kBothLists);
    expectOutcome(report, "notFound", kNotFound);
    expectNothingLost(report);
    EXPECT_EQ(runsOf("idevice_id"), 2u);
    EXPECT_EQ(runsOf("ideviceinfo"), 0u);
}

TEST_F(FaultInjection, FlappingAnswersKeepTheLastGoodReading) {
    m_bundle->writeTool("idevice_id", kListsWiFiPhone);
    // The battery query answers, in turn: a reading of 61 %, a pairing error, a mux error, and
    // from then on a reading of 63 %.
    const std::string counter = (m_folder.path() / "battery-queries").string();
    m_bundle->writeTool(
        "ideviceinfo",
        infoTool("n=$(cat '" + counter + "' 2>/dev/null || echo 0); n=$((n+1)); echo $n > '" +
                 counter + "'\ncase $n in\n1) " + batteryAnswer(61) +
                 " ;;\n2) echo 'ERROR: Could not connect to lockdownd: Pairing dialog response "
                 "pending (-19)' >&2; exit 255 ;;\n3) echo 'ERROR: Could not connect to "
                 "lockdownd: Mux error (-8)' >&2; exit 255 ;;\n*) " +
                 batteryAnswer(63) + " ;;\nesac"));

    auto report = run(kLaunchAllowance + kNewPhoneRead);
    expectOutcome(report, "ready", kConnectedOverWiFi);
    ASSERT_TRUE(report["phone"].is_object());
    EXPECT_EQ(report["phone"]["percentage"], 61);
    EXPECT_EQ(report["phone"]["name"], "Fault iPhone");
    const auto firstGood = fileBytes(m_bundle->cacheFile());
    ASSERT_TRUE(firstGood);
    EXPECT_EQ(json::parse(*firstGood), report["phone"]);

    // The pairing error is not transient: the 61 % reading stays, on screen and on disk.
    report = run(kLaunchAllowance + kOneWiFiQuery);
    expectOutcome(report, "needsPairing", kTrust);
    EXPECT_EQ(report["phone"], json::parse(*firstGood));
    EXPECT_EQ(fileBytes(m_bundle->cacheFile()), firstGood);

    // The mux error is transient; the second attempt half a second later reads 63 %. The
    // remembered identity is gone with the process, so the name and model are read again.
    report = run(kLaunchAllowance + kOneWiFiQuery + kTransientRetryPause + kNewPhoneRead);
    expectOutcome(report, "ready", kConnectedOverWiFi);
    ASSERT_TRUE(report["phone"].is_object());
    EXPECT_EQ(report["phone"]["percentage"], 63);
    const auto secondGood = fileBytes(m_bundle->cacheFile());
    ASSERT_TRUE(secondGood);
    EXPECT_EQ(json::parse(*secondGood), report["phone"]);
    EXPECT_EQ(runsOf("ideviceinfo", "[com.apple.mobile.battery]"), 4u);
}

// A damaged saved reading: with no phone it is simply not shown and left exactly as it is;
// with a phone the new reading is shown and, wherever a file can be put, saved with mode 0600.
class DamagedCache : public FaultInjection {
protected:
    enum class Replaceable { yes, no };

    void checkDamage(Replaceable replaceable, const std::vector<fs::path>& keepOwner = {}) {
        m_bundle->handOver(keepOwner);
        const FileState before = stateOf(m_bundle->cacheFile());
        ASSERT_TRUE(before.exists);

        m_bundle->writeTool("idevice_id", kSilent);
        m_bundle->writeTool("ideviceinfo", kSilent);
        auto report = runKeeping(kLaunchAllowance + kBothLists, keepOwner);
        expectOutcome(report, "notFound", kNotFound);
        EXPECT_TRUE(report.value("phone", json::object()).is_null()) << report["phone"];
        const FileState after = stateOf(m_bundle->cacheFile());
        EXPECT_EQ(after, before) << "before: " << describe(before)
                                 << "\nafter: " << describe(after);

        m_bundle->writeTool("idevice_id", kListsWiFiPhone);
        m_bundle->writeTool("ideviceinfo", infoTool(batteryAnswer(77, true)));
        report = runKeeping(kLaunchAllowance + kNewPhoneRead, keepOwner);
        expectOutcome(report, "ready", kConnectedOverWiFi);
        ASSERT_TRUE(report["phone"].is_object());
        EXPECT_EQ(report["phone"]["percentage"], 77);
        EXPECT_EQ(report["phone"]["isCharging"], true);
        const FileState saved = stateOf(m_bundle->cacheFile());
        if (replaceable == Replaceable::no) {
            EXPECT_EQ(saved, before) << describe(saved);
            return;
        }
        EXPECT_EQ(saved.type, fs::file_type::regular) << describe(saved);
        EXPECT_EQ(saved.mode & 07777, 0600u);
        EXPECT_EQ(saved.owner, FaultBundle::runningUser());
        ASSERT_TRUE(saved.bytes);
        EXPECT_EQ(json::parse(*saved.bytes, nullptr, false), report["phone"]);
    }

    json runKeeping(double bound, const std::vector<fs::path>& keepOwner) {
        const auto limit = std::chrono::duration<double>(bound + 30.0);
        m_last = m_bundle->readings(limit, keepOwner);
        EXPECT_FALSE(m_last.outcome.timedOut);
        EXPECT_EQ(m_last.outcome.exitCode, 0) << m_last.outcome.err;
        EXPECT_TRUE(m_last.report.is_object()) << m_last.outcome.out << m_last.outcome.err;
        return m_last.report.is_object() ? m_last.report : json::object();
    }
};

TEST_F(DamagedCache, EmptyFile) {
    m_bundle->writeCache("");
    checkDamage(Replaceable::yes);
}

TEST_F(DamagedCache, TruncatedFile) {
    m_bundle->writeCache(m_saved.substr(0, m_saved.size() / 2));
    checkDamage(Replaceable::yes);
}

TEST_F(DamagedCache, TenMegabytesOfGarbage) {
    std::string garbage(10 * 1024 * 1024, '\0');
    std::uint32_t state = 2463534242u;
    for (auto& byte : garbage) {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        byte = static_cast<char>(state & 0xFF);
    }
    // A valid reading at the front must not rescue the rest.
    garbage.replace(0, m_saved.size(), m_saved);
    m_bundle->writeCache(garbage);
    checkDamage(Replaceable::yes);
}

TEST_F(DamagedCache, DirectoryInItsPlace) {
    fs::remove(m_bundle->cacheFile());
    fs::create_directory(m_bundle->cacheFile());
    std::ofstream(m_bundle->cacheFile() / "inside") << m_saved;
    // A folder cannot be replaced by a file: the reading is shown but not saved.
    checkDamage(Replaceable::no);
}

TEST_F(DamagedCache, DanglingLink) {
    fs::remove(m_bundle->cacheFile());
    const fs::path nowhere = m_folder.path() / "gone" / "battery-cache.json";
    fs::create_symlink(nowhere, m_bundle->cacheFile());
    checkDamage(Replaceable::yes);
    EXPECT_FALSE(fs::exists(nowhere)) << "the save followed the link";
}

TEST_F(DamagedCache, UnreadableFile) {
    fs::permissions(m_bundle->cacheFile(), fs::perms::none);
    checkDamage(Replaceable::yes);
}

TEST_F(DamagedCache, AnotherUsersFile) {
    if (::geteuid() != 0) {
        GTEST_SKIP() << "giving the file to another user needs root";
    }
    // Another user's private file in the program's folder: unreadable to it, and replaced by
    // its own on the next save.
    constexpr uid_t kOtherUser = 65533;
    ASSERT_EQ(::chown(m_bundle->cacheFile().c_str(), kOtherUser, kOtherUser), 0);
    checkDamage(Replaceable::yes, {m_bundle->cacheFile()});
}

TEST_F(FaultInjection, PermissiveModeIsShownAndTightenedOnTheNextSave) {
    fs::permissions(m_bundle->cacheFile(), fs::perms(0666));
    m_bundle->writeTool("idevice_id", kSilent);
    m_bundle->writeTool("ideviceinfo", kSilent);
    auto report = run(kLaunchAllowance + kBothLists);
    expectOutcome(report, "notFound", kNotFound);
    expectNothingLost(report);
    EXPECT_EQ(stateOf(m_bundle->cacheFile()).mode & 07777, 0666u) << "a failed read changed it";

    m_bundle->writeTool("idevice_id", kListsWiFiPhone);
    m_bundle->writeTool("ideviceinfo", infoTool(batteryAnswer(55)));
    report = run(kLaunchAllowance + kNewPhoneRead);
    expectOutcome(report, "ready", kConnectedOverWiFi);
    EXPECT_EQ(stateOf(m_bundle->cacheFile()).mode & 07777, 0600u);
}

} // namespace
} // namespace ambrel::testing
