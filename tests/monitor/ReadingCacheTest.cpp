#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <memory>
#include <optional>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <linux/capability.h>
#include <poll.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "monitor/ReadingCache.h"
#include "tests/fakes/ChildProcess.h"
#include "tests/fakes/ScopedUmask.h"
#include "tests/monitor/CacheWriterSnapshots.h"
#include "tests/monitor/PhoneCycleHarness.h"

namespace ambrel::testing::phonecycle {
namespace {

using ::testing::UnorderedElementsAre;

const Date kNow = Date::fromSecondsSinceReferenceDate(800000000.0);

std::set<std::string> keysOf(const std::string& text) {
    const auto json = nlohmann::json::parse(text);
    std::set<std::string> keys;
    for (auto it = json.begin(); it != json.end(); ++it) {
        keys.insert(it.key());
    }
    return keys;
}

std::vector<std::string> namesIn(const std::filesystem::path& folder) {
    std::vector<std::string> names;
    for (const auto& entry : std::filesystem::directory_iterator(folder)) {
        names.push_back(entry.path().filename().string());
    }
    return names;
}

class ReadingCacheTest : public ::testing::Test {
protected:
    std::filesystem::path file() const { return folder.path() / "Ambrel" / "battery-cache.json"; }

    TemporaryFolder folder;
};

TEST_F(ReadingCacheTest, SaveWritesOneCompactObjectWithModesOwnerOnly) {
    ReadingCache::save(file(), phoneSnapshot(kNow, 64, "Wi-Fi", "iPhone14,2"));
    ASSERT_TRUE(std::filesystem::is_regular_file(file()));
    EXPECT_EQ(modeOf(file()), 0600);
    EXPECT_EQ(modeOf(file().parent_path()), 0700);

    const std::string text = readText(file());
    EXPECT_EQ(text.find('\n'), std::string::npos);
    // Compact: exactly what the JSON library writes without any indentation.
    EXPECT_EQ(text, nlohmann::json::parse(text).dump());
    EXPECT_THAT(keysOf(text),
                UnorderedElementsAre("id", "name", "percentage", "isCharging", "isPluggedIn",
                                     "lastUpdated", "source", "model"));
    const auto json = nlohmann::json::parse(text);
    EXPECT_EQ(json["id"], "iphone");
    EXPECT_EQ(json["name"], kPhoneName);
    EXPECT_TRUE(json["percentage"].is_number_integer());
    EXPECT_EQ(json["percentage"], 64);
    EXPECT_EQ(json["isCharging"], false);
    EXPECT_EQ(json["isPluggedIn"], true);
    EXPECT_TRUE(json["lastUpdated"].is_number());
    EXPECT_EQ(json["lastUpdated"].get<double>(), 800000000.0);
    EXPECT_EQ(json["source"], "Wi-Fi");
    EXPECT_EQ(json["model"], "iPhone14,2");
    // Nothing but the file is left in the folder.
    EXPECT_THAT(namesIn(file().parent_path()), UnorderedElementsAre("battery-cache.json"));
}

TEST_F(ReadingCacheTest, SnapshotWithoutModelIsWrittenWithoutTheKeyAndReadsBackWithoutOne) {
    ReadingCache::save(file(), phoneSnapshot(kNow, 5, "USB", std::nullopt));
    EXPECT_THAT(keysOf(readText(file())),
                UnorderedElementsAre("id", "name", "percentage", "isCharging", "isPluggedIn",
                                     "lastUpdated", "source"));
    const auto loaded = ReadingCache::load(file(), kNow);
    ASSERT_TRUE(loaded.has_value());
    EXPECT_FALSE(loaded->model().has_value());
    EXPECT_EQ(loaded->percentage(), 5);
    EXPECT_EQ(loaded->source(), "USB");
}

TEST_F(ReadingCacheTest, RoundTripKeepsEveryFieldToTheSubSecond) {
    const Date when = Date::fromSecondsSinceReferenceDate(800000000.123456789);
    const auto snapshot =
        BatteryDeviceSnapshot("iphone", "Anna\u2019s \"work\" iPhone \\ \u00b7", 100, true, false,
                              when, "Wi-Fi", std::string("iPhone16,1"));
    ReadingCache::save(file(), snapshot);
    const auto loaded = ReadingCache::load(file(), when);
    ASSERT_TRUE(loaded.has_value());
    EXPECT_EQ(loaded->id(), snapshot.id());
    EXPECT_EQ(loaded->name(), snapshot.name());
    EXPECT_EQ(loaded->percentage(), snapshot.percentage());
    EXPECT_EQ(loaded->isCharging(), snapshot.isCharging());
    EXPECT_EQ(loaded->isPluggedIn(), snapshot.isPluggedIn());
    EXPECT_EQ(loaded->lastUpdated(), when);
    EXPECT_EQ(loaded->source(), snapshot.source());
    EXPECT_EQ(loaded->model(), snapshot.model());
}

TEST_F(ReadingCacheTest, SaveReplacesTheOldFileAndItsMode) {
    writeText(file(), "{\"old\":true}");
    ::chmod(file().c_str(), 0644);
    ReadingCache::save(file(), phoneSnapshot(kNow, 12));
    EXPECT_EQ(modeOf(file()), 0600);
    ASSERT_TRUE(ReadingCache::load(file(), kNow).has_value());
    EXPECT_EQ(ReadingCache::load(file(), kNow)->percentage(), 12);
    ReadingCache::save(file(), phoneSnapshot(kNow, 13));
    EXPECT_EQ(ReadingCache::load(file(), kNow)->percentage(), 13);
    EXPECT_THAT(namesIn(file().parent_path()), UnorderedElementsAre("battery-cache.json"));
}

TEST_F(ReadingCacheTest, MissingParentsAreAllMadeOwnerOnly) {
    const auto deep = folder.path() / "a" / "b" / "Ambrel" / "battery-cache.json";
    ReadingCache::save(deep, phoneSnapshot(kNow));
    EXPECT_EQ(modeOf(folder.path() / "a"), 0700);
    EXPECT_EQ(modeOf(folder.path() / "a" / "b"), 0700);
    EXPECT_EQ(modeOf(deep.parent_path()), 0700);
    EXPECT_EQ(modeOf(deep), 0600);
}

TEST_F(ReadingCacheTest, ExistingFolderKeepsItsMode) {
    std::filesystem::create_directories(file().parent_path());
    ::chmod(file().parent_path().c_str(), 0755);
    ::chmod(folder.path().c_str(), 0751);
    ReadingCache::save(file(), phoneSnapshot(kNow));
    EXPECT_EQ(modeOf(file().parent_path()), 0755);
    EXPECT_EQ(modeOf(folder.path()), 0751);
    EXPECT_EQ(modeOf(file()), 0600);

    // An existing parent keeps its mode while the missing folder below it is made owner-only.
    const auto below = folder.path() / "shared" / "Ambrel" / "battery-cache.json";
    std::filesystem::create_directories(below.parent_path().parent_path());
    ::chmod(below.parent_path().parent_path().c_str(), 0755);
    ReadingCache::save(below, phoneSnapshot(kNow));
    EXPECT_EQ(modeOf(below.parent_path().parent_path()), 0755);
    EXPECT_EQ(modeOf(below.parent_path()), 0700);
}

TEST_F(ReadingCacheTest, ModesDoNotDependOnTheUmask) {
    for (const mode_t mask : {mode_t{0000}, mode_t{0077}, mode_t{0022}, mode_t{0277}}) {
        const auto target =
            folder.path() / ("umask" + std::to_string(mask)) / "Ambrel" / "battery-cache.json";
        {
            ScopedUmask scoped(mask);
            ReadingCache::save(target, phoneSnapshot(kNow, 50));
            // A second save replaces the file under the same umask.
            ReadingCache::save(target, phoneSnapshot(kNow, 51));
        }
        EXPECT_EQ(modeOf(target), 0600) << "umask " << std::oct << mask;
        EXPECT_EQ(modeOf(target.parent_path()), 0700) << "umask " << std::oct << mask;
        EXPECT_EQ(modeOf(target.parent_path().parent_path()), 0700) << "umask " << std::oct << mask;
        ASSERT_TRUE(ReadingCache::load(target, kNow).has_value()) << "umask " << std::oct << mask;
        EXPECT_EQ(ReadingCache::load(target, kNow)->percentage(), 51);
    }
}

TEST_F(ReadingCacheTest, FolderThatCannotBeMadeFailsSilently) {
    writeText(folder.path() / "plain", "a regular file");
    const auto target = folder.path() / "plain" / "Ambrel" / "battery-cache.json";
    ReadingCache::save(target, phoneSnapshot(kNow));
    EXPECT_FALSE(std::filesystem::exists(folder.path() / "plain" / "Ambrel"));
    EXPECT_EQ(readText(folder.path() / "plain"), "a regular file");
    EXPECT_FALSE(ReadingCache::load(target, kNow).has_value());
}

TEST_F(ReadingCacheTest, FailedReplaceLeavesWhatWasThereAndNoLeftovers) {
    // A folder in the file's place cannot be renamed over.
    std::filesystem::create_directories(file() / "inside");
    ReadingCache::save(file(), phoneSnapshot(kNow));
    EXPECT_TRUE(std::filesystem::is_directory(file() / "inside"));
    EXPECT_THAT(namesIn(file().parent_path()), UnorderedElementsAre("battery-cache.json"));
    EXPECT_FALSE(ReadingCache::load(file(), kNow).has_value());
}

TEST_F(ReadingCacheTest, SaveRemovesTemporariesAbandonedByEarlierKills) {
    std::filesystem::create_directories(file().parent_path());
    const auto folderPath = file().parent_path();
    const auto old = folderPath / ".battery-cache.json.Ab12Cd";
    const auto recent = folderPath / ".battery-cache.json.Xy34Zw";
    const auto unrelated = folderPath / ".battery-cache.json.notours";
    for (const auto& path : {old, recent, unrelated}) {
        std::FILE* stream = std::fopen(path.c_str(), "w");
        ASSERT_NE(stream, nullptr);
        std::fputs("{\"id\":", stream);
        std::fclose(stream);
    }
    const auto longAgo = std::filesystem::file_time_type::clock::now() - std::chrono::minutes(5);
    std::filesystem::last_write_time(old, longAgo);
    std::filesystem::last_write_time(unrelated, longAgo);

    ReadingCache::save(file(), phoneSnapshot(kNow));
    // A temporary younger than a minute may belong to a save in progress elsewhere; it stays.
    EXPECT_THAT(namesIn(folderPath),
                UnorderedElementsAre("battery-cache.json", ".battery-cache.json.Xy34Zw",
                                     ".battery-cache.json.notours"));
    EXPECT_TRUE(ReadingCache::load(file(), kNow).has_value());
}

TEST_F(ReadingCacheTest, AcceptanceRules) {
    const auto write = [this](const nlohmann::json& json) { writeText(file(), json.dump()); };
    auto json = phoneSnapshot(kNow, 100).toJson();
    write(json);
    EXPECT_TRUE(ReadingCache::load(file(), kNow).has_value());
    json["percentage"] = 101;
    write(json);
    EXPECT_FALSE(ReadingCache::load(file(), kNow).has_value());
    json["percentage"] = 0;
    write(json);
    EXPECT_TRUE(ReadingCache::load(file(), kNow).has_value());
    json["percentage"] = -1;
    write(json);
    EXPECT_FALSE(ReadingCache::load(file(), kNow).has_value());
    json["percentage"] = 50;
    json["id"] = "mac";
    write(json);
    EXPECT_FALSE(ReadingCache::load(file(), kNow).has_value());
    json["id"] = "iphone";

    json["lastUpdated"] = kNow.secondsSinceReferenceDate() + 60.0;
    write(json);
    EXPECT_TRUE(ReadingCache::load(file(), kNow).has_value());
    json["lastUpdated"] = kNow.secondsSinceReferenceDate() + 61.0;
    write(json);
    EXPECT_FALSE(ReadingCache::load(file(), kNow).has_value());
    json["lastUpdated"] = kNow.secondsSinceReferenceDate() - 86400.0 * 365;
    write(json);
    EXPECT_TRUE(ReadingCache::load(file(), kNow).has_value());
}

TEST_F(ReadingCacheTest, MissingFileGivesNothing) {
    EXPECT_FALSE(ReadingCache::load(file(), kNow).has_value());
}

TEST_F(ReadingCacheTest, CacheFileThatIsAFolderGivesNothing) {
    std::filesystem::create_directories(file());
    EXPECT_FALSE(ReadingCache::load(file(), kNow).has_value());
}

TEST_F(ReadingCacheTest, DanglingSymbolicLinkGivesNothing) {
    std::filesystem::create_directories(file().parent_path());
    std::filesystem::create_symlink(folder.path() / "nowhere.json", file());
    EXPECT_FALSE(ReadingCache::load(file(), kNow).has_value());
}

TEST_F(ReadingCacheTest, SymbolicLinkToAGoodFileIsFollowed) {
    const auto real = folder.path() / "real.json";
    writeText(real, phoneSnapshot(kNow, 44).encodeJson());
    std::filesystem::create_directories(file().parent_path());
    std::filesystem::create_symlink(real, file());
    ASSERT_TRUE(ReadingCache::load(file(), kNow).has_value());
    EXPECT_EQ(ReadingCache::load(file(), kNow)->percentage(), 44);
}

// Drops, for the calling thread only, the capabilities that let root read any file.
bool dropFileReadingCapabilities() {
    __user_cap_header_struct header{_LINUX_CAPABILITY_VERSION_3, 0};
    __user_cap_data_struct data[_LINUX_CAPABILITY_U32S_3] = {};
    if (::syscall(SYS_capget, &header, data) != 0) {
        return false;
    }
    for (const int capability : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH}) {
        data[capability / 32].effective &= ~(1u << (capability % 32));
    }
    return ::syscall(SYS_capset, &header, data) == 0;
}

TEST_F(ReadingCacheTest, UnreadableFileGivesNothing) {
    writeText(file(), phoneSnapshot(kNow, 44).encodeJson());
    ::chmod(file().c_str(), 0000);
    // Capabilities belong to a thread on Linux: a thread that gives up the right to bypass file
    // permissions sees the file as any user would, even when the tests run as root.
    std::optional<BatteryDeviceSnapshot> loaded;
    bool dropped = false;
    bool canOpen = true;
    std::thread reader([&] {
        dropped = dropFileReadingCapabilities();
        const int descriptor = ::open(file().c_str(), O_RDONLY);
        canOpen = descriptor >= 0;
        if (descriptor >= 0) {
            ::close(descriptor);
        }
        loaded = ReadingCache::load(file(), kNow);
    });
    reader.join();
    ASSERT_TRUE(dropped);
    ASSERT_FALSE(canOpen) << "the file is still readable; the case cannot be made here";
    EXPECT_FALSE(loaded.has_value());
    // The same file opened up again loads: the refusal came from the permissions alone.
    ::chmod(file().c_str(), 0600);
    EXPECT_TRUE(ReadingCache::load(file(), kNow).has_value());
}

TEST_F(ReadingCacheTest, PipeInThePlaceOfTheFileGivesNothingWithoutWaiting) {
    std::filesystem::create_directories(file().parent_path());
    ASSERT_EQ(::mkfifo(file().c_str(), 0600), 0);
    // Nobody ever opens the pipe for writing: a load that waited for a writer would never
    // come back.
    EXPECT_FALSE(ReadingCache::load(file(), kNow).has_value());
}

TEST_F(ReadingCacheTest, EmptyTruncatedAndGarbageFilesGiveNothing) {
    const std::string good = phoneSnapshot(kNow, 44).encodeJson();
    writeText(file(), good);
    ASSERT_TRUE(ReadingCache::load(file(), kNow).has_value());

    writeText(file(), "");
    EXPECT_FALSE(ReadingCache::load(file(), kNow).has_value());
    for (const std::size_t length : {std::size_t{1}, good.size() / 2, good.size() - 1}) {
        writeText(file(), good.substr(0, length));
        EXPECT_FALSE(ReadingCache::load(file(), kNow).has_value()) << length;
    }
    writeText(file(), "null");
    EXPECT_FALSE(ReadingCache::load(file(), kNow).has_value());
    writeText(file(), "[" + good + "]");
    EXPECT_FALSE(ReadingCache::load(file(), kNow).has_value());
    // Bytes that are not UTF-8 inside a string.
    std::string badText = good;
    badText.replace(badText.find("Anna"), 4, "\xff\xfe\xfd\xfc");
    writeText(file(), badText);
    EXPECT_FALSE(ReadingCache::load(file(), kNow).has_value());
}

TEST_F(ReadingCacheTest, HugeFilesGiveNothingAndAreNotReadToTheirEnd) {
    std::mt19937 random(20240601);
    std::string block(64 * 1024, '\0');
    for (char& byte : block) {
        byte = static_cast<char>(random() & 0xff);
    }
    std::string garbage;
    while (garbage.size() < 10 * 1024 * 1024) {
        garbage += block;
    }
    writeText(file(), garbage);
    EXPECT_FALSE(ReadingCache::load(file(), kNow).has_value());
    std::string padded = phoneSnapshot(kNow, 44).encodeJson();
    padded.insert(padded.size() - 1, ",\"pad\":\"" + std::string(10 * 1024 * 1024, 'p') + "\"");
    writeText(file(), padded);
    EXPECT_FALSE(ReadingCache::load(file(), kNow).has_value());
    // A terabyte that begins like a good reading (a sparse file: it takes no room on disk).
    // Reading it to its end would take far more memory and time than any machine gives, so
    // a load that comes back at all stopped early.
    writeText(file(), phoneSnapshot(kNow, 44).encodeJson());
    ASSERT_EQ(::truncate(file().c_str(), off_t{1} << 40), 0) << std::strerror(errno);
    EXPECT_FALSE(ReadingCache::load(file(), kNow).has_value());
}

// Starts the cache writer on `file`; its standard output (one mark per save) comes on a pipe.
std::unique_ptr<ChildProcess> startWriter(const std::filesystem::path& file) {
    ProcessOptions options;
    options.arguments = {std::string(TOVRIN_BINARY_DIR) + "/tests/ambrel_cache_writer",
                         file.string()};
    options.error = OutputTo::inherit;
    return std::make_unique<ChildProcess>(std::move(options));
}

// Counts the bytes left in the pipe once its writer is gone.
long drain(int descriptor) {
    long count = 0;
    char buffer[4096];
    while (true) {
        const ssize_t got = ::read(descriptor, buffer, sizeof buffer);
        if (got < 0 && errno == EINTR) {
            continue;
        }
        if (got <= 0) {
            return count;
        }
        count += got;
    }
}

// Reads one mark of the cache writer; false when it is gone.
bool readMark(int descriptor) {
    char mark = 0;
    ssize_t got = 0;
    do {
        got = ::read(descriptor, &mark, 1);
    } while (got < 0 && errno == EINTR);
    return got == 1;
}

TEST_F(ReadingCacheTest, FileIsWholeAfterTheWriterIsKilledAtRandomMoments) {
    const std::string first = cacheWriterSnapshot(true).encodeJson();
    const std::string second = cacheWriterSnapshot(false).encodeJson();
    const Date now = cacheWriterSnapshot(false).lastUpdated();
    // 300 kills take a second or two on an idle disk; when the disk is busy (every save is
    // flushed to it) the run stops after about 8 s, once it has made at least 100.
    constexpr int kKills = 300;
    constexpr int kMinimumKills = 100;
    constexpr auto kBudget = std::chrono::seconds(8);
    std::mt19937 random(7);
    std::uniform_real_distribution<double> fraction(0.0, 1.0);

    // How long a freshly started writer takes for its second save, the longest of five; the kills
    // then land at random moments of that save or the next, whatever the disk's and the build's
    // speed. A second save in a new process is slower than one in a long run (cold caches, and
    // much more so under the sanitizers), so it is timed as the kills will meet it.
    std::chrono::steady_clock::duration period{};
    {
        std::vector<std::chrono::steady_clock::duration> seconds;
        for (int sample = 0; sample < 5; ++sample) {
            const auto writer = startWriter(file());
            ASSERT_TRUE(writer->isStarted()) << "cannot start the cache writer";
            ASSERT_TRUE(readMark(writer->outputDescriptor())) << "the cache writer wrote nothing";
            const auto firstDone = std::chrono::steady_clock::now();
            ASSERT_TRUE(readMark(writer->outputDescriptor()));
            seconds.push_back(std::chrono::steady_clock::now() - firstDone);
            ::kill(writer->pid(), SIGKILL);
            writer->stop();
        }
        period = *std::max_element(seconds.begin(), seconds.end());
    }

    long writes = 0;
    int badFiles = 0;
    int killedBySignal = 0;
    const auto started = std::chrono::steady_clock::now();
    int kills = 0;
    for (; kills < kKills; ++kills) {
        if (kills >= kMinimumKills && std::chrono::steady_clock::now() - started > kBudget) {
            break;
        }
        const auto writer = startWriter(file());
        ASSERT_TRUE(writer->isStarted()) << "cannot start the cache writer";
        ASSERT_TRUE(readMark(writer->outputDescriptor())) << "the cache writer wrote nothing";
        std::this_thread::sleep_for(
            std::chrono::duration_cast<std::chrono::nanoseconds>(period * 1.5 * fraction(random)));
        ::kill(writer->pid(), SIGKILL);
        const int status = writer->stop();
        killedBySignal += WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL ? 1 : 0;
        writes += 1 + drain(writer->outputDescriptor());

        // The file is always there and always one whole reading.
        const std::string text = readText(file());
        const bool whole = (text == first || text == second) &&
                           ReadingCache::load(file(), now).has_value() && modeOf(file()) == 0600;
        if (!whole) {
            ++badFiles;
            ADD_FAILURE() << "after kill " << kills << " the file holds " << text.size()
                          << " bytes that are neither reading";
        }
    }
    const double seconds =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - started).count();
    int leftovers = 0;
    for (const auto& name : namesIn(file().parent_path())) {
        leftovers += name == "battery-cache.json" ? 0 : 1;
    }
    std::printf("cache writer: %.1f ms per save, %ld writes, %d kills (%d by SIGKILL mid-run), %d "
                "bad files, %d temporary files left by kills, %.2f s\n",
                std::chrono::duration<double, std::milli>(period).count(), writes, kills,
                killedBySignal, badFiles, leftovers, seconds);
    EXPECT_EQ(badFiles, 0);
    EXPECT_GE(kills, kMinimumKills);
    EXPECT_EQ(killedBySignal, kills);
    EXPECT_GT(writes, static_cast<long>(kills));
}

} // namespace
} // namespace ambrel::testing::phonecycle
