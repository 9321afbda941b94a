#include "mac/MacBatteryReader.h"

#include <cmath>
#include <cstdint>
#include <optional>
#include <string>

#include <gtest/gtest.h>

#include "platform/linux/LinuxHostInfo.h"
#include "platform/linux/SysfsPowerSourceProvider.h"
#include "tests/fakes/FakeSystem.h"

namespace ambrel {
namespace {

using testing::FakeHostInfo;
using testing::FakePowerSourceProvider;

const Date kNow = Date::fromSecondsSinceReferenceDate(790000000.0);

PowerSourceDescription battery(PowerSourceValue current, PowerSourceValue max) {
    return {{"Current Capacity", current}, {"Max Capacity", max}};
}

// A battery at `current` of 100 in the power state `state`, with the charging flag when given.
PowerSourceDescription batteryIn(std::int64_t current, const std::string& state,
                                 std::optional<PowerSourceValue> charging = std::nullopt) {
    auto source = battery(current, std::int64_t{100});
    source["Power Source State"] = state;
    if (charging) {
        source["Is Charging"] = *charging;
    }
    return source;
}

class MacBatteryReaderTest : public ::testing::Test {
protected:
    MacBatteryOutcome readWith(PowerSourceList sources) {
        m_power.sources = std::move(sources);
        return MacBatteryReader::read(m_power, m_host, kNow);
    }
    std::int64_t percentOf(PowerSourceValue current, PowerSourceValue max) {
        const auto outcome = readWith({battery(current, max)});
        EXPECT_TRUE(outcome.snapshot);
        return outcome.snapshot ? outcome.snapshot->percentage() : -999;
    }

