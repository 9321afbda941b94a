#include "model/BatteryDeviceSnapshot.h"

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "model/BatteryRefreshPolicy.h"

namespace ambrel {
namespace {

const Date kNow = Date::fromSecondsSinceReferenceDate(785000000.25);

BatteryDeviceSnapshot snapshot(std::string id, Date lastUpdated,
                               std::optional<std::string> model = std::nullopt) {
    return BatteryDeviceSnapshot(std::move(id), "Work iPhone", 54, false, true, lastUpdated, "USB",
                                 std::move(model));
}

TEST(BatteryDeviceSnapshotTest, PhoneReadingIsStaleOnlyAfterSixHundredSeconds) {
    EXPECT_FALSE(snapshot("iphone", kNow.addingSeconds(-599)).isStale(kNow));
    EXPECT_FALSE(snapshot("iphone", kNow.addingSeconds(-600)).isStale(kNow));
    EXPECT_TRUE(snapshot("iphone", kNow.addingSeconds(-601)).isStale(kNow));
}

TEST(BatteryDeviceSnapshotTest, OtherIdsUseTheComputerLimit) {
    EXPECT_FALSE(snapshot("mac", kNow.addingSeconds(-180)).isStale(kNow));
    EXPECT_TRUE(snapshot("mac", kNow.addingSeconds(-181)).isStale(kNow));
    // The rule keys on the exact id: a capital P is not the phone.
    EXPECT_TRUE(snapshot("iPhone", kNow.addingSeconds(-181)).isStale(kNow));
    EXPECT_FALSE(snapshot("iPhone", kNow.addingSeconds(-180)).isStale(kNow));
}

TEST(BatteryDeviceSnapshotTest, FutureReadingIsNeverStale) {
    EXPECT_FALSE(snapshot("iphone", kNow.addingSeconds(100000)).isStale(kNow));
    EXPECT_FALSE(snapshot("mac", kNow.addingSeconds(1)).isStale(kNow));
}

TEST(BatteryDeviceSnapshotTest, PolicyConstants) {
    EXPECT_EQ(BatteryRefreshPolicy::phoneInterval, 300.0);
    EXPECT_EQ(BatteryRefreshPolicy::phoneStaleAfter, 600.0);
    EXPECT_EQ(BatteryRefreshPolicy::macInterval, 60.0);
    EXPECT_EQ(BatteryRefreshPolicy::macStaleAfter, 180.0);
}

TEST(BatteryDeviceSnapshotTest, EncodingWithoutModelWritesSevenKeysAndRoundTrips) {
    const auto original = snapshot("iphone", kNow);
    const auto text = original.encodeJson();
    const auto json = nlohmann::json::parse(text);
    EXPECT_EQ(json.size(), 7u);
    EXPECT_FALSE(json.contains("model"));
    EXPECT_EQ(text.find('\n'), std::string::npos);
    EXPECT_TRUE(json["percentage"].is_number_integer());
    EXPECT_DOUBLE_EQ(json["lastUpdated"].get<double>(), 785000000.25);

    const auto decoded = BatteryDeviceSnapshot::decodeJson(text);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->id(), "iphone");
    EXPECT_EQ(decoded->name(), "Work iPhone");
    EXPECT_EQ(decoded->percentage(), 54);
    EXPECT_FALSE(decoded->isCharging());
    EXPECT_TRUE(decoded->isPluggedIn());
    EXPECT_EQ(decoded->lastUpdated(), kNow);
    EXPECT_EQ(decoded->source(), "USB");
    EXPECT_FALSE(decoded->model());
}

TEST(BatteryDeviceSnapshotTest, ModelIsWrittenWhenPresentAndTheFractionIsKept) {
    const Date precise = Date::fromSecondsSinceReferenceDate(785000000.123456);
    const auto text = snapshot("iphone", precise, "iPhone14,2").encodeJson();
    const auto decoded = BatteryDeviceSnapshot::decodeJson(text);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->model(), "iPhone14,2");
    EXPECT_EQ(decoded->lastUpdated(), precise);
    EXPECT_EQ(nlohmann::json::parse(text).size(), 8u);
}

const char* kValid = R"({"id":"iphone","name":"A","percentage":50,"isCharging":true,)"
                     R"("isPluggedIn":false,"lastUpdated":700000000.5,"source":"Wi-Fi"})";

