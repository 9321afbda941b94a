#include "history/HistoryStore.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <random>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "history/Sqlite.h"
#include "tests/fakes/ChildProcess.h"
#include "tests/fakes/TemporaryFolder.h"

namespace ambrel::testing {
namespace {

const Date kNow = Date::fromSecondsSinceReferenceDate(817300000.0);

HistoryRow row(double secondsAgo, const std::string& device, int percentage, bool charging = false,
               std::string link = {}) {
    HistoryRow result;
    result.time = kNow.addingSeconds(-secondsAgo);
    result.device = device;
    result.percentage = percentage;
    result.isCharging = charging;
    result.isPluggedIn = charging;
    result.link = std::move(link);
    return result;
}

std::string readBytes(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    return text.str();
}

void writeBytes(const std::filesystem::path& path, const std::string& bytes) {
    std::ofstream stream(path, std::ios::binary | std::ios::trunc);
    stream << bytes;
}

mode_t modeOf(const std::filesystem::path& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 ? (info.st_mode & 0777) : 0;
}

// What a fresh connection reads back from the file: its integrity and its schema version.
std::pair<std::string, std::string> inspect(const std::filesystem::path& file) {
    SqliteDatabase database;
    if (database.open(file, false) != 0) {
        return {"cannot open", ""};
    }
    return {database.queryText("PRAGMA integrity_check;").value_or("no answer"),
            database.queryText("PRAGMA user_version;").value_or("none")};
}

class HistoryStoreTest : public ::testing::Test {
protected:
    std::filesystem::path folder() const { return m_folder.path() / "Ambrel"; }
    std::filesystem::path file() const { return folder() / HistoryStore::kFileName; }

