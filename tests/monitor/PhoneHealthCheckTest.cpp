#include "monitor/PhoneHealthCheck.h"

#include <fstream>
#include <memory>
#include <vector>

#include <gtest/gtest.h>

#include "monitor/ReadingCache.h"
#include "tests/fakes/TemporaryFolder.h"
#include "tests/monitor/PhoneCycleHarness.h"

namespace ambrel::testing {
namespace {

const BatteryHealth kWorn{87, 412, 30.5};

// The real monitor over fakes; the health reads answer from a queue and are counted.
class PhoneHealthCheckTest : public ::testing::Test, protected FakeMonitorServices {
protected:
    std::unique_ptr<BatteryMonitor> makeMonitor() {
        return std::make_unique<BatteryMonitor>(
            FakeMonitorServices::services([this](const std::filesystem::path&,
                                                 const std::optional<std::string>&,
                                                 const std::optional<PhoneIdentity>&) {
                return m_phoneAnswers.at(m_phoneReads++);
            }),
            std::nullopt, m_folder.path() / "battery-cache.json");
    }

    std::unique_ptr<PhoneHealthCheck> makeCheck(BatteryMonitor& monitor) {
        return std::make_unique<PhoneHealthCheck>(
            monitor, worker, scheduler,
            [this](const std::string& udid, PhoneLink link) {
                m_healthAsked.emplace_back(udid, link);
                return m_healthAnswers.at(m_healthAsked.size() - 1);
            },
            healthFile());
    }

    std::filesystem::path healthFile() const {
        return m_folder.path() / PhoneHealthFile::kFileName;
    }

    // Runs the jobs waiting and hands their outcomes to the main thread.
    void finishJobs() {
        worker->runJobs();
        scheduler->runPosted();
    }