nlohmann::json validJson() {
    return nlohmann::json::parse(kValid);
}

TEST(BatteryDeviceSnapshotTest, DecodingRequiresEveryKeyButModel) {
    for (const char* key :
         {"id", "name", "percentage", "isCharging", "isPluggedIn", "lastUpdated", "source"}) {
        auto json = validJson();
        json.erase(key);
        EXPECT_FALSE(BatteryDeviceSnapshot::fromJson(json)) << key;
    }
    EXPECT_TRUE(BatteryDeviceSnapshot::decodeJson(kValid));
}

TEST(BatteryDeviceSnapshotTest, DecodingRejectsWrongTypes) {
    const std::vector<std::pair<const char*, nlohmann::json>> wrong = {
        {"id", 3},         {"name", nullptr},       {"percentage", "50"},
        {"isCharging", 1}, {"isPluggedIn", "true"}, {"lastUpdated", "2024"},
        {"source", false}, {"model", 12},           {"model", nlohmann::json::array()},
    };
    for (const auto& [key, value] : wrong) {
        auto json = validJson();
        json[key] = value;
        EXPECT_FALSE(BatteryDeviceSnapshot::fromJson(json)) << key << " = " << value.dump();
    }
}

TEST(BatteryDeviceSnapshotTest, PercentageMustBeIntegral) {
    auto json = validJson();
    json["percentage"] = 50.0;
    ASSERT_TRUE(BatteryDeviceSnapshot::fromJson(json));
    EXPECT_EQ(BatteryDeviceSnapshot::fromJson(json)->percentage(), 50);
    json["percentage"] = 50.5;
    EXPECT_FALSE(BatteryDeviceSnapshot::fromJson(json));
    json["percentage"] = 1e30;
    EXPECT_FALSE(BatteryDeviceSnapshot::fromJson(json));
    json["percentage"] = 18446744073709551615ull;
    EXPECT_FALSE(BatteryDeviceSnapshot::fromJson(json));
    json["percentage"] = -5;
    ASSERT_TRUE(BatteryDeviceSnapshot::fromJson(json));
    EXPECT_EQ(BatteryDeviceSnapshot::fromJson(json)->percentage(), -5);
}

TEST(BatteryDeviceSnapshotTest, NoRangeChecksWhenDecoding) {
    auto json = validJson();
    json["percentage"] = 250;
    const auto decoded = BatteryDeviceSnapshot::fromJson(json);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->percentage(), 250);
}

TEST(BatteryDeviceSnapshotTest, UnknownKeysAreIgnoredAndNullModelIsNoModel) {
    auto json = validJson();
    json["battery"] = 3;
    json["model"] = nullptr;
    const auto decoded = BatteryDeviceSnapshot::fromJson(json);
    ASSERT_TRUE(decoded);
    EXPECT_FALSE(decoded->model());
}

TEST(BatteryDeviceSnapshotTest, NonObjectsAndBrokenTextFail) {
    EXPECT_FALSE(BatteryDeviceSnapshot::decodeJson("[]"));
    EXPECT_FALSE(BatteryDeviceSnapshot::decodeJson("\"iphone\""));
    EXPECT_FALSE(BatteryDeviceSnapshot::decodeJson(""));
    EXPECT_FALSE(BatteryDeviceSnapshot::decodeJson(std::string(kValid).substr(0, 40)));
    EXPECT_FALSE(BatteryDeviceSnapshot::decodeJson("{\"id\":\"iphone\"\xff}"));
}

TEST(BatteryDeviceSnapshotTest, IntegerDatesDecode) {
    auto json = validJson();
    json["lastUpdated"] = 700000000;
    const auto decoded = BatteryDeviceSnapshot::fromJson(json);
    ASSERT_TRUE(decoded);
    EXPECT_EQ(decoded->lastUpdated().secondsSinceReferenceDate(), 700000000.0);
}

TEST(DateTest, ReferenceDateIsTheStartOf2001) {
    EXPECT_EQ(Date::fromSecondsSince1970(978307200.0).secondsSinceReferenceDate(), 0.0);
    EXPECT_EQ(Date::fromSecondsSinceReferenceDate(1.5).secondsSince1970(), 978307201.5);
}

} // namespace
} // namespace ambrel
