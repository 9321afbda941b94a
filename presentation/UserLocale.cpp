#include "presentation/UserLocale.h"

#include <cstdlib>
#include <utility>

#include <unicode/calendar.h>
#include <unicode/dtptngen.h>
#include <unicode/locid.h>
#include <unicode/smpdtfmt.h>
#include <unicode/timezone.h>
#include <unicode/unistr.h>
#include <unicode/ures.h>

#include "presentation/IcuPages.h"

namespace ambrel {

namespace {

std::string toUtf8(const icu::UnicodeString& text) {
    std::string result;
    text.toUTF8String(result);
    return result;
}

UDate toUDate(Date date) {
    return date.secondsSince1970() * 1000.0;
}

// The pattern of a ready-made ICU date format, or empty when ICU gave some other kind.
icu::UnicodeString patternOf(const icu::DateFormat* format) {
    icu::UnicodeString pattern;
    if (const auto* simple = dynamic_cast<const icu::SimpleDateFormat*>(format)) {
        simple->toPattern(pattern);
    }
    return pattern;
}

std::unique_ptr<icu::SimpleDateFormat> makeFormat(const icu::UnicodeString& pattern,
                                                  const icu::Locale& locale,
                                                  const icu::TimeZone& zone) {
    UErrorCode status = U_ZERO_ERROR;
    auto format = std::make_unique<icu::SimpleDateFormat>(pattern, locale, status);
    if (U_FAILURE(status)) {
        return nullptr;
    }
    format->setTimeZone(zone);
    return format;
}

// The long style's glue of a date and a time as the Gregorian calendar data of `locale` itself
// gives it ("{1} 'at' {0}" in English), read straight from the resource the pattern generator
// takes it from. Empty when the locale's own data does not have it: then the generator, which
// also searches the parent locales, is asked.
icu::UnicodeString longGlueOf(const icu::Locale& locale) {
    UErrorCode status = U_ZERO_ERROR;
    icu::UnicodeString glue;
    UResourceBundle* bundle = ures_open(nullptr, locale.getName(), &status);
    UResourceBundle* calendars = ures_getByKey(bundle, "calendar", nullptr, &status);
    UResourceBundle* gregorian = ures_getByKey(calendars, "gregorian", nullptr, &status);
    UResourceBundle* patterns =
        ures_getByKey(gregorian, "DateTimePatterns%atTime", nullptr, &status);
    // Full, long, medium and short, in that order.
    if (U_SUCCESS(status) && ures_getSize(patterns) >= 4) {
        int32_t length = 0;
        const UChar* text = ures_getStringByIndex(patterns, 1, &length, &status);
        if (U_SUCCESS(status)) {
            glue = icu::UnicodeString(text, length);
        }
    }
    ures_close(patterns);
    ures_close(gregorian);
    ures_close(calendars);
    ures_close(bundle);
    if (glue.indexOf(u"{0}") < 0 || glue.indexOf(u"{1}") < 0) {
        glue.remove();
    }
    return glue;
}

} // namespace

// The date formats are built on first use, each only when needed. ICU's pattern generator loads
// much of the locale's calendar data; it is asked only for what the locale's own resources do
// not give, and for a time stamp of another day (most readings are from today).
struct UserLocale::Formatters {
    icu::Locale locale;
    std::unique_ptr<icu::TimeZone> zone;
    std::unique_ptr<icu::Calendar> calendar;
    std::unique_ptr<icu::SimpleDateFormat> shortTime;
    std::unique_ptr<icu::SimpleDateFormat> mediumDateShortTime;
    bool triedMonthDayTime = false;
    std::unique_ptr<icu::SimpleDateFormat> monthDayTime;
};

UserLocale::UserLocale(std::string_view localeName, std::string_view timeZoneID)
    : m_localeName(icu::Locale(icuLocaleName(localeName).c_str()).getName()),
      m_timeZoneID(timeZoneID) {}

const UserLocale::Formatters& UserLocale::formatters() const {
    // Made on first use: ICU's pattern generator and calendars take milliseconds and megabytes
    // to load, and a card with nothing to date never needs them.
    if (m_formatters) {
        return *m_formatters;
    }
    m_formatters = std::make_unique<Formatters>();
    auto& f = *m_formatters;
    f.locale = icu::Locale(m_localeName.c_str());
    f.zone.reset(icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(
        icu::StringPiece(m_timeZoneID.data(), static_cast<int32_t>(m_timeZoneID.size())))));

    UErrorCode status = U_ZERO_ERROR;
    f.calendar.reset(icu::Calendar::createInstance(*f.zone, f.locale, status));
    if (U_FAILURE(status)) {
        f.calendar.reset();
    }

    std::unique_ptr<icu::DateFormat> shortTimeFormat(
        icu::DateFormat::createTimeInstance(icu::DateFormat::kShort, f.locale));
    std::unique_ptr<icu::DateFormat> mediumDateFormat(
        icu::DateFormat::createDateInstance(icu::DateFormat::kMedium, f.locale));
    const icu::UnicodeString timePattern = patternOf(shortTimeFormat.get());
    const icu::UnicodeString datePattern = patternOf(mediumDateFormat.get());
    f.shortTime = makeFormat(timePattern, f.locale, *f.zone);

