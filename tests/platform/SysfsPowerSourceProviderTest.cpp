#include "platform/linux/SysfsPowerSourceProvider.h"

#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <variant>

#include <gtest/gtest.h>

#include "platform/linux/PowerSupplyParser.h"

namespace ambrel {
namespace {

const std::filesystem::path kTrees = std::filesystem::path(TOVRIN_FIXTURES_DIR) / "power_supply";

PowerSourceList sourcesOf(const char* tree) {
    SysfsPowerSourceProvider provider(kTrees / tree);
    auto sources = provider.copyPowerSources();
    EXPECT_TRUE(sources.has_value()) << tree;
    return sources.value_or(PowerSourceList{});
}

template <typename T>
std::optional<T> valueOf(const PowerSourceDescription& description, const char* key) {
    const auto found = description.find(key);
    if (found == description.end() || !std::holds_alternative<T>(found->second)) {
        return std::nullopt;
    }
    return std::get<T>(found->second);
}

// `battery` has none of `keys`.
void expectWithout(const PowerSourceDescription& battery, std::initializer_list<const char*> keys) {
    for (const char* key : keys) {
        EXPECT_FALSE(battery.contains(key)) << key;
    }
}

// The capacities, power state and charging `battery` reports.
void expectReading(const PowerSourceDescription& battery, std::int64_t current, std::int64_t max,
                   const std::string& state, bool charging) {
    EXPECT_EQ(valueOf<std::int64_t>(battery, "Current Capacity"), current);
    EXPECT_EQ(valueOf<std::int64_t>(battery, "Max Capacity"), max);
    EXPECT_EQ(valueOf<std::string>(battery, "Power Source State"), state);
    EXPECT_EQ(valueOf<bool>(battery, "Is Charging"), charging);
}

TEST(SysfsPowerSourceProviderTest, LaptopPrefersEnergyAndSeesMains) {
    const auto sources = sourcesOf("laptop");
    ASSERT_EQ(sources.size(), 1u);
    ASSERT_TRUE(sources[0]);
    const auto& battery = *sources[0];
    expectReading(battery, 37000000, 75000000, "AC Power", true);
    EXPECT_EQ(valueOf<bool>(battery, "Is Present"), true);
    EXPECT_EQ(valueOf<std::string>(battery, "Transport Type"), "Internal");
}

TEST(SysfsPowerSourceProviderTest, ChargeCountersWhenThereIsNoEnergy) {
    const auto sources = sourcesOf("charge-only");
    ASSERT_EQ(sources.size(), 1u);
    const auto& battery = *sources[0];
    expectReading(battery, 1000, 2000, "Battery Power", false);
}

TEST(SysfsPowerSourceProviderTest, CapacityPercentAsTheLastResort) {
    const auto sources = sourcesOf("capacity-only");
    ASSERT_EQ(sources.size(), 1u);
    const auto& battery = *sources[0];
    // A full battery is on external power even though the USB supply reads offline.
    expectReading(battery, 100, 100, "AC Power", false);
}

TEST(SysfsPowerSourceProviderTest, EntriesComeInByteOrderWithTheirScope) {
    const auto sources = sourcesOf("peripheral-first");
    ASSERT_EQ(sources.size(), 2u);
    EXPECT_EQ(valueOf<std::string>(*sources[0], "Transport Type"), "Device");
    EXPECT_EQ(valueOf<std::string>(*sources[1], "Transport Type"), "Internal");
    EXPECT_EQ(valueOf<std::string>(*sources[1], "Power Source State"), "AC Power");
}

TEST(SysfsPowerSourceProviderTest, PresentZeroIsReported) {
    const auto sources = sourcesOf("not-present");
    ASSERT_EQ(sources.size(), 1u);
    EXPECT_EQ(valueOf<bool>(*sources[0], "Is Present"), false);
}

TEST(SysfsPowerSourceProviderTest, OnlineUsbSupplyMeansExternalPower) {
    const auto sources = sourcesOf("usb-c-online");
    ASSERT_EQ(sources.size(), 1u);
    EXPECT_EQ(valueOf<std::string>(*sources[0], "Power Source State"), "AC Power");
    EXPECT_EQ(valueOf<bool>(*sources[0], "Is Charging"), false);
}

TEST(SysfsPowerSourceProviderTest, GarbageValuesLeaveTheirKeysOut) {
    const auto sources = sourcesOf("garbage");
    ASSERT_EQ(sources.size(), 2u);
    const auto& first = *sources[0];
    expectWithout(first, {"Current Capacity", "Max Capacity", "Is Present"});
    EXPECT_EQ(valueOf<std::string>(first, "Power Source State"), "Battery Power");
    EXPECT_EQ(valueOf<std::int64_t>(*sources[1], "Max Capacity"), 0);
}

TEST(SysfsPowerSourceProviderTest, MissingValuesLeaveOnlyWhatIsKnown) {
    const auto sources = sourcesOf("missing-values");
    ASSERT_EQ(sources.size(), 1u);
    const auto& battery = *sources[0];
    expectWithout(battery, {"Current Capacity", "Is Charging"});
    EXPECT_EQ(valueOf<std::string>(battery, "Transport Type"), "Internal");
}

TEST(SysfsPowerSourceProviderTest, EmptyFolderGivesAnEmptyList) {
    const auto folder = std::filesystem::path(::testing::TempDir()) / "empty-power-supply";
    std::filesystem::create_directories(folder);
    SysfsPowerSourceProvider provider(folder);
    const auto sources = provider.copyPowerSources();
    ASSERT_TRUE(sources);
    EXPECT_TRUE(sources->empty());
}

TEST(SysfsPowerSourceProviderTest, MissingFolderGivesNothing) {
    SysfsPowerSourceProvider provider(kTrees / "no-such-tree");
    EXPECT_FALSE(provider.copyPowerSources());
}

TEST(SysfsPowerSourceProviderTest, WornBatteryGivesItsDesignCyclesAndTimeToEmpty) {
    const auto sources = sourcesOf("worn-laptop");
    ASSERT_EQ(sources.size(), 1u);
    const auto& battery = *sources[0];
    expectReading(battery, 20000000, 43500000, "Battery Power", false);
    EXPECT_EQ(valueOf<std::int64_t>(battery, "Design Capacity"), 50000000);
    EXPECT_EQ(valueOf<std::int64_t>(battery, "Cycle Count"), 412);
    // 20 Wh left at 8 W.
    EXPECT_EQ(valueOf<std::int64_t>(battery, "Time to Empty"), 150);
    expectWithout(battery, {"Time to Full Charge"});
}

TEST(SysfsPowerSourceProviderTest, ChargeCountersGiveTheirDesignAndASignedCurrentCounts) {
    const auto sources = sourcesOf("worn-charge");
    ASSERT_EQ(sources.size(), 1u);
    const auto& battery = *sources[0];
    expectReading(battery, 1000000, 3000000, "AC Power", true);
    EXPECT_EQ(valueOf<std::int64_t>(battery, "Design Capacity"), 3200000);
    // A cycle count of zero is a driver without a counter.
    // 2 Ah still to go at 1.5 A, reported negative by the driver.
    EXPECT_EQ(valueOf<std::int64_t>(battery, "Time to Full Charge"), 80);
    expectWithout(battery, {"Cycle Count", "Time to Empty"});
}

TEST(SysfsPowerSourceProviderTest, TheKernelsOwnEstimateComesFirstAndADesignOfZeroIsNone) {
    const auto sources = sourcesOf("kernel-estimate");
    ASSERT_EQ(sources.size(), 1u);
    const auto& battery = *sources[0];
    EXPECT_EQ(valueOf<std::int64_t>(battery, "Time to Empty"), 90);
    expectWithout(battery, {"Design Capacity", "Cycle Count"});
}

TEST(SysfsPowerSourceProviderTest, NoHealthWithoutAFullChargeToCompareOrWithGarbage) {
    const auto sources = sourcesOf("odd-health");
    ASSERT_EQ(sources.size(), 1u);
    const auto& battery = *sources[0];
    expectReading(battery, 70, 100, "Battery Power", false);
    // The design capacity is in µWh and the percentage is not: they do not go together. A rate
    // of zero gives no time.
    expectWithout(battery, {"Design Capacity", "Cycle Count", "Time to Empty"});
}

TEST(PowerSupplyParserTest, MainsOnlyDesktopHasNoSources) {
    const std::vector<PowerSupplyEntry> supplies = {
        {"AC", {{"type", "Mains\n"}, {"online", "1\n"}}},
    };
    EXPECT_TRUE(powerSourcesFromSupplies(supplies).empty());
}

TEST(PowerSupplyParserTest, NumbersMustBeWholeIntegers) {
    const std::vector<PowerSupplyEntry> supplies = {
        {"BAT0",
         {{"type", "Battery\n"},
          {"energy_now", "12x\n"},
          {"energy_full", "100\n"},
          {"charge_now", "99999999999999999999999\n"},
          {"charge_full", "5\n"},
          {"capacity", " 42 \n"}}},
    };
    const auto sources = powerSourcesFromSupplies(supplies);
    ASSERT_EQ(sources.size(), 1u);
    EXPECT_EQ(valueOf<std::int64_t>(*sources[0], "Current Capacity"), 42);
    EXPECT_EQ(valueOf<std::int64_t>(*sources[0], "Max Capacity"), 100);
}

TEST(PowerSupplyParserTest, WirelessChargerCountsAsExternalPower) {
    const std::vector<PowerSupplyEntry> supplies = {
        {"BAT0", {{"type", "Battery\n"}, {"status", "Discharging\n"}, {"capacity", "50\n"}}},
        {"wireless", {{"type", "Wireless\n"}, {"online", "1\n"}}},
    };
    const auto sources = powerSourcesFromSupplies(supplies);
    ASSERT_EQ(sources.size(), 1u);
    EXPECT_EQ(valueOf<std::string>(*sources[0], "Power Source State"), "AC Power");
}

} // namespace
} // namespace ambrel
