#include "presentation/DeviceBatteryGaugeModel.h"

#include <optional>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "tests/presentation/TestMoments.h"

namespace ambrel {
namespace {

struct Reading {
    std::string id = "iphone";
    std::string name = "Work iPhone";
    std::int64_t percentage = 54;
    bool isCharging = false;
    bool isPluggedIn = false;
    Date lastUpdated = kNineFortyOne;
    std::string source = "USB";
    std::optional<std::string> model;

    BatteryDeviceSnapshot snapshot() const {
        return BatteryDeviceSnapshot(id, name, percentage, isCharging, isPluggedIn, lastUpdated,
                                     source, model);
    }
};

Reading macReading() {
    Reading reading;
    reading.id = "mac";
    reading.name = "Anna\u2019s MacBook Pro";
    reading.source = "Mac";
    reading.percentage = 80;
    return reading;
}

// The Mac's reading under another name and, when given, model.
Reading macNamed(const std::string& name, std::optional<std::string> model = std::nullopt) {
    Reading reading = macReading();
    reading.name = name;
    reading.model = std::move(model);
    return reading;
}

class DeviceBatteryGaugeModelTest : public ::testing::Test {
protected:
    UserLocale m_english{"en_US", "America/New_York"};

    DeviceBatteryGaugeModel phone(const std::optional<Reading>& reading, bool isChecking = false,
                                  bool connectionFailed = false, Date now = kNow) const {
        return make(reading, BatteryDeviceKind::phone, isChecking, connectionFailed, now,
                    m_english);
    }
    DeviceBatteryGaugeModel mac(const std::optional<Reading>& reading, Date now = kNow) const {
        return make(reading, BatteryDeviceKind::mac, false, false, now, m_english);
    }
    static DeviceBatteryGaugeModel make(const std::optional<Reading>& reading,
                                        BatteryDeviceKind kind, bool isChecking,
                                        bool connectionFailed, Date now, const UserLocale& locale) {
        std::optional<BatteryDeviceSnapshot> snapshot;
        if (reading) {
            snapshot = reading->snapshot();
        }
        return DeviceBatteryGaugeModel(snapshot, kind, isChecking, connectionFailed, now, locale);
    }
    static Reading phoneAt(std::int64_t percentage, bool isCharging = false,
                           bool isPluggedIn = false) {
        Reading reading;
        reading.percentage = percentage;
        reading.isCharging = isCharging;
        reading.isPluggedIn = isPluggedIn;
        return reading;
    }
};

TEST_F(DeviceBatteryGaugeModelTest, MacWithoutReading) {
    const auto gauge = mac(std::nullopt);
    EXPECT_EQ(gauge.deviceWord(), "This Mac");
    EXPECT_EQ(gauge.title(), "This Mac");
    EXPECT_EQ(gauge.titleHelp(), "This Mac");
    EXPECT_EQ(gauge.numberText(), "\u2014");
    EXPECT_FALSE(gauge.showsPercentSign());
    EXPECT_FALSE(gauge.powerSymbol().has_value());
    EXPECT_FALSE(gauge.showsArc());
    EXPECT_EQ(gauge.deviceSymbol(), GaugeSymbol::laptop);
    EXPECT_EQ(gauge.deviceSymbolColor(), ColorRole::secondary);
    EXPECT_EQ(gauge.numberColor(), ColorRole::secondary);
    EXPECT_EQ(gauge.gaugeColor(), ColorRole::secondary);
    EXPECT_EQ(gauge.statusLine(), "Battery unavailable");
    EXPECT_EQ(gauge.statusColor(), ColorRole::secondary);
    EXPECT_EQ(gauge.updateHelp(), "No Mac battery reading is available.");
    EXPECT_EQ(gauge.accessibilityLabel(), "This Mac, battery unavailable");
    EXPECT_FALSE(gauge.isDoubtful());
}

TEST_F(DeviceBatteryGaugeModelTest, PhoneWithoutReading) {
    const auto idle = phone(std::nullopt);
    EXPECT_EQ(idle.title(), "iPhone");
    EXPECT_EQ(idle.deviceSymbol(), GaugeSymbol::phone);
    EXPECT_EQ(idle.statusLine(), "Connect your iPhone");
    EXPECT_EQ(idle.updateHelp(), "Open connection help below to pair your iPhone.");
    EXPECT_EQ(idle.accessibilityLabel(), "iPhone, battery unavailable");
    // A failed connection with nothing shown is not a doubtful reading.
    EXPECT_EQ(phone(std::nullopt, false, true).statusColor(), ColorRole::secondary);
    EXPECT_EQ(phone(std::nullopt, false, true).gaugeColor(), ColorRole::secondary);
}

TEST_F(DeviceBatteryGaugeModelTest, PhoneWithoutReadingWhileChecking) {
    EXPECT_EQ(phone(std::nullopt, true).statusLine(), "Checking\u2026");
}

TEST_F(DeviceBatteryGaugeModelTest, ReadingWhileCheckingSaysCheckingConnection) {
    EXPECT_EQ(phone(phoneAt(54), true).statusLine(), "Checking connection\u2026");
    // Checking plays no part in the tooltip.
    EXPECT_EQ(phone(phoneAt(54), true).updateHelp(), phone(phoneAt(54)).updateHelp());
}

TEST_F(DeviceBatteryGaugeModelTest, ColourBands) {
    EXPECT_EQ(phone(phoneAt(10)).gaugeColor(), ColorRole::red);
    EXPECT_EQ(phone(phoneAt(11)).gaugeColor(), ColorRole::orange);
    EXPECT_EQ(phone(phoneAt(20)).gaugeColor(), ColorRole::orange);
    EXPECT_EQ(phone(phoneAt(21)).gaugeColor(), ColorRole::green);
    EXPECT_EQ(phone(phoneAt(0)).gaugeColor(), ColorRole::red);
    EXPECT_EQ(phone(phoneAt(100)).gaugeColor(), ColorRole::green);
}

TEST_F(DeviceBatteryGaugeModelTest, ChargingNeverChangesTheColour) {
    EXPECT_EQ(phone(phoneAt(8, true, true)).gaugeColor(), ColorRole::red);
}

TEST_F(DeviceBatteryGaugeModelTest, StaleReadingIsOrangeFadedAndLastKnown) {
    const auto gauge = phone(phoneAt(95), false, false, kNineFortyOne.addingSeconds(601));
    EXPECT_TRUE(gauge.isDoubtful());
    EXPECT_EQ(gauge.gaugeColor(), ColorRole::orange);
    EXPECT_DOUBLE_EQ(gauge.arcOpacity(), 0.75);
    EXPECT_EQ(gauge.statusLine(), "Last known \u00b7 9:41\u202fAM");
    EXPECT_EQ(gauge.statusColor(), ColorRole::orange);
    EXPECT_EQ(gauge.numberColor(), ColorRole::secondary);
    // The device icon keeps the primary colour whenever a reading is shown.
    EXPECT_EQ(gauge.deviceSymbolColor(), ColorRole::primary);
}

TEST_F(DeviceBatteryGaugeModelTest, FreshReadingIsFullOpacityAndUpdated) {
    const auto gauge = phone(phoneAt(95), false, false, kNineFortyOne.addingSeconds(600));
    EXPECT_FALSE(gauge.isDoubtful());
    EXPECT_EQ(gauge.gaugeColor(), ColorRole::green);
    EXPECT_DOUBLE_EQ(gauge.arcOpacity(), 1.0);
    EXPECT_EQ(gauge.statusLine(), "Updated \u00b7 9:41\u202fAM");
    EXPECT_EQ(gauge.statusColor(), ColorRole::secondary);
    EXPECT_EQ(gauge.numberColor(), ColorRole::primary);
}

TEST_F(DeviceBatteryGaugeModelTest, MacReadingGoesStaleAfterThreeMinutes) {
    EXPECT_FALSE(mac(macReading(), kNineFortyOne.addingSeconds(180)).isDoubtful());
    const auto stale = mac(macReading(), kNineFortyOne.addingSeconds(181));
    EXPECT_TRUE(stale.isDoubtful());
    EXPECT_EQ(stale.gaugeColor(), ColorRole::orange);
}

TEST_F(DeviceBatteryGaugeModelTest, OverfullReadingFillsTheRingButShowsItsNumber) {
    const auto gauge = phone(phoneAt(120));
    EXPECT_DOUBLE_EQ(gauge.fillFraction(), 1.0);
    EXPECT_EQ(gauge.numberText(), "120");
    EXPECT_EQ(gauge.accessibilityLabel(), "Work iPhone, 120 percent, on battery");
}

TEST_F(DeviceBatteryGaugeModelTest, NegativeReadingIsAnEmptyRedRing) {
    const auto gauge = phone(phoneAt(-5));
    EXPECT_DOUBLE_EQ(gauge.fillFraction(), 0.0);
    EXPECT_TRUE(gauge.showsArc());
    EXPECT_EQ(gauge.numberText(), "-5");
    EXPECT_EQ(gauge.gaugeColor(), ColorRole::red);
    EXPECT_EQ(gauge.accessibilityLabel(), "Work iPhone, -5 percent, on battery");
}

TEST_F(DeviceBatteryGaugeModelTest, FillFractionIsThePercentage) {
    EXPECT_DOUBLE_EQ(phone(phoneAt(54)).fillFraction(), 0.54);
    EXPECT_DOUBLE_EQ(phone(std::nullopt).fillFraction(), 0.0);
}

TEST_F(DeviceBatteryGaugeModelTest, MacTitleIsTheFamilyInTheName) {
    const auto gauge = mac(macReading());
    EXPECT_EQ(gauge.title(), "MacBook Pro");
    EXPECT_EQ(gauge.titleHelp(), "Anna\u2019s MacBook Pro");
}

TEST_F(DeviceBatteryGaugeModelTest, MacTitleIgnoresLetterCase) {
    Reading reading = macNamed("anna's macbook air");
    EXPECT_EQ(mac(reading).title(), "MacBook Air");
}

TEST_F(DeviceBatteryGaugeModelTest, MacTitleFallsBackToTheModel) {
    Reading reading = macNamed("Studio desk", "Mac mini (M2, 2023)");
    EXPECT_EQ(mac(reading).title(), "Mac mini");
    EXPECT_EQ(mac(reading).titleHelp(), "Studio desk");
}

TEST_F(DeviceBatteryGaugeModelTest, MacTitleIsTheNameWhenNoFamilyMatches) {
    Reading reading = macNamed("ThinkPad X1", "21HM");
    EXPECT_EQ(mac(reading).title(), "ThinkPad X1");
}

TEST_F(DeviceBatteryGaugeModelTest, MacFamiliesAreTriedInOrderAcrossNameAndModel) {
    // The model's "MacBook Pro" is tried before the name's plain "MacBook".
    Reading reading = macNamed("Anna's MacBook", "MacBook Pro 14-inch");
    EXPECT_EQ(mac(reading).title(), "MacBook Pro");
    // "Mac Pro" comes before "iMac" in the list.
    reading.name = "iMac Pro";
    reading.model.reset();
    EXPECT_EQ(mac(reading).title(), "Mac Pro");
    reading.name = "Family iMac";
    EXPECT_EQ(mac(reading).title(), "iMac");
}

TEST_F(DeviceBatteryGaugeModelTest, PhoneTitleIsItsName) {
    Reading reading = phoneAt(54);
    reading.name = "MacBook Pro look-alike";
    EXPECT_EQ(phone(reading).title(), "MacBook Pro look-alike");
}

TEST_F(DeviceBatteryGaugeModelTest, PhoneThatNeedsPairingShowsItsCachedReadingAsDoubtful) {
    const auto gauge = phone(phoneAt(54), false, true);
    EXPECT_EQ(gauge.gaugeColor(), ColorRole::orange);
    EXPECT_DOUBLE_EQ(gauge.arcOpacity(), 0.75);
    EXPECT_EQ(gauge.statusLine(), "Last known \u00b7 9:41\u202fAM");
    EXPECT_EQ(gauge.accessibilityLabel(),
              "Work iPhone, 54 percent, last known reading, on battery");
    EXPECT_EQ(gauge.updateHelp(), "On battery \u00b7 USB \u00b7 Last confirmed Nov 14, 2026 at "
                                  "9:41\u202fAM. The current connection has not been confirmed.");
}

TEST_F(DeviceBatteryGaugeModelTest, UpdateHelpOfAConfirmedReading) {
    Reading reading = phoneAt(54);
    reading.source = "Wi-Fi";
    EXPECT_EQ(phone(reading).updateHelp(),
              "On battery \u00b7 Wi-Fi \u00b7 Last confirmed Nov 14, 2026 at 9:41\u202fAM");
}

TEST_F(DeviceBatteryGaugeModelTest, ChargingAndPluggedInShowTheBolt) {
    const auto gauge = phone(phoneAt(54, true, true));
    EXPECT_EQ(gauge.powerSymbol(), GaugeSymbol::charging);
    EXPECT_EQ(gauge.accessibilityLabel(), "Work iPhone, 54 percent, charging");
    EXPECT_EQ(gauge.updateHelp().rfind("Charging \u00b7 USB \u00b7 ", 0), 0u);
}

TEST_F(DeviceBatteryGaugeModelTest, PluggedInNotChargingShowsThePlug) {
    const auto gauge = phone(phoneAt(100, false, true));
    EXPECT_EQ(gauge.powerSymbol(), GaugeSymbol::pluggedIn);
    EXPECT_EQ(gauge.accessibilityLabel(), "Work iPhone, 100 percent, plugged in");
    EXPECT_EQ(gauge.updateHelp().rfind("Plugged in \u00b7 ", 0), 0u);
}

TEST_F(DeviceBatteryGaugeModelTest, ChargingWithoutPowerShowsNoSymbolButSaysCharging) {
    const auto gauge = phone(phoneAt(54, true));
    EXPECT_FALSE(gauge.powerSymbol().has_value());
    EXPECT_EQ(gauge.accessibilityLabel(), "Work iPhone, 54 percent, charging");
}

TEST_F(DeviceBatteryGaugeModelTest, OnBatteryShowsNoSymbol) {
    EXPECT_FALSE(phone(phoneAt(54)).powerSymbol().has_value());
    EXPECT_TRUE(phone(phoneAt(54)).showsPercentSign());
}

TEST_F(DeviceBatteryGaugeModelTest, TimestampOfAnotherDayHasMonthAndDayButNoYear) {
    const Date nextDay = kNineFortyOne.addingSeconds(24 * 3600.0);
    const auto gauge = phone(phoneAt(54), false, false, nextDay);
    EXPECT_EQ(gauge.shortTimestamp(kNineFortyOne), "Nov 14, 9:41\u202fAM");
    EXPECT_EQ(gauge.statusLine(), "Last known \u00b7 Nov 14, 9:41\u202fAM");
    // A reading from a year before still shows no year.
    const Date yearBefore = kNineFortyOne.addingSeconds(-365 * 24 * 3600.0);
    EXPECT_EQ(gauge.shortTimestamp(yearBefore), "Nov 14, 9:41\u202fAM");
}

TEST_F(DeviceBatteryGaugeModelTest, TimestampTodayIsTheTimeAlone) {
    EXPECT_EQ(phone(phoneAt(54)).shortTimestamp(kNineFortyOne), "9:41\u202fAM");
}

TEST_F(DeviceBatteryGaugeModelTest, GermanTextsAreLocalized) {
    const UserLocale german("de_DE", "Europe/Berlin");
    // 9:41 in Berlin.
    const Date reading = Date::fromSecondsSince1970(1794645660.0);
    Reading fresh = phoneAt(54);
    fresh.lastUpdated = reading;
    const auto today =
        make(fresh, BatteryDeviceKind::phone, false, false, reading.addingSeconds(60), german);
    EXPECT_EQ(today.statusLine(), "Updated \u00b7 09:41");
    EXPECT_EQ(today.updateHelp(),
              "On battery \u00b7 USB \u00b7 Last confirmed 14.11.2026 um 09:41");
    const auto tomorrow = make(fresh, BatteryDeviceKind::phone, false, false,
                               reading.addingSeconds(24 * 3600.0), german);
    EXPECT_EQ(tomorrow.statusLine(), "Last known \u00b7 14. Nov., 09:41");
}

} // namespace
} // namespace ambrel