    // The long style's glue reads as running text ("{1} 'at' {0}" in English), where the
    // medium style's is only a comma.
    icu::UnicodeString glue;
    if (f.calendar && std::string_view(f.calendar->getType()) == "gregorian") {
        glue = longGlueOf(f.locale);
    }
    if (glue.isEmpty()) {
        status = U_ZERO_ERROR;
        std::unique_ptr<icu::DateTimePatternGenerator> generator(
            icu::DateTimePatternGenerator::createInstance(f.locale, status));
        if (U_SUCCESS(status)) {
            glue = generator->getDateTimeFormat(UDAT_LONG, status);
        }
        if (U_FAILURE(status) || glue.isEmpty()) {
            glue = icu::UnicodeString(u"{1} {0}");
        }
    }
    glue.findAndReplace(icu::UnicodeString(u"{1}"), datePattern);
    glue.findAndReplace(icu::UnicodeString(u"{0}"), timePattern);
    f.mediumDateShortTime = makeFormat(glue, f.locale, *f.zone);
    // The formatters keep what they need; the data and code read to build them can go.
    IcuPages::release();
    return f;
}

UserLocale::~UserLocale() = default;
UserLocale::UserLocale(UserLocale&&) noexcept = default;
UserLocale& UserLocale::operator=(UserLocale&&) noexcept = default;

UserLocale UserLocale::forUser(const Environment& environment) {
    std::unique_ptr<icu::TimeZone> zone(icu::TimeZone::createDefault());
    icu::UnicodeString zoneID;
    zone->getID(zoneID);
    const auto variable = [&](const char* name) { return environment.value(name); };
    const auto all = variable("LC_ALL");
    const auto time = variable("LC_TIME");
    const auto lang = variable("LANG");
    const std::string name =
        dateLocaleName(all ? all->c_str() : nullptr, time ? time->c_str() : nullptr,
                       lang ? lang->c_str() : nullptr);
    return UserLocale(name, toUtf8(zoneID));
}

bool UserLocale::isSameDay(Date first, Date second) const {
    auto* calendar = formatters().calendar.get();
    if (!calendar) {
        return false;
    }
    UErrorCode status = U_ZERO_ERROR;
    calendar->setTime(toUDate(first), status);
    const int32_t firstDay = calendar->get(UCAL_JULIAN_DAY, status);
    calendar->setTime(toUDate(second), status);
    const int32_t secondDay = calendar->get(UCAL_JULIAN_DAY, status);
    return U_SUCCESS(status) && firstDay == secondDay;
}

namespace {

std::string formatWith(const icu::SimpleDateFormat* format, Date date) {
    if (!format) {
        return {};
    }
    icu::UnicodeString text;
    format->format(toUDate(date), text);
    return toUtf8(text);
}

} // namespace

std::string UserLocale::shortTime(Date date) const {
    return formatWith(formatters().shortTime.get(), date);
}

std::string UserLocale::monthDayTime(Date date) const {
    formatters();
    Formatters& f = *m_formatters;
    // Made on first use: it needs ICU's pattern generator.
    if (!f.triedMonthDayTime) {
        f.triedMonthDayTime = true;
        UErrorCode status = U_ZERO_ERROR;
        std::unique_ptr<icu::DateTimePatternGenerator> generator(
            icu::DateTimePatternGenerator::createInstance(f.locale, status));
        if (U_SUCCESS(status)) {
            const icu::UnicodeString best =
                generator->getBestPattern(icu::UnicodeString(u"MMMdjmm"), status);
            if (U_SUCCESS(status)) {
                f.monthDayTime = makeFormat(best, f.locale, *f.zone);
            }
        }
        IcuPages::release();
    }
    return formatWith(f.monthDayTime.get(), date);
}

std::string UserLocale::mediumDateShortTime(Date date) const {
    return formatWith(formatters().mediumDateShortTime.get(), date);
}

bool UserLocale::containsIgnoringCase(std::string_view text, std::string_view part) const {
    const auto piece = [](std::string_view view) {
        return icu::StringPiece(view.data(), static_cast<int32_t>(view.size()));
    };
    icu::UnicodeString haystack = icu::UnicodeString::fromUTF8(piece(text));
    icu::UnicodeString needle = icu::UnicodeString::fromUTF8(piece(part));
    const icu::Locale locale(m_localeName.c_str());
    haystack.toLower(locale);
    needle.toLower(locale);
    return haystack.indexOf(needle) >= 0;
}

std::string UserLocale::icuLocaleName(std::string_view posixName) {
    const auto cut = posixName.find_first_of(".@");
    const std::string_view base = posixName.substr(0, cut);
    if (base.empty() || base == "C" || base == "POSIX") {
        return "en_US_POSIX";
    }
    return std::string(base);
}

std::string UserLocale::dateLocaleName(const char* lcAll, const char* lcTime, const char* lang) {
    for (const char* candidate : {lcAll, lcTime, lang}) {
        if (candidate && *candidate) {
            return candidate;
        }
    }
    return {};
}

} // namespace ambrel