    TemporaryFolder m_folder;
    std::vector<PhoneReadResult> m_phoneAnswers;
    std::size_t m_phoneReads = 0;
    std::vector<std::optional<BatteryHealth>> m_healthAnswers;
    std::vector<std::pair<std::string, PhoneLink>> m_healthAsked;
};

TEST_F(PhoneHealthCheckTest, ReadAfterTheFirstReadReachesThePhoneThenOnceADay) {
    const Date start = scheduler->now();
    m_phoneAnswers = {phonecycle::success(start, 81, "Wi-Fi"),
                      phonecycle::success(start.addingSeconds(300), 80, "Wi-Fi")};
    for (int read = 0; read < 300; ++read) {
        m_phoneAnswers.push_back(
            phonecycle::success(start.addingSeconds(300.0 * (read + 2)), 79, "USB"));
    }
    m_healthAnswers = {kWorn, BatteryHealth{86, 420, std::nullopt}};
    const auto monitor = makeMonitor();
    const auto check = makeCheck(*monitor);
    int changes = 0;
    check->setChanged([&] { ++changes; });
    monitor->start();
    // The read is the only job: the health waits until it has ended.
    EXPECT_EQ(worker->pendingJobs(), 1u);
    worker->runJobs();
    EXPECT_TRUE(m_healthAsked.empty());
    scheduler->runPosted();
    EXPECT_EQ(worker->pendingJobs(), 1u) << "the health read starts once the read has ended";
    EXPECT_TRUE(check->isReading());
    finishJobs();
    ASSERT_EQ(m_healthAsked.size(), 1u);
    EXPECT_EQ(m_healthAsked[0], std::make_pair(std::string(phonecycle::kUdid), PhoneLink::wifi));
    ASSERT_TRUE(check->health());
    EXPECT_EQ(check->health()->health, kWorn);
    EXPECT_EQ(check->health()->measured, start);
    EXPECT_EQ(changes, 1);

    // Every five minutes for a day: reads, no health.
    for (int cycle = 0; cycle < 287; ++cycle) {
        scheduler->advance(300);
        finishJobs();
    }
    EXPECT_EQ(m_healthAsked.size(), 1u);
    EXPECT_EQ(monitor->phoneSetupState(), PhoneSetupState::ready);
    // A day after it was read, the next read brings the health again, over the link it used.
    scheduler->advance(300);
    finishJobs();
    scheduler->advance(300);
    finishJobs();
    ASSERT_EQ(m_healthAsked.size(), 2u);
    EXPECT_EQ(m_healthAsked[1].second, PhoneLink::usb);
    EXPECT_EQ(check->health()->health.cycleCount, 420);
    EXPECT_EQ(changes, 2);
}

TEST_F(PhoneHealthCheckTest, AFailedTryChangesNothingAndWaitsAnHour) {
    const Date start = scheduler->now();
    for (int read = 0; read < 20; ++read) {
        m_phoneAnswers.push_back(phonecycle::success(start.addingSeconds(300.0 * read), 70, "USB"));
    }
    m_healthAnswers = {std::nullopt, kWorn};
    const auto monitor = makeMonitor();
    const auto check = makeCheck(*monitor);
    monitor->start();
    finishJobs();
    finishJobs();
    ASSERT_EQ(m_healthAsked.size(), 1u);
    EXPECT_FALSE(check->health());
    EXPECT_EQ(monitor->phoneSetupState(), PhoneSetupState::ready);
    EXPECT_EQ(monitor->phoneStatus(), BatteryMonitor::kUsbStatus);
    EXPECT_EQ(monitor->phone()->percentage(), 70);
    // Eleven reads within the hour: no try.
    for (int cycle = 0; cycle < 11; ++cycle) {
        scheduler->advance(300);
        finishJobs();
    }
    EXPECT_EQ(m_healthAsked.size(), 1u);
    scheduler->advance(300);
    finishJobs();
    finishJobs();
    EXPECT_EQ(m_healthAsked.size(), 2u);
    EXPECT_EQ(check->health()->health, kWorn);
}

TEST_F(PhoneHealthCheckTest, APairingBringsAReadAtOnceAndACachedOrFailedReadNone) {
    const Date start = scheduler->now();
    // Read an hour ago, kept in the file.
    ASSERT_TRUE(PhoneHealthFile::save(
        healthFile(), {{phonecycle::kUdid, PhoneHealthRecord{start.addingSeconds(-3600), kWorn}}}));
    ReadingCache::save(m_folder.path() / "battery-cache.json",
                       phonecycle::phoneSnapshot(start.addingSeconds(-600), 55, "USB"));
    m_phoneAnswers = {phonecycle::failure(PhoneSetupState::notFound, "no phone", false),
                      phonecycle::failure(PhoneSetupState::needsPairing, "pair", false),
                      phonecycle::success(start.addingSeconds(600), 60, "USB")};
    m_healthAnswers = {BatteryHealth{std::nullopt, 3, std::nullopt}};
    const auto monitor = makeMonitor();
    const auto check = makeCheck(*monitor);
    ASSERT_TRUE(check->health()) << "the stored health is there at start";
    monitor->start();
    finishJobs();
    scheduler->advance(300);
    finishJobs();
    EXPECT_TRUE(m_healthAsked.empty()) << "the cached reading and failed reads start nothing";
    EXPECT_EQ(monitor->phoneSetupState(), PhoneSetupState::needsPairing);
    // Paired now: the next good read asks, though the stored health is an hour old.
    scheduler->advance(300);
    finishJobs();
    finishJobs();
    ASSERT_EQ(m_healthAsked.size(), 1u);
    EXPECT_EQ(check->health()->health.cycleCount, 3);
    // And it is kept for the next run.
    const auto stored = PhoneHealthFile::load(healthFile());
    ASSERT_EQ(stored.count(phonecycle::kUdid), 1u);
    EXPECT_EQ(stored.at(phonecycle::kUdid).health.cycleCount, 3);
}

TEST_F(PhoneHealthCheckTest, TheFileKeepsEachPhoneAndDamageIsNoRecords) {
    const Date when = Date::fromSecondsSinceReferenceDate(800000000.5);
    const std::map<std::string, PhoneHealthRecord> records = {
        {"A", {when, kWorn}}, {"B", {when, BatteryHealth{std::nullopt, 5, std::nullopt}}}};
    ASSERT_TRUE(PhoneHealthFile::save(healthFile(), records));
    EXPECT_EQ(PhoneHealthFile::load(healthFile()), records);
    EXPECT_EQ(std::filesystem::status(healthFile()).permissions() & std::filesystem::perms::all,
              std::filesystem::perms::owner_read | std::filesystem::perms::owner_write);

    const auto write = [&](const std::string& text) {
        std::ofstream(healthFile(), std::ios::trunc) << text;
        return PhoneHealthFile::load(healthFile());
    };
    EXPECT_TRUE(write("{\"version\":1,\"phones\":{\"A\":").empty());
    EXPECT_TRUE(write("[1,2]").empty());
    EXPECT_TRUE(write("{\"version\":2,\"phones\":{}}").empty()) << "a newer file is not read";
    // Wrong types and impossible values are left out; an entry with nothing left is none.
    const auto partial = write(R"({"version":1,"phones":{
        "A":{"measured":1.0,"maximumCapacity":"87","cycleCount":12},
        "B":{"measured":"x","cycleCount":12},
        "C":{"measured":1.0,"maximumCapacity":900,"cycleCount":-1}}})");
    ASSERT_EQ(partial.size(), 1u);
    EXPECT_EQ(partial.at("A").health, (BatteryHealth{std::nullopt, 12, std::nullopt}));
    std::filesystem::remove(healthFile());
    EXPECT_TRUE(PhoneHealthFile::load(healthFile()).empty());
}

} // namespace
} // namespace ambrel::testing
