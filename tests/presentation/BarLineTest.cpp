#include "presentation/BarLine.h"

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/presentation/TestMoments.h"

namespace ambrel {
namespace {

BatteryDeviceSnapshot mac(std::int64_t percentage, bool charging = false, bool plugged = false,
                          Date when = kNineFortyOne) {
    return BatteryDeviceSnapshot("mac", "Anna\u2019s MacBook Pro", percentage, charging, plugged,
                                 when, "Mac", std::string("MacBookPro18,3"));
}

BatteryDeviceSnapshot phone(std::int64_t percentage, bool charging = false, bool plugged = false,
                            Date when = kNineFortyOne, std::string name = "Work iPhone") {
    return BatteryDeviceSnapshot("iphone", std::move(name), percentage, charging, plugged, when,
                                 "Wi-Fi", std::string("iPhone15,2"));
}

BarState state(std::optional<BatteryDeviceSnapshot> computer,
               std::optional<BatteryDeviceSnapshot> iphone,
               PhoneSetupState setup = PhoneSetupState::ready) {
    BarState result;
    result.mac = std::move(computer);
    result.phone = std::move(iphone);
    result.phoneSetupState = setup;
    return result;
}

class BarLineTest : public ::testing::Test {
protected:
    UserLocale m_english{"en_US", "America/New_York"};

