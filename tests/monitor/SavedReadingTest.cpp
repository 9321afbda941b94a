#include <optional>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "monitor/BatteryMonitor.h"
#include "tests/fakes/ExpectedTexts.h"
#include "tests/monitor/PhoneCycleHarness.h"

namespace ambrel::testing::phonecycle {
namespace {

using namespace ::ambrel::testing::expected;

// A saved file of a table of them, and what the failure message names it.
struct SavedCase {
    const char* what;
    nlohmann::json json;
};

class SavedReadingTest : public ::testing::Test {
protected:
    // The JSON form of a phone reading taken `age` seconds before the simulated clock's now.
    nlohmann::json savedJson(double age, std::int64_t percentage = 100) const {
        return phoneSnapshot(h.now().addingSeconds(-age), percentage).toJson();
    }
    // The same with `key` set to `value`, or taken out when `value` is absent.
    nlohmann::json savedJsonWith(double age, std::int64_t percentage, const char* key,
                                 std::optional<nlohmann::json> value) const {
        auto json = savedJson(age, percentage);
        if (value) {
            json[key] = *value;
        } else {
            json.erase(key);
        }
        return json;
    }
    void save(const nlohmann::json& json) { writeText(h.cacheFile(), json.dump()); }

    CycleHarness h;
};

TEST_F(SavedReadingTest, ReadingFromAnHourAgoIsShownAsSavedAndStale) {
    save(savedJson(3600, 100));
    auto monitor = h.makeMonitor();
    ASSERT_TRUE(monitor->phone().has_value());
    EXPECT_EQ(monitor->phone()->percentage(), 100);
    EXPECT_EQ(monitor->phone()->lastUpdated(), h.now().addingSeconds(-3600));
    EXPECT_EQ(monitor->phone()->name(), kPhoneName);
    EXPECT_TRUE(monitor->phone()->isStale(h.now()));
    EXPECT_EQ(monitor->phoneStatus(), kSavedReading);
    // Only the reading and the status come from the file.
    EXPECT_EQ(monitor->phoneSetupState(), PhoneSetupState::checking);
    EXPECT_FALSE(monitor->isRefreshingPhone());
    EXPECT_FALSE(monitor->lastPhoneAttempt().has_value());
    EXPECT_FALSE(monitor->nextPhoneCheck().has_value());
    EXPECT_EQ(h.worker->pendingJobs(), 0u);
}

TEST_F(SavedReadingTest, RecentReadingIsShownAndNotStale) {
    save(savedJson(30, 42));
    auto monitor = h.makeMonitor();
    ASSERT_TRUE(monitor->phone().has_value());
    EXPECT_EQ(monitor->phone()->percentage(), 42);
    EXPECT_FALSE(monitor->phone()->isStale(h.now()));
    EXPECT_EQ(monitor->phoneStatus(), kSavedReading);
}

TEST_F(SavedReadingTest, OutOfRangeOrForeignReadingsAreIgnored) {
    const std::vector<SavedCase> cases = {
        {"101 percent", savedJson(60, 101)},
        {"-1 percent", savedJson(60, -1)},
        {"id mac", savedJsonWith(60, 50, "id", "mac")},
        {"id iPhone", savedJsonWith(60, 50, "id", "iPhone")},
        {"61 s ahead", savedJson(-61, 50)},
        {"an hour ahead", savedJson(-3600, 50)},
        {"no source", savedJsonWith(60, 50, "source", std::nullopt)},
        {"model not text", savedJsonWith(60, 50, "model", 14)},
        {"percentage as text", savedJsonWith(60, 50, "percentage", "50")},
        {"fractional percentage", savedJsonWith(60, 50, "percentage", 50.5)},
        {"an array", nlohmann::json::array({savedJson(60, 50)})},
    };

    for (const auto& item : cases) {
        save(item.json);
        auto monitor = h.makeMonitor();
        EXPECT_FALSE(monitor->phone().has_value()) << item.what;
        EXPECT_EQ(monitor->phoneStatus(), kCheckingForIphone) << item.what;
        EXPECT_EQ(monitor->phoneSetupState(), PhoneSetupState::checking) << item.what;
    }
}

TEST_F(SavedReadingTest, AcceptedEdgesOfTheRules) {
    const auto noModel = savedJsonWith(10, 50, "model", std::nullopt);
    const auto nullModel = savedJsonWith(10, 50, "model", nullptr);
    const std::vector<SavedCase> cases = {
        {"100 percent", savedJson(10, 100)},
        {"0 percent", savedJson(10, 0)},
        {"exactly 60 s ahead", savedJson(-60, 50)},
        {"59.5 s ahead", savedJson(-59.5, 50)},
        {"no model", noModel},
        {"null model", nullModel},
        {"unknown key", savedJsonWith(10, 50, "battery", 3)},
        {"percentage written as 50.0", savedJsonWith(10, 50, "percentage", 50.0)},
    };

    for (const auto& item : cases) {
        save(item.json);
        auto monitor = h.makeMonitor();
        ASSERT_TRUE(monitor->phone().has_value()) << item.what;
        EXPECT_EQ(monitor->phoneStatus(), kSavedReading) << item.what;
    }
    save(noModel);
    EXPECT_FALSE(h.makeMonitor()->phone()->model().has_value());
    save(nullModel);
    EXPECT_FALSE(h.makeMonitor()->phone()->model().has_value());
}

TEST_F(SavedReadingTest, SixtyOneSecondsAheadIsIgnoredSixtyIsNot) {
    save(savedJson(-61, 50));
    EXPECT_FALSE(h.makeMonitor()->phone().has_value());
    save(savedJson(-60, 50));
    EXPECT_TRUE(h.makeMonitor()->phone().has_value());
}

TEST_F(SavedReadingTest, GoodReadingIsShownAgainAfterARestart) {
    {
        auto monitor = h.makeMonitor();
        monitor->refreshPhone();
        h.phone.enqueue(success(h.now().addingSeconds(-0.123456), 73, "USB"));
        h.finishReads();
        EXPECT_EQ(monitor->phoneStatus(), "Connected by USB \u00b7 unplug to test Wi-Fi");
    }
    h.scheduler->shiftClock(45);
    auto restarted = h.makeMonitor();
    ASSERT_TRUE(restarted->phone().has_value());
    EXPECT_EQ(restarted->phone()->percentage(), 73);
    EXPECT_EQ(restarted->phone()->source(), "USB");
    EXPECT_EQ(restarted->phone()->model(), std::optional<std::string>("iPhone14,2"));
    // Sub-second precision survives the file.
    EXPECT_EQ(restarted->phone()->lastUpdated(), h.now().addingSeconds(-45 - 0.123456));
    EXPECT_EQ(restarted->phoneStatus(), kSavedReading);
}

TEST_F(SavedReadingTest, FirstReadAfterARestartLooksForAnyPhone) {
    save(savedJson(100, 60));
    auto monitor = h.makeMonitor();
    monitor->refreshPhone();
    h.phone.enqueue(failure(PhoneSetupState::notFound, kLocked, false));
    h.finishReads();
    ASSERT_EQ(h.phone.calls().size(), 1u);
    EXPECT_FALSE(h.phone.calls()[0].preferredID.has_value());
    EXPECT_FALSE(h.phone.calls()[0].identity.has_value());
    // The saved reading stays on screen under the failure's message.
    ASSERT_TRUE(monitor->phone().has_value());
    EXPECT_EQ(monitor->phone()->percentage(), 60);
    EXPECT_EQ(monitor->phoneStatus(), kLocked);
    EXPECT_EQ(monitor->phoneSetupState(), PhoneSetupState::notFound);
}

TEST_F(SavedReadingTest, DefaultLocationIsUnderApplicationSupport) {
    auto monitor = std::make_unique<BatteryMonitor>(h.services(), h.toolDirectory(), std::nullopt);
    EXPECT_EQ(monitor->cacheURL(), h.folder.path() / "data" / "Ambrel" / "battery-cache.json");
}

TEST_F(SavedReadingTest, WithoutApplicationSupportTheCacheLivesInTheTemporaryFolder) {
    h.folders->support.reset();
    const auto expected = h.folder.path() / "tmp" / "Ambrel" / "battery-cache.json";
    {
        auto monitor =
            std::make_unique<BatteryMonitor>(h.services(), h.toolDirectory(), std::nullopt);
        EXPECT_EQ(monitor->cacheURL(), expected);
        monitor->refreshPhone();
        h.phone.enqueue(success(h.now(), 31));
        h.finishReads();
    }
    EXPECT_TRUE(std::filesystem::is_regular_file(expected));
    EXPECT_EQ(modeOf(expected), 0600);
    EXPECT_EQ(modeOf(expected.parent_path()), 0700);
    auto restarted =
        std::make_unique<BatteryMonitor>(h.services(), h.toolDirectory(), std::nullopt);
    ASSERT_TRUE(restarted->phone().has_value());
    EXPECT_EQ(restarted->phone()->percentage(), 31);
}

TEST_F(SavedReadingTest, FolderThatCannotBeMadeLeavesTheProgramRunning) {
    // A regular file where a folder would have to be.
    writeText(h.folder.path() / "blocker", "not a folder");
    const auto cache = h.folder.path() / "blocker" / "Ambrel" / "battery-cache.json";
    {
        BatteryMonitor monitor(h.services(), h.toolDirectory(), cache);
        EXPECT_FALSE(monitor.phone().has_value());
        monitor.refreshPhone();
        h.phone.enqueue(success(h.now(), 88, "Wi-Fi"));
        h.finishReads();
        EXPECT_EQ(monitor.phoneSetupState(), PhoneSetupState::ready);
        EXPECT_EQ(monitor.phoneStatus(), "Connected over Wi-Fi \u00b7 checks every 5 min");
        EXPECT_EQ(monitor.phone()->percentage(), 88);
        EXPECT_FALSE(monitor.isRefreshingPhone());
        EXPECT_EQ(monitor.nextPhoneCheck(), h.now().addingSeconds(300));
        h.scheduler->advance(300);
        EXPECT_TRUE(monitor.isRefreshingPhone());
        h.phone.enqueue(success(h.now(), 87, "Wi-Fi"));
        h.finishReads();
        EXPECT_EQ(monitor.phone()->percentage(), 87);
    }
    EXPECT_EQ(readText(h.folder.path() / "blocker"), "not a folder");
    BatteryMonitor restarted(h.services(), h.toolDirectory(), cache);
    EXPECT_FALSE(restarted.phone().has_value());
    EXPECT_EQ(restarted.phoneStatus(), kCheckingForIphone);
}

} // namespace
} // namespace ambrel::testing::phonecycle