    FakePowerSourceProvider m_power;
    FakeHostInfo m_host;
};

TEST_F(MacBatteryReaderTest, PercentageRoundsHalfAwayFromZeroAndClamps) {
    EXPECT_EQ(percentOf(std::int64_t{50}, std::int64_t{100}), 50);
    EXPECT_EQ(percentOf(std::int64_t{37}, std::int64_t{75}), 49);
    EXPECT_EQ(percentOf(std::int64_t{1}, std::int64_t{200}), 1);
    EXPECT_EQ(percentOf(199.0, 200.0), 100);
    EXPECT_EQ(percentOf(std::int64_t{110}, std::int64_t{100}), 100);
    EXPECT_EQ(percentOf(std::int64_t{-5}, std::int64_t{100}), 0);
    EXPECT_EQ(percentOf(1e300, 1e-300), 100);
}

TEST_F(MacBatteryReaderTest, PercentageHelper) {
    EXPECT_EQ(MacBatteryReader::percentage(0.5, 100), 1);
    EXPECT_EQ(MacBatteryReader::percentage(99.5, 100), 100);
    EXPECT_EQ(MacBatteryReader::percentage(99.49, 100), 99);
    EXPECT_EQ(MacBatteryReader::percentage(-0.6, 100), 0);
    EXPECT_FALSE(MacBatteryReader::percentage(std::nan(""), 100));
}

TEST_F(MacBatteryReaderTest, SnapshotFields) {
    const auto outcome = readWith({batteryIn(80, "AC Power", true)});
    ASSERT_TRUE(outcome.snapshot);
    const auto& snapshot = *outcome.snapshot;
    EXPECT_EQ(snapshot.id(), "mac");
    EXPECT_EQ(snapshot.source(), "Mac");
    EXPECT_EQ(snapshot.name(), "Anna\u2019s MacBook Pro");
    EXPECT_EQ(snapshot.percentage(), 80);
    EXPECT_TRUE(snapshot.isCharging());
    EXPECT_TRUE(snapshot.isPluggedIn());
    EXPECT_EQ(snapshot.lastUpdated(), kNow);
    EXPECT_EQ(snapshot.model(), "MacBookPro18,3");
    EXPECT_EQ(outcome.status, "Charging");
}

TEST_F(MacBatteryReaderTest, MaxCapacityZeroOrNegativeSkipsTheSource) {
    EXPECT_EQ(readWith({battery(std::int64_t{5}, std::int64_t{0})}).status,
              "No built-in battery found");
    EXPECT_EQ(readWith({battery(std::int64_t{5}, -3.0)}).status, "No built-in battery found");
    EXPECT_FALSE(readWith({battery(std::int64_t{5}, std::int64_t{0})}).snapshot);
}

TEST_F(MacBatteryReaderTest, NonNumbersSkipTheSource) {
    EXPECT_FALSE(readWith({battery(std::string("50"), std::int64_t{100})}).snapshot);
    EXPECT_FALSE(readWith({battery(std::int64_t{50}, true)}).snapshot);
    EXPECT_FALSE(readWith({PowerSourceDescription{{"Max Capacity", std::int64_t{100}}}}).snapshot);
}

TEST_F(MacBatteryReaderTest, ExternalBatteryBeforeTheInternalOneIsSkipped) {
    auto ups = battery(std::int64_t{10}, std::int64_t{100});
    ups["Transport Type"] = std::string("USB");
    auto internal = battery(std::int64_t{70}, std::int64_t{100});
    internal["Transport Type"] = std::string("Internal");
    const auto outcome = readWith({ups, internal});
    ASSERT_TRUE(outcome.snapshot);
    EXPECT_EQ(outcome.snapshot->percentage(), 70);
}

TEST_F(MacBatteryReaderTest, NonTextTransportDoesNotExclude) {
    auto source = battery(std::int64_t{70}, std::int64_t{100});
    source["Transport Type"] = std::int64_t{3};
    EXPECT_TRUE(readWith({source}).snapshot);
}

TEST_F(MacBatteryReaderTest, SourceWithoutTransportAndPresenceIsTaken) {
    const auto outcome = readWith({battery(std::int64_t{42}, std::int64_t{100})});
    ASSERT_TRUE(outcome.snapshot);
    EXPECT_EQ(outcome.snapshot->percentage(), 42);
    EXPECT_EQ(outcome.status, "On battery");
}

TEST_F(MacBatteryReaderTest, NotPresentIsSkippedEvenWithValidCapacities) {
    auto absent = battery(std::int64_t{42}, std::int64_t{100});
    absent["Is Present"] = false;
    EXPECT_FALSE(readWith({absent}).snapshot);
    auto oddPresence = battery(std::int64_t{42}, std::int64_t{100});
    oddPresence["Is Present"] = std::string("no");
    EXPECT_TRUE(readWith({oddPresence}).snapshot);
}

TEST_F(MacBatteryReaderTest, FirstUsableSourceWins) {
    const auto outcome = readWith({std::nullopt, battery(std::int64_t{1}, std::int64_t{0}),
                                   battery(std::int64_t{30}, std::int64_t{100}),
                                   battery(std::int64_t{90}, std::int64_t{100})});
    ASSERT_TRUE(outcome.snapshot);
    EXPECT_EQ(outcome.snapshot->percentage(), 30);
}

TEST_F(MacBatteryReaderTest, ChargingOnBatteryPowerReadsOnBattery) {
    const auto outcome = readWith({batteryIn(60, "Battery Power", true)});
    ASSERT_TRUE(outcome.snapshot);
    EXPECT_EQ(outcome.status, "On battery");
    EXPECT_TRUE(outcome.snapshot->isCharging());
    EXPECT_FALSE(outcome.snapshot->isPluggedIn());
}

TEST_F(MacBatteryReaderTest, AcPowerWithoutChargingFlagIsConnected) {
    const auto outcome = readWith({batteryIn(60, "AC Power")});
    EXPECT_EQ(outcome.status, "Connected to power");
    ASSERT_TRUE(outcome.snapshot);
    EXPECT_FALSE(outcome.snapshot->isCharging());
    EXPECT_TRUE(outcome.snapshot->isPluggedIn());
}

TEST_F(MacBatteryReaderTest, StateComparisonIsExact) {
    const auto outcome = readWith({batteryIn(60, "ac power", std::int64_t{1})});
    EXPECT_EQ(outcome.status, "On battery");
    EXPECT_FALSE(outcome.snapshot->isCharging());
}

TEST_F(MacBatteryReaderTest, HostNameUnavailableGivesMacBook) {
    m_host.name.reset();
    const auto outcome = readWith({battery(std::int64_t{60}, std::int64_t{100})});
    ASSERT_TRUE(outcome.snapshot);
    EXPECT_EQ(outcome.snapshot->name(), "MacBook");
}

TEST_F(MacBatteryReaderTest, ModelUnavailableOrTooShortIsAbsent) {
    for (const std::optional<std::string>& raw :
         {std::optional<std::string>(), std::optional<std::string>(""),
          std::optional<std::string>(std::string("\0", 1)), std::optional<std::string>("M")}) {
        m_host.rawModel = raw;
        const auto outcome = readWith({battery(std::int64_t{60}, std::int64_t{100})});
        ASSERT_TRUE(outcome.snapshot);
        EXPECT_FALSE(outcome.snapshot->model());
    }
    m_host.rawModel = std::string("Mac14,2\0garbage", 15);
    EXPECT_EQ(MacBatteryReader::modelIdentifier(m_host), "Mac14,2");
}

TEST_F(MacBatteryReaderTest, NoSnapshotOrEmptyList) {
    m_power.sources.reset();
    EXPECT_EQ(MacBatteryReader::read(m_power, m_host, kNow).status, "Mac battery is unavailable");
    EXPECT_EQ(readWith({}).status, "No built-in battery found");
}

TEST_F(MacBatteryReaderTest, FixtureTreesThroughTheLinuxProvider) {
    const auto trees = std::filesystem::path(TOVRIN_FIXTURES_DIR) / "power_supply";
    const struct {
        const char* tree;
        std::optional<std::int64_t> percent;
        const char* status;
    } cases[] = {
        {"laptop", 49, "Charging"},
        {"charge-only", 50, "On battery"},
        {"capacity-only", 100, "Connected to power"},
        {"peripheral-first", 50, "Connected to power"},
        {"not-present", std::nullopt, "No built-in battery found"},
        {"usb-c-online", 64, "Connected to power"},
        {"garbage", std::nullopt, "No built-in battery found"},
        {"missing-values", std::nullopt, "No built-in battery found"},
        {"desktop", std::nullopt, "No built-in battery found"},
        {"no-such-tree", std::nullopt, "Mac battery is unavailable"},
    };
    for (const auto& expected : cases) {
        SysfsPowerSourceProvider provider(trees / expected.tree);
        const auto outcome = MacBatteryReader::read(provider, m_host, kNow);
        EXPECT_EQ(outcome.status, expected.status) << expected.tree;
        EXPECT_EQ(outcome.snapshot.has_value(), expected.percent.has_value()) << expected.tree;
        if (outcome.snapshot && expected.percent) {
            EXPECT_EQ(outcome.snapshot->percentage(), *expected.percent) << expected.tree;
        }
    }
}

TEST_F(MacBatteryReaderTest, HealthAndTimeLeftFromTheSource) {
    auto source = batteryIn(40, "Battery Power", false);
    source["Max Capacity"] = std::int64_t{87};
    source["Design Capacity"] = std::int64_t{100};
    source["Cycle Count"] = std::int64_t{412};
    source["Time to Empty"] = std::int64_t{95};
    source["Time to Full Charge"] = std::int64_t{30};
    const auto outcome = readWith({source});
    ASSERT_TRUE(outcome.snapshot);
    EXPECT_EQ(outcome.health.maximumCapacity, 87);
    EXPECT_EQ(outcome.health.cycleCount, 412);
    EXPECT_FALSE(outcome.health.temperature);
    // On battery only the time to empty means anything.
    EXPECT_EQ(outcome.timeLeft, (BatteryTimeLeft{std::nullopt, 95}));

    source["Power Source State"] = std::string("AC Power");
    source["Is Charging"] = true;
    EXPECT_EQ(readWith({source}).timeLeft, (BatteryTimeLeft{30, std::nullopt}));
    // Plugged in and not charging: neither.
    source["Is Charging"] = false;
    EXPECT_EQ(readWith({source}).timeLeft, BatteryTimeLeft{});
}

TEST_F(MacBatteryReaderTest, HealthLeavesOutWhatIsUnknownOrImpossible) {
    auto source = batteryIn(40, "Battery Power", false);
    EXPECT_TRUE(readWith({source}).health.isEmpty());
    source["Design Capacity"] = std::string("lots");
    source["Cycle Count"] = std::int64_t{0};
    source["Time to Empty"] = std::int64_t{60 * 24 * 5};
    auto outcome = readWith({source});
    EXPECT_TRUE(outcome.health.isEmpty());
    EXPECT_EQ(outcome.timeLeft, BatteryTimeLeft{});
    // A design a thousand times too small is a wrong unit, not a 10,000 % battery.
    source["Design Capacity"] = std::int64_t{1};
    EXPECT_FALSE(readWith({source}).health.maximumCapacity);
    EXPECT_EQ(MacBatteryReader::maximumCapacity(86.6, 100.0), 87);
    EXPECT_EQ(MacBatteryReader::maximumCapacity(104.0, 100.0), 104);
    EXPECT_EQ(MacBatteryReader::maximumCapacity(0.0, 100.0), std::nullopt);
    EXPECT_EQ(MacBatteryReader::maximumCapacity(50.0, 0.0), std::nullopt);
    EXPECT_EQ(MacBatteryReader::maximumCapacity(151.0, 100.0), std::nullopt);
    EXPECT_EQ(MacBatteryReader::maximumCapacity(NAN, 100.0), std::nullopt);
}

TEST_F(MacBatteryReaderTest, FixtureTreesGiveTheirHealth) {
    const auto trees = std::filesystem::path(TOVRIN_FIXTURES_DIR) / "power_supply";
    SysfsPowerSourceProvider worn(trees / "worn-laptop");
    auto outcome = MacBatteryReader::read(worn, m_host, kNow);
    EXPECT_EQ(outcome.health, (BatteryHealth{87, 412, std::nullopt}));
    EXPECT_EQ(outcome.timeLeft, (BatteryTimeLeft{std::nullopt, 150}));
    SysfsPowerSourceProvider charging(trees / "worn-charge");
    outcome = MacBatteryReader::read(charging, m_host, kNow);
    EXPECT_EQ(outcome.health, (BatteryHealth{94, std::nullopt, std::nullopt}));
    EXPECT_EQ(outcome.timeLeft, (BatteryTimeLeft{80, std::nullopt}));
    SysfsPowerSourceProvider plain(trees / "laptop");
    EXPECT_TRUE(MacBatteryReader::read(plain, m_host, kNow).health.isEmpty());
}

} // namespace
} // namespace ambrel
