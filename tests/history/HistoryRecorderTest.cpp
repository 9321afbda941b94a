#include "history/HistoryRecorder.h"

#include <fstream>
#include <mutex>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tests/fakes/TemporaryFolder.h"

namespace ambrel::testing {
namespace {

const Date kRecorderNow = Date::fromSecondsSinceReferenceDate(817300000.0);
constexpr double kDay = 24 * 3600.0;

HistoryRow row(Date time, const std::string& device, int percentage) {
    HistoryRow result;
    result.time = time;
    result.device = device;
    result.percentage = percentage;
    return result;
}

class HistoryRecorderTest : public ::testing::Test {
protected:
    std::filesystem::path file() const { return m_folder.path() / HistoryStore::kFileName; }

    std::unique_ptr<HistoryRecorder> recorder(std::filesystem::path where = {}) {
        return std::make_unique<HistoryRecorder>(
            where.empty() ? file() : where,
            [this] {
                const std::lock_guard lock(m_mutex);
                return m_now;
            },
            [this](const std::string& line) {
                const std::lock_guard lock(m_mutex);
                m_log.push_back(line);
            });
    }

    // The rows of `device` in the file, read by a store of the test's own.
    std::vector<HistoryRow> stored(const std::string& device) {
        HistoryStore store(file());
        EXPECT_TRUE(store.open(kRecorderNow)) << store.status();
        return store.rows(device, Date::fromSecondsSinceReferenceDate(0));
    }

    std::vector<std::string> log() {
        const std::lock_guard lock(m_mutex);
        return m_log;
    }

    void setNow(Date now) {
        const std::lock_guard lock(m_mutex);
        m_now = now;
    }

    TemporaryFolder m_folder;
    std::mutex m_mutex;
    Date m_now = kRecorderNow;
    std::vector<std::string> m_log;
};

TEST_F(HistoryRecorderTest, RowsAreWrittenAndAReadingRecordedAgainAddsNothing) {
    const auto history = recorder();
    const auto reading = row(kRecorderNow.addingSeconds(-60), "iphone", 71);
    history->record(reading);
    history->record(row(kRecorderNow, "mac", 44));
    // The phone's reading shown again from the cache, at the next start say.
    history->record(reading);
    history->flush();
    EXPECT_EQ(history->status(), "");
    EXPECT_EQ(stored("iphone"), (std::vector<HistoryRow>{reading}));
    EXPECT_EQ(stored("mac"), (std::vector<HistoryRow>{row(kRecorderNow, "mac", 44)}));
    EXPECT_TRUE(log().empty());
}

TEST_F(HistoryRecorderTest, RowsOlderThanThirtyDaysGoWithTheFirstRowOfEachDay) {
    const auto old = row(kRecorderNow.addingSeconds(-31 * kDay), "mac", 10);
    {
        HistoryStore store(file());
        ASSERT_TRUE(store.open(kRecorderNow));
        ASSERT_TRUE(store.append(old));
    }
    const auto history = recorder();
    history->record(row(kRecorderNow, "mac", 50));
    history->flush();
    EXPECT_EQ(stored("mac"), (std::vector<HistoryRow>{row(kRecorderNow, "mac", 50)}));

    // Another old row (a clock set back, say) stays until a day has passed.
    {
        HistoryStore store(file());
        ASSERT_TRUE(store.open(kRecorderNow));
        ASSERT_TRUE(store.append(old));
    }
    setNow(kRecorderNow.addingSeconds(kDay - 1));
    history->record(row(kRecorderNow.addingSeconds(kDay - 1), "mac", 51));
    history->flush();
    EXPECT_EQ(stored("mac").size(), 3u);
    setNow(kRecorderNow.addingSeconds(kDay));
    history->record(row(kRecorderNow.addingSeconds(kDay), "mac", 52));
    history->flush();
    const auto kept = stored("mac");
    ASSERT_EQ(kept.size(), 3u);
    EXPECT_EQ(kept.front(), row(kRecorderNow, "mac", 50));
}

TEST_F(HistoryRecorderTest, HistoryThatCannotBeWrittenIsLoggedOnceAndRecordingGoesOn) {
    // Its folder is a file: nothing can be made there.
    const auto blocker = m_folder.path() / "Ambrel";
    std::ofstream(blocker) << "not a folder";
    const auto history = recorder(blocker / HistoryStore::kFileName);
    for (int minute = 0; minute < 5; ++minute) {
        history->record(row(kRecorderNow.addingSeconds(minute * 60.0), "mac", 50 + minute));
    }
    history->flush();
    const auto status = history->status();
    EXPECT_TRUE(status.starts_with("Battery history is off: ")) << status;
    EXPECT_EQ(log(), (std::vector<std::string>{status}));
    history->record(row(kRecorderNow.addingSeconds(600), "mac", 60));
    history->flush();
    EXPECT_EQ(log().size(), 1u);
}

TEST_F(HistoryRecorderTest, ADamagedFileSetAsideIsLogged) {
    std::ofstream(file()) << std::string(2048, 'z');
    const auto history = recorder();
    history->record(row(kRecorderNow, "mac", 50));
    history->flush();
    EXPECT_EQ(history->status(), "");
    const auto aside = setAsideName(file(), kRecorderNow);
    EXPECT_EQ(log(), (std::vector<std::string>{"Battery history was damaged; it was kept as " +
                                               aside.string() + " and a new one started."}));
    EXPECT_TRUE(std::filesystem::exists(aside));
    EXPECT_EQ(stored("mac").size(), 1u);
}

TEST_F(HistoryRecorderTest, RowsQueuedBeforeTheEndAreWritten) {
    {
        const auto history = recorder();
        for (int minute = 0; minute < 50; ++minute) {
            history->record(row(kRecorderNow.addingSeconds(minute * 60.0), "mac", minute));
        }
    }
    EXPECT_EQ(stored("mac").size(), 50u);
}

} // namespace
} // namespace ambrel::testing
