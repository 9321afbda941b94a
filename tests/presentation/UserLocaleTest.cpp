#include "presentation/UserLocale.h"

#include <gtest/gtest.h>

#include "tests/presentation/TestMoments.h"

namespace ambrel {
namespace {

Date unix(double seconds) {
    return Date::fromSecondsSince1970(seconds);
}

TEST(UserLocaleTest, EnglishShortTimeIsHourMinuteAndMarker) {
    const UserLocale locale("en_US", "America/New_York");
    EXPECT_EQ(locale.shortTime(unix(kNovember14At1441Utc)), "9:41\u202fAM");
}

TEST(UserLocaleTest, EnglishMonthDayTimeHasNoYear) {
    const UserLocale locale("en_US", "America/New_York");
    EXPECT_EQ(locale.monthDayTime(unix(kNovember14At1441Utc)), "Nov 14, 9:41\u202fAM");
}

TEST(UserLocaleTest, EnglishFullDateIsGluedAsRunningText) {
    const UserLocale locale("en_US", "America/New_York");
    EXPECT_EQ(locale.mediumDateShortTime(unix(kNovember14At1441Utc)),
              "Nov 14, 2026 at 9:41\u202fAM");
}

TEST(UserLocaleTest, GermanDatesAreLocalized) {
    const UserLocale locale("de_DE", "Europe/Berlin");
    EXPECT_EQ(locale.shortTime(unix(kNovember14At0841Utc)), "09:41");
    EXPECT_EQ(locale.monthDayTime(unix(kNovember14At0841Utc)), "14. Nov., 09:41");
    EXPECT_EQ(locale.mediumDateShortTime(unix(kNovember14At0841Utc)), "14.11.2026 um 09:41");
}

TEST(UserLocaleTest, TimeZoneDecidesTheClockTime) {
    const UserLocale berlin("en_US", "Europe/Berlin");
    EXPECT_EQ(berlin.shortTime(unix(kNovember14At1441Utc)), "3:41\u202fPM");
}

TEST(UserLocaleTest, SameDayFollowsTheTimeZone) {
    // 23:30 and 01:00 UTC the next day are both the evening of November 14 in New York...
    const Date evening = unix(1794699000.0);
    const Date later = unix(1794704400.0);
    EXPECT_TRUE(UserLocale("en_US", "America/New_York").isSameDay(evening, later));
    // ...but two different days in UTC.
    EXPECT_FALSE(UserLocale("en_US", "UTC").isSameDay(evening, later));
}

TEST(UserLocaleTest, ContainmentIgnoresCase) {
    const UserLocale locale("en_US", "UTC");
    EXPECT_TRUE(locale.containsIgnoringCase("Anna\u2019s MACBOOK pro", "MacBook Pro"));
    EXPECT_TRUE(locale.containsIgnoringCase("mac MINI", "Mac mini"));
    EXPECT_FALSE(locale.containsIgnoringCase("Mac", "MacBook"));
    // Nothing is found in an empty search.
    EXPECT_FALSE(locale.containsIgnoringCase("anything", ""));
}

TEST(UserLocaleTest, ContainmentUsesTheLocalesCaseRules) {
    // Turkish lowers the dotted capital I to a plain i, as English does not.
    EXPECT_TRUE(UserLocale("tr_TR", "UTC").containsIgnoringCase("\u0130MAC", "iMac"));
    EXPECT_FALSE(UserLocale("en_US", "UTC").containsIgnoringCase("\u0130MAC", "iMac"));
}

TEST(UserLocaleTest, PosixNamesBecomeIcuNames) {
    EXPECT_EQ(UserLocale::icuLocaleName("de_DE.UTF-8"), "de_DE");
    EXPECT_EQ(UserLocale::icuLocaleName("fr_FR@euro"), "fr_FR");
    EXPECT_EQ(UserLocale::icuLocaleName("en_GB"), "en_GB");
    EXPECT_EQ(UserLocale::icuLocaleName("C"), "en_US_POSIX");
    EXPECT_EQ(UserLocale::icuLocaleName("C.UTF-8"), "en_US_POSIX");
    EXPECT_EQ(UserLocale::icuLocaleName("POSIX"), "en_US_POSIX");
    EXPECT_EQ(UserLocale::icuLocaleName(""), "en_US_POSIX");
}

TEST(UserLocaleTest, DateLocaleFollowsPosixPrecedence) {
    EXPECT_EQ(UserLocale::dateLocaleName("fr_FR", "de_DE", "en_US"), "fr_FR");
    EXPECT_EQ(UserLocale::dateLocaleName(nullptr, "de_DE", "en_US"), "de_DE");
    EXPECT_EQ(UserLocale::dateLocaleName("", "", "en_US"), "en_US");
    EXPECT_EQ(UserLocale::dateLocaleName(nullptr, nullptr, nullptr), "");
}

TEST(UserLocaleTest, LocaleNameIsKept) {
    EXPECT_EQ(UserLocale("de_DE.UTF-8", "UTC").localeName(), "de_DE");
}

} // namespace
} // namespace ambrel