    nlohmann::json waybar(const BarState& bar, Date now = kNow) const {
        const auto output = BarLine::format(BarFormat::waybar, bar, now, m_english);
        EXPECT_EQ(output.exitCode, 0);
        EXPECT_EQ(output.text.find('\n'), output.text.size() - 1) << "one line";
        return nlohmann::json::parse(output.text);
    }
    static std::vector<std::string> classes(const nlohmann::json& json) {
        return json.at("class").get<std::vector<std::string>>();
    }
};

TEST_F(BarLineTest, FormatNamesAreExact) {
    EXPECT_EQ(barFormatFromName("waybar"), BarFormat::waybar);
    EXPECT_EQ(barFormatFromName("polybar"), BarFormat::polybar);
    EXPECT_EQ(barFormatFromName("i3blocks"), BarFormat::i3blocks);
    EXPECT_FALSE(barFormatFromName("Waybar"));
    EXPECT_FALSE(barFormatFromName(""));
}

TEST_F(BarLineTest, NoReadingAtAll) {
    const auto json = waybar(state(std::nullopt, std::nullopt, PhoneSetupState::checking));
    EXPECT_EQ(json.at("text"), "Computer \u2014 \u00b7 iPhone \u2014");
    EXPECT_EQ(json.at("tooltip"),
              "This Mac \u00b7 Battery unavailable\niPhone \u00b7 Connect your iPhone");
    EXPECT_EQ(classes(json), (std::vector<std::string>{"computer-unavailable", "phone-unavailable",
                                                       "unavailable"}));
    EXPECT_EQ(json.at("percentage"), 0);
    EXPECT_EQ(json.at("alt"), "unavailable");
    EXPECT_EQ(json.size(), 5U);
}

TEST_F(BarLineTest, PhoneBeingCheckedWithoutReadingShowsEllipsis) {
    auto bar = state(mac(80), std::nullopt, PhoneSetupState::checking);
    bar.isRefreshingPhone = true;
    EXPECT_EQ(BarLine::text(bar, kNow, m_english), "Computer 80% \u00b7 iPhone \u2026");
    EXPECT_EQ(BarLine::tooltip(bar, kNow, m_english),
              "MacBook Pro 80% \u00b7 On battery \u00b7 Updated \u00b7 9:41\u202fAM\n"
              "iPhone \u00b7 Checking\u2026");
}

TEST_F(BarLineTest, BothFreshAndDischarging) {
    const auto json = waybar(state(mac(80), phone(54)));
    EXPECT_EQ(json.at("text"), "Computer 80% \u00b7 iPhone 54%");
    EXPECT_EQ(classes(json),
              (std::vector<std::string>{"computer-discharging", "phone-discharging"}));
    EXPECT_EQ(json.at("percentage"), 54);
    EXPECT_EQ(json.at("alt"), "normal");
}

TEST_F(BarLineTest, StalePhoneIsMarkedAndOrange) {
    // 601 s old: past the phone's 600 s limit.
    const auto old = kNow.addingSeconds(-601);
    const auto bar = state(mac(80), phone(54, false, false, old), PhoneSetupState::ready);
    const auto json = waybar(bar);
    EXPECT_EQ(json.at("text"), "Computer 80% \u00b7 iPhone ~54%");
    EXPECT_EQ(classes(json), (std::vector<std::string>{"computer-discharging", "phone-discharging",
                                                       "phone-stale", "stale"}));
    EXPECT_EQ(json.at("alt"), "stale");
    EXPECT_NE(json.at("tooltip").get<std::string>().find("Work iPhone 54% \u00b7 On battery "
                                                         "\u00b7 Last known \u00b7 "),
              std::string::npos);
    const auto blocks = BarLine::format(BarFormat::i3blocks, bar, kNow, m_english);
    EXPECT_EQ(blocks.text, "Computer 80% \u00b7 iPhone ~54%\n80% \u00b7 ~54%\n#FF9500\n");
    EXPECT_EQ(blocks.exitCode, 0);

    // 600 s old is not stale yet.
    EXPECT_EQ(BarLine::text(state(mac(80), phone(54, false, false, kNow.addingSeconds(-600))), kNow,
                            m_english),
              "Computer 80% \u00b7 iPhone 54%");
}

TEST_F(BarLineTest, UnreachedPhoneIsDoubtfulEvenWhenRecent) {
    const auto json = waybar(state(mac(80), phone(54), PhoneSetupState::notFound));
    EXPECT_EQ(json.at("text"), "Computer 80% \u00b7 iPhone ~54%");
    EXPECT_EQ(json.at("alt"), "stale");
}

TEST_F(BarLineTest, ChargingAndPlugged) {
    const auto json = waybar(state(mac(100, false, true), phone(64, true, true)));
    EXPECT_EQ(json.at("text"), "Computer 100% \u00b7 iPhone 64%\u26a1");
    EXPECT_EQ(classes(json),
              (std::vector<std::string>{"computer-plugged", "phone-charging", "plugged"}));
    EXPECT_EQ(json.at("alt"), "charging");
    EXPECT_EQ(json.at("tooltip"),
              "MacBook Pro 100% \u00b7 Plugged in \u00b7 Updated \u00b7 9:41\u202fAM\n"
              "Work iPhone 64% \u00b7 Charging \u00b7 Updated \u00b7 9:41\u202fAM");
    // Charging without external power gets no bolt, as on the card.
    EXPECT_EQ(BarLine::text(state(mac(50, true, false), std::nullopt), kNow, m_english),
              "Computer 50% \u00b7 iPhone \u2014");
}

TEST_F(BarLineTest, BothFullAndPlugged) {
    const auto json = waybar(state(mac(100, false, true), phone(100, false, true)));
    EXPECT_EQ(classes(json),
              (std::vector<std::string>{"computer-plugged", "phone-plugged", "full", "plugged"}));
    EXPECT_EQ(json.at("percentage"), 100);
}

TEST_F(BarLineTest, LowLevelsFollowTheLowerOfTheTwo) {
    EXPECT_EQ(waybar(state(mac(21), phone(90))).at("alt"), "normal");
    const auto warning = waybar(state(mac(20), phone(90)));
    EXPECT_EQ(warning.at("alt"), "warning");
    EXPECT_EQ(warning.at("percentage"), 20);
    EXPECT_EQ(classes(warning).back(), "warning");
    EXPECT_EQ(waybar(state(mac(90), phone(11))).at("alt"), "warning");
    const auto critical = waybar(state(mac(90), phone(10)));
    EXPECT_EQ(critical.at("alt"), "critical");
    EXPECT_EQ(classes(critical).back(), "critical");
    // A charging battery at 8 % is still critical, as the card draws it red.
    EXPECT_EQ(waybar(state(mac(8, true, true), phone(90))).at("alt"), "critical");
}

TEST_F(BarLineTest, BothLow) {
    const auto bar = state(mac(18), phone(7));
    const auto json = waybar(bar);
    EXPECT_EQ(json.at("text"), "Computer 18% \u00b7 iPhone 7%");
    EXPECT_EQ(classes(json),
              (std::vector<std::string>{"computer-discharging", "phone-discharging", "critical"}));
    EXPECT_EQ(json.at("percentage"), 7);

    const auto blocks = BarLine::format(BarFormat::i3blocks, bar, kNow, m_english);
    EXPECT_EQ(blocks.text, "Computer 18% \u00b7 iPhone 7%\n18% \u00b7 7%\n#FF3B30\n");
    EXPECT_EQ(blocks.exitCode, 33);

    const auto poly = BarLine::format(BarFormat::polybar, bar, kNow, m_english);
    EXPECT_EQ(poly.text, "%{F#FF3B30}Computer 18% \u00b7 iPhone 7%%{F-}\n");
    EXPECT_EQ(poly.exitCode, 0);

    const auto warningBlocks =
        BarLine::format(BarFormat::i3blocks, state(mac(18), phone(70)), kNow, m_english);
    EXPECT_EQ(warningBlocks.text, "Computer 18% \u00b7 iPhone 70%\n18% \u00b7 70%\n#FF9500\n");
    EXPECT_EQ(warningBlocks.exitCode, 0);
    EXPECT_EQ(BarLine::format(BarFormat::i3blocks, state(mac(50), phone(70)), kNow, m_english).text,
              "Computer 50% \u00b7 iPhone 70%\n50% \u00b7 70%\n\n");
}

TEST_F(BarLineTest, PolybarTakesTheCardsColoursWhenLowOrMarked) {
    EXPECT_EQ(BarLine::format(BarFormat::polybar, state(mac(50), phone(70)), kNow, m_english).text,
              "Computer 50% \u00b7 iPhone 70%\n");
    EXPECT_EQ(BarLine::format(BarFormat::polybar, state(mac(20), phone(70)), kNow, m_english).text,
              "%{F#FF9500}Computer 20% \u00b7 iPhone 70%%{F-}\n");
    EXPECT_EQ(BarLine::format(BarFormat::polybar, state(mac(50), phone(10)), kNow, m_english).text,
              "%{F#FF3B30}Computer 50% \u00b7 iPhone 10%%{F-}\n");
    // With nothing to show there is nothing to colour.
    EXPECT_EQ(
        BarLine::format(BarFormat::polybar, state(std::nullopt, std::nullopt), kNow, m_english)
            .text,
        "Computer \u2014 \u00b7 iPhone \u2014\n");
}

TEST_F(BarLineTest, FollowingI3blocksGetsOneJsonObjectPerLineWithItsColour) {
    const auto line =
        BarLine::followLine(BarFormat::i3blocks, state(mac(18), phone(7)), kNow, m_english);
    ASSERT_TRUE(line.ends_with("\n"));
    EXPECT_EQ(line.find('\n'), line.size() - 1);
    const auto critical = nlohmann::json::parse(line);
    EXPECT_EQ(critical.at("full_text"), "Computer 18% \u00b7 iPhone 7%");
    EXPECT_EQ(critical.at("short_text"), "18% \u00b7 7%");
    EXPECT_EQ(critical.at("color"), "#FF3B30");
    EXPECT_EQ(critical.at("urgent"), true);

    const auto warning = nlohmann::json::parse(
        BarLine::followLine(BarFormat::i3blocks, state(mac(18), phone(70)), kNow, m_english));
    EXPECT_EQ(warning.at("color"), "#FF9500");
    EXPECT_EQ(warning.at("urgent"), false);

    const auto fine = nlohmann::json::parse(
        BarLine::followLine(BarFormat::i3blocks, state(mac(50), phone(70)), kNow, m_english));
    EXPECT_FALSE(fine.contains("color"));
    EXPECT_EQ(fine.at("urgent"), false);

    // The other bars follow with the very lines they get one at a time.
    for (const auto format : {BarFormat::waybar, BarFormat::polybar}) {
        EXPECT_EQ(BarLine::followLine(format, state(mac(18), phone(7)), kNow, m_english),
                  BarLine::format(format, state(mac(18), phone(7)), kNow, m_english).text);
    }
}

TEST_F(BarLineTest, PercentageIsClampedForWaybar) {
    EXPECT_EQ(waybar(state(mac(-5), std::nullopt)).at("percentage"), 0);
    EXPECT_EQ(waybar(state(mac(120), std::nullopt)).at("percentage"), 100);
}

TEST_F(BarLineTest, MarkupInNamesIsEscapedForWaybar) {
    const auto bar =
        state(mac(80), phone(54, false, false, kNineFortyOne, "Tom & <Jerry>'s \"X\""));
    const auto json = waybar(bar);
    const auto tooltip = json.at("tooltip").get<std::string>();
    EXPECT_EQ(tooltip.substr(tooltip.find('\n') + 1, 48),
              "Tom &amp; &lt;Jerry&gt;&apos;s &quot;X&quot; 54%");
    EXPECT_EQ(BarLine::pangoEscaped("a&b<c>d'e\"f"), "a&amp;b&lt;c&gt;d&apos;e&quot;f");
    EXPECT_EQ(BarLine::pangoEscaped("Computer 80% \u00b7 iPhone"), "Computer 80% \u00b7 iPhone");
}

TEST_F(BarLineTest, NextAgeChangeIsTheFirstReadingToTurnStale) {
    const auto bar = state(mac(80, false, false, kNineFortyOne),
                           phone(54, false, false, kNineFortyOne.addingSeconds(-500)));
    // The computer turns stale 180 s after its reading, the phone 600 s after its own.
    EXPECT_EQ(BarLine::nextAgeChange(bar, kNow), kNineFortyOne.addingSeconds(100));
    EXPECT_EQ(BarLine::nextAgeChange(bar, kNineFortyOne.addingSeconds(150)),
              kNineFortyOne.addingSeconds(180));
    EXPECT_EQ(BarLine::nextAgeChange(bar, kNineFortyOne.addingSeconds(181)), std::nullopt);
    EXPECT_EQ(BarLine::nextAgeChange(state(std::nullopt, std::nullopt), kNow), std::nullopt);
}

} // namespace
} // namespace ambrel