    TemporaryFolder m_folder;
};

TEST_F(HistoryStoreTest, RowsComeBackPerDeviceOldestFirstFromTheTimeAsked) {
    HistoryStore store(file());
    ASSERT_TRUE(store.open(kNow)) << store.status();
    EXPECT_EQ(store.status(), "");
    const std::vector<HistoryRow> written = {
        row(300, "iphone", 80, false, "Wi-Fi"), row(240, "mac", 51),      row(180, "mac", 52, true),
        row(120, "iphone", 79, true, "USB"),    row(60, "mac", 53, true),
    };
    for (const auto& each : written) {
        ASSERT_TRUE(store.append(each)) << store.status();
    }
    EXPECT_EQ(store.rows("mac", kNow.addingSeconds(-200)),
              (std::vector<HistoryRow>{written[2], written[4]}));
    EXPECT_EQ(store.rows("iphone", kNow.addingSeconds(-3600)),
              (std::vector<HistoryRow>{written[0], written[3]}));
    EXPECT_TRUE(store.rows("ipad", kNow.addingSeconds(-3600)).empty());
}

TEST_F(HistoryStoreTest, TheFileIsPrivateInWalModeWithTheCurrentSchemaAndKeepsItsRows) {
    {
        HistoryStore store(file());
        ASSERT_TRUE(store.open(kNow)) << store.status();
        ASSERT_TRUE(store.append(row(10, "mac", 40)));
    }
    EXPECT_EQ(modeOf(folder()), 0700u);
    EXPECT_EQ(modeOf(file()), 0600u);
    SqliteDatabase database;
    ASSERT_EQ(database.open(file(), false), 0);
    EXPECT_EQ(database.queryText("PRAGMA journal_mode;"), "wal");
    EXPECT_EQ(database.queryText("PRAGMA user_version;"),
              std::to_string(HistoryStore::kSchemaVersion));
    database.close();

    HistoryStore again(file());
    ASSERT_TRUE(again.open(kNow));
    EXPECT_EQ(again.rows("mac", kNow.addingSeconds(-60)),
              (std::vector<HistoryRow>{row(10, "mac", 40)}));
}

TEST_F(HistoryStoreTest, PruningRemovesOnlyRowsOlderThanTheCutoff) {
    HistoryStore store(file());
    ASSERT_TRUE(store.open(kNow));
    const double day = 24 * 3600.0;
    for (const double age : {31 * day, 30 * day + 1, 30 * day, 29 * day, 1.0}) {
        ASSERT_TRUE(store.append(row(age, "mac", 50)));
    }
    EXPECT_EQ(store.prune(kNow.addingSeconds(-HistoryStore::kKeepSeconds)), 2);
    const auto kept = store.rows("mac", kNow.addingSeconds(-40 * day));
    ASSERT_EQ(kept.size(), 3u);
    EXPECT_EQ(kept.front().time, kNow.addingSeconds(-30 * day));
    EXPECT_EQ(store.prune(kNow.addingSeconds(-HistoryStore::kKeepSeconds)), 0);
}

TEST_F(HistoryStoreTest, AFileThatIsNoDatabaseIsSetAsideAndANewOneStarted) {
    std::filesystem::create_directories(folder());
    const std::string garbage(4096, 'x');
    writeBytes(file(), garbage);
    HistoryStore store(file());
    ASSERT_TRUE(store.open(kNow)) << store.status();
    ASSERT_TRUE(store.setAside().has_value());
    EXPECT_EQ(*store.setAside(), setAsideName(file(), kNow));
    EXPECT_TRUE(readBytes(*store.setAside()) == garbage) << "what was there is not kept as it was";
    EXPECT_TRUE(store.rows("mac", kNow.addingSeconds(-1e9)).empty());
    EXPECT_TRUE(store.append(row(1, "mac", 60)));
    EXPECT_EQ(inspect(file()).first, "ok");
}

TEST_F(HistoryStoreTest, ATruncatedFileIsSetAsideAndANewOneStarted) {
    {
        HistoryStore store(file());
        ASSERT_TRUE(store.open(kNow));
        for (int minute = 0; minute < 3000; ++minute) {
            ASSERT_TRUE(store.append(row(minute * 60.0, "mac", minute % 100)));
        }
    }
    const auto size = std::filesystem::file_size(file());
    ASSERT_GT(size, 16384u);
    std::filesystem::resize_file(file(), size / 2);
    HistoryStore store(file());
    ASSERT_TRUE(store.open(kNow)) << store.status();
    ASSERT_TRUE(store.setAside().has_value());
    EXPECT_EQ(std::filesystem::file_size(*store.setAside()), size / 2);
    EXPECT_TRUE(store.rows("mac", kNow.addingSeconds(-1e9)).empty());
    EXPECT_TRUE(store.append(row(1, "mac", 60)));
}

TEST_F(HistoryStoreTest, ADamagedFileIsNamedAfterTheTimeItWasFound) {
    EXPECT_EQ(setAsideName("/data/Ambrel/battery-history.sqlite3",
                           Date::fromSecondsSince1970(1764120900.0)),
              "/data/Ambrel/battery-history.sqlite3.damaged-2025-11-26T013500Z");
}

TEST_F(HistoryStoreTest, AFileOfANewerTovrinIsLeftAsItIs) {
    {
        SqliteDatabase database;
        std::filesystem::create_directories(folder());
        ASSERT_EQ(database.open(file(), true), 0);
        ASSERT_EQ(database.exec("PRAGMA user_version=99;"), 0);
    }
    const auto before = readBytes(file());
    HistoryStore store(file());
    EXPECT_FALSE(store.open(kNow));
    EXPECT_EQ(store.status(), "Battery history is off: its file was written by a newer Tovrin, "
                              "and is left as it is.");
    EXPECT_FALSE(store.append(row(1, "mac", 50)));
    // Compared as a whole, not printed: it is a binary file.
    EXPECT_TRUE(readBytes(file()) == before) << "the newer file was changed";
    EXPECT_FALSE(store.setAside().has_value());
}

// Runs `body` in a child process as an unprivileged user (root ignores folder permissions) and
// returns what it wrote to the pipe it is given.
template <typename Body> std::string inUnprivilegedChild(Body body) {
    int pipeEnds[2];
    if (::pipe(pipeEnds) != 0) {
        return "no pipe";
    }
    const pid_t child = ::fork();
    if (child == 0) {
        ::close(pipeEnds[0]);
        if (::geteuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) {
            _exit(3);
        }
        const std::string said = body();
        (void)!::write(pipeEnds[1], said.data(), said.size());
        _exit(0);
    }
    ::close(pipeEnds[1]);
    std::string said;
    char buffer[512];
    ssize_t got = 0;
    while ((got = ::read(pipeEnds[0], buffer, sizeof buffer)) > 0) {
        said.append(buffer, static_cast<std::size_t>(got));
    }
    ::close(pipeEnds[0]);
    int status = 0;
    ::waitpid(child, &status, 0);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? said : "child failed";
}

TEST_F(HistoryStoreTest, AFolderThatCannotBeWrittenTurnsHistoryOffWithAWordedStatus) {
    std::filesystem::create_directories(folder());
    // Readable and searchable by anyone, writable by its owner only, who is not the child.
    ::chmod(m_folder.path().c_str(), 0755);
    ::chmod(folder().c_str(), 0755);
    if (::geteuid() != 0) {
        ::chmod(folder().c_str(), 0555);
    }
    const auto said = inUnprivilegedChild([this] {
        HistoryStore store(file());
        const bool opened = store.open(kNow);
        return std::string(opened ? "on" : "off") + "|" + store.status() + "|" +
               (store.append(row(1, "mac", 50)) ? "appended" : "not appended");
    });
    ::chmod(folder().c_str(), 0700);
    EXPECT_EQ(said, "off|Battery history is off: Tovrin cannot write to " + folder().string() +
                        ".|not appended");
    EXPECT_FALSE(std::filesystem::exists(file()));
}

TEST_F(HistoryStoreTest, AFullDiskTurnsHistoryOffAndKeepsWhatWasWritten) {
    {
        HistoryStore store(file());
        ASSERT_TRUE(store.open(kNow));
        ASSERT_TRUE(store.append(row(120, "mac", 41)));
    }
    // The child may write no file larger than it is now: the disk is full for it.
    const auto said = [this] {
        const pid_t child = ::fork();
        if (child == 0) {
            std::signal(SIGXFSZ, SIG_IGN);
            HistoryStore store(file());
            if (!store.open(kNow)) {
                _exit(3);
            }
            const auto size = std::filesystem::file_size(file());
            const rlimit limit{static_cast<rlim_t>(size), static_cast<rlim_t>(size)};
            ::setrlimit(RLIMIT_FSIZE, &limit);
            for (int minute = 0; minute < 100000; ++minute) {
                if (!store.append(row(minute * 60.0 + 0.5, "iphone", 50))) {
                    _exit(store.status().starts_with("Battery history is off: ") && !store.isOn() &&
                                  !store.append(row(1, "mac", 1))
                              ? 0
                              : 4);
                }
            }
            _exit(5);
        }
        int status = 0;
        ::waitpid(child, &status, 0);
        return WIFEXITED(status) ? WEXITSTATUS(status) : 100 + WTERMSIG(status);
    }();
    EXPECT_EQ(said, 0) << "3: no open, 4: no worded status, 5: never full, 100+: a signal";
    HistoryStore store(file());
    ASSERT_TRUE(store.open(kNow)) << store.status();
    EXPECT_FALSE(store.setAside().has_value());
    const auto kept = store.rows("mac", kNow.addingSeconds(-3600));
    EXPECT_EQ(kept, (std::vector<HistoryRow>{row(120, "mac", 41)}));
    EXPECT_EQ(inspect(file()).first, "ok");
}

// Starts the history writer on `file`, numbering its rows from `first`.
std::unique_ptr<ChildProcess> startWriter(const std::filesystem::path& file, std::uint32_t first) {
    ProcessOptions options;
    options.arguments = {std::string(TOVRIN_BINARY_DIR) + "/tests/ambrel_history_writer",
                         file.string(), std::to_string(first)};
    options.error = OutputTo::inherit;
    return std::make_unique<ChildProcess>(std::move(options));
}

// Every row number the writer reported, until its pipe ends.
std::vector<std::uint32_t> reported(int descriptor, bool waitForFirst) {
    std::vector<std::uint32_t> numbers;
    std::string pending;
    char buffer[4096];
    while (true) {
        const ssize_t got =
            ::read(descriptor, buffer,
                   waitForFirst && numbers.empty() && pending.size() < 4 ? 4 - pending.size()
                                                                         : sizeof buffer);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            break;
        }
        pending.append(buffer, static_cast<std::size_t>(got));
        while (pending.size() >= 4) {
            std::uint32_t number = 0;
            std::memcpy(&number, pending.data(), 4);
            numbers.push_back(number);
            pending.erase(0, 4);
        }
        if (waitForFirst && !numbers.empty()) {
            break;
        }
    }
    return numbers;
}

TEST_F(HistoryStoreTest, KillingTheWriterAtAnyMomentLosesNoCommittedRow) {
    constexpr int kKills = 300;
    std::mt19937 random(11);
    std::uniform_int_distribution<int> pause(0, 3000);
    std::set<std::uint32_t> committed;
    std::uint32_t next = 0;
    int killedBySignal = 0;
    for (int kill = 0; kill < kKills; ++kill) {
        const auto writer = startWriter(file(), next);
        ASSERT_TRUE(writer->isStarted()) << "cannot start the history writer";
        // Its first row is in; then it is killed a random moment into the following ones.
        const auto first = reported(writer->outputDescriptor(), true);
        ASSERT_FALSE(first.empty()) << "the history writer wrote nothing (kill " << kill << ")";
        std::this_thread::sleep_for(std::chrono::microseconds(pause(random)));
        ::kill(writer->pid(), SIGKILL);
        const int status = writer->stop();
        killedBySignal += WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL ? 1 : 0;
        auto rest = reported(writer->outputDescriptor(), false);
        rest.insert(rest.begin(), first.begin(), first.end());
        committed.insert(rest.begin(), rest.end());
        // Numbers go on after every row the killed writer may have written unreported.
        next = *std::max_element(rest.begin(), rest.end()) + 2;
    }
    EXPECT_EQ(killedBySignal, kKills);

    const auto [integrity, version] = inspect(file());
    EXPECT_EQ(integrity, "ok");
    EXPECT_EQ(version, std::to_string(HistoryStore::kSchemaVersion));
    HistoryStore store(file());
    ASSERT_TRUE(store.open(kNow)) << store.status();
    EXPECT_FALSE(store.setAside().has_value());
    std::set<std::uint32_t> stored;
    for (const char* device : {"mac", "iphone"}) {
        for (const auto& each : store.rows(device, Date::fromSecondsSinceReferenceDate(0))) {
            stored.insert(
                static_cast<std::uint32_t>(each.time.secondsSinceReferenceDate() - 800000000.0));
        }
    }
    std::vector<std::uint32_t> missing;
    std::set_difference(committed.begin(), committed.end(), stored.begin(), stored.end(),
                        std::back_inserter(missing));
    EXPECT_TRUE(missing.empty()) << missing.size() << " committed rows are gone, the first "
                                 << (missing.empty() ? 0 : missing.front());
    // At most the row being written when each kill came is there unreported.
    EXPECT_LE(stored.size(), committed.size() + kKills);
    std::printf("history writer: %d kills, %zu rows committed, %zu stored\n", kKills,
                committed.size(), stored.size());
}

} // namespace
} // namespace ambrel::testing
