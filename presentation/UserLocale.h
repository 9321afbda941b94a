#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "model/Date.h"
#include "platform/Environment.h"

namespace ambrel {

// The user's locale and time zone, with the few localized operations the widget needs: time
// stamps, a full "last confirmed" date and a case-insensitive containment test. Built on ICU.
// Formatting objects are made once, on first use, because they are slow to create; using them
// mutates internal state, so one UserLocale is for one thread (the main thread in the program).
class UserLocale {
public:
    // `localeName` in ICU or POSIX form ("en_US", "de_DE.UTF-8"); `timeZoneID` an Olson id
    // ("Europe/Berlin"). An id ICU does not know gives GMT.
    UserLocale(std::string_view localeName, std::string_view timeZoneID);
    ~UserLocale();
    UserLocale(const UserLocale&) = delete;
    UserLocale& operator=(const UserLocale&) = delete;
    UserLocale(UserLocale&&) noexcept;
    UserLocale& operator=(UserLocale&&) noexcept;

    // The user's locale for dates (LC_ALL, else LC_TIME, else LANG of `environment`) and the
    // system time zone.
    static UserLocale forUser(const Environment& environment);

    // The ICU name of the locale in use, e.g. "en_US".
    const std::string& localeName() const { return m_localeName; }

    // Both instants fall on the same calendar day in this time zone.
    bool isSameDay(Date first, Date second) const;
    // The locale's short time, e.g. "9:41 AM".
    std::string shortTime(Date date) const;
    // Abbreviated month, day, hour and minute (and an AM/PM marker where the locale has one);
    // never a year or seconds. E.g. "Nov 14, 9:41 AM".
    std::string monthDayTime(Date date) const;
    // The locale's abbreviated date and short time joined as in running text, e.g.
    // "Nov 14, 2026 at 9:41 AM".
    std::string mediumDateShortTime(Date date) const;
    // `text` contains `part`, ignoring letter case by this locale's rules. An empty `part` is
    // never found.
    bool containsIgnoringCase(std::string_view text, std::string_view part) const;

    // A POSIX locale name as ICU wants it: the codeset and modifier dropped; "C", "POSIX" and
    // an empty name become "en_US_POSIX".
    static std::string icuLocaleName(std::string_view posixName);
    // The locale that governs dates, by POSIX precedence; null or empty values are skipped.
    static std::string dateLocaleName(const char* lcAll, const char* lcTime, const char* lang);

private:
    struct Formatters;
    const Formatters& formatters() const;

    std::string m_localeName;
    std::string m_timeZoneID;
    // Made on first use, and completed as more is asked of it; hence mutable.
    mutable std::unique_ptr<Formatters> m_formatters;
};

} // namespace ambrel
