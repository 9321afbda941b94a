#include "app/HistoryFeed.h"

#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "monitor/ReadingCache.h"
#include "tests/fakes/TemporaryFolder.h"
#include "tests/monitor/PhoneCycleHarness.h"

namespace ambrel::testing {
namespace {

PowerSourceDescription batteryAt(std::int64_t percent) {
    return {{"Current Capacity", percent},
            {"Max Capacity", std::int64_t{100}},
            {"Power Source State", std::string("Battery Power")}};
}

// The real monitor over fakes and the real recorder on a file of the test's own.
class HistoryFeedTest : public ::testing::Test, protected FakeMonitorServices {
protected:
    HistoryFeedTest() { power->sources = PowerSourceList{batteryAt(64)}; }

    std::unique_ptr<BatteryMonitor> makeMonitor() {
        return std::make_unique<BatteryMonitor>(
            FakeMonitorServices::services([this](const std::filesystem::path&,
                                                 const std::optional<std::string>&,
                                                 const std::optional<PhoneIdentity>&) {
                return m_phoneAnswers.at(m_phoneReads++);
            }),
            std::nullopt, m_folder.path() / "battery-cache.json");
    }

    std::vector<HistoryRow> stored(const std::string& device) {
        m_recorder.flush();
        HistoryStore store(m_folder.path() / HistoryStore::kFileName);
        EXPECT_TRUE(store.open(scheduler->now())) << store.status();
        return store.rows(device, Date::fromSecondsSinceReferenceDate(0));
    }

    // Lets the phone read that is waiting finish and its outcome reach the monitor.
    void finishPhoneRead() {
        worker->runJobs();
        scheduler->runPosted();
    }

    TemporaryFolder m_folder;
    HistoryRecorder m_recorder{m_folder.path() / HistoryStore::kFileName,
                               [] { return Date::fromSecondsSinceReferenceDate(800000000.0); },
                               nullptr};
    std::vector<PhoneReadResult> m_phoneAnswers;
    std::size_t m_phoneReads = 0;
};

TEST_F(HistoryFeedTest, EachNewReadingIsARowAndTheCachedOneIsNot) {
    const Date start = scheduler->now();
    // The phone's last reading, from an earlier run.
    ReadingCache::save(m_folder.path() / "battery-cache.json",
                       phonecycle::phoneSnapshot(start.addingSeconds(-3600), 55, "USB"));
    m_phoneAnswers = {phonecycle::success(start, 81, "Wi-Fi"),
                      phonecycle::failure(PhoneSetupState::notFound, "no phone", false)};
    const auto monitor = makeMonitor();
    ASSERT_TRUE(monitor->phone().has_value()) << "the cached reading is shown";
    HistoryFeed feed(*monitor, m_recorder);
    monitor->start();
    finishPhoneRead();
    power->sources = PowerSourceList{batteryAt(63)};
    scheduler->advance(60);
    // The next phone check finds nothing: the reading stays as "Last known", no new row.
    scheduler->advance(300);
    finishPhoneRead();

    const auto phone = stored("iphone");
    ASSERT_EQ(phone.size(), 1u);
    EXPECT_EQ(phone[0].time, start);
    EXPECT_EQ(phone[0].percentage, 81);
    EXPECT_EQ(phone[0].link, "Wi-Fi");
    EXPECT_EQ(m_phoneReads, 2u);

    const auto computer = stored("mac");
    ASSERT_GE(computer.size(), 2u);
    EXPECT_EQ(computer.front().percentage, 64);
    EXPECT_EQ(computer.front().link, "");
    EXPECT_EQ(computer.back().percentage, 63);
    for (std::size_t i = 1; i < computer.size(); ++i) {
        EXPECT_GT(computer[i].time, computer[i - 1].time);
    }
}

} // namespace
} // namespace ambrel::testing
