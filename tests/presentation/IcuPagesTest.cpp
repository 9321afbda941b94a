#include "presentation/IcuPages.h"

#include <fstream>
#include <memory>
#include <sstream>
#include <string>

#include <gtest/gtest.h>
#include <unicode/datefmt.h>
#include <unicode/locid.h>
#include <unicode/timezone.h>
#include <unicode/unistr.h>

#include "presentation/UserLocale.h"
#include "tests/presentation/TestMoments.h"

namespace ambrel {
namespace {

// The resident KiB of this process's mappings of ICU's locale data library.
long residentIcuDataKiB() {
    std::ifstream smaps("/proc/self/smaps");
    std::string line;
    bool inData = false;
    long total = 0;
    while (std::getline(smaps, line)) {
        if (line.find("libicudata") != std::string::npos) {
            inData = true;
        } else if (line.rfind("Rss:", 0) == 0) {
            if (inData) {
                std::istringstream fields(line.substr(4));
                long kib = 0;
                fields >> kib;
                total += kib;
            }
        } else if (!line.empty() && line.find(':') > line.find(' ')) {
            // A new mapping's header line: address range first, no "Key:" field.
            inData = false;
        }
    }
    return total;
}

std::string format(const icu::DateFormat& format, double secondsSince1970) {
    icu::UnicodeString text;
    format.format(secondsSince1970 * 1000.0, text);
    std::string result;
    text.toUTF8String(result);
    return result;
}

TEST(IcuPagesTest, GivesBackTheLocaleDataAndFormatsKeepWorking) {
    std::unique_ptr<icu::TimeZone> zone(icu::TimeZone::createTimeZone("America/New_York"));
    std::unique_ptr<icu::DateFormat> english(icu::DateFormat::createDateTimeInstance(
        icu::DateFormat::kMedium, icu::DateFormat::kShort, icu::Locale("en_US")));
    std::unique_ptr<icu::DateFormat> japanese(icu::DateFormat::createDateTimeInstance(
        icu::DateFormat::kFull, icu::DateFormat::kFull, icu::Locale("ja_JP")));
    ASSERT_TRUE(english && japanese);
    english->setTimeZone(*zone);
    const std::string before = format(*english, kNovember14At1441Utc);
    format(*japanese, kNovember14At1441Utc);
    const long residentBefore = residentIcuDataKiB();
    ASSERT_GT(residentBefore, 256);

    EXPECT_GT(IcuPages::release(), 0U);

    EXPECT_LT(residentIcuDataKiB(), residentBefore / 2);
    // The pages come back from the library file as they are used.
    EXPECT_EQ(format(*english, kNovember14At1441Utc), before);
    EXPECT_EQ(before, "Nov 14, 2026, 9:41\u202fAM");
}

TEST(IcuPagesTest, UserLocaleFormatsTheSameAfterARelease) {
    const UserLocale locale("en_US", "America/New_York");
    const Date date = Date::fromSecondsSince1970(kNovember14At1441Utc);
    EXPECT_EQ(locale.shortTime(date), "9:41\u202fAM");
    EXPECT_EQ(locale.monthDayTime(date), "Nov 14, 9:41\u202fAM");
    IcuPages::release();
    EXPECT_EQ(locale.shortTime(date), "9:41\u202fAM");
    EXPECT_EQ(locale.monthDayTime(date), "Nov 14, 9:41\u202fAM");
    EXPECT_EQ(locale.mediumDateShortTime(date), "Nov 14, 2026 at 9:41\u202fAM");
    EXPECT_TRUE(locale.isSameDay(date, Date::fromSecondsSince1970(kNovember14At1441Utc + 60)));
}

} // namespace
} // namespace ambrel
