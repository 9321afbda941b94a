#pragma once

#include <chrono>

namespace ambrel {

// A point in time held, like the readings' JSON form, as seconds since the reference date
// 2001-01-01 00:00:00 UTC. A double keeps sub-second precision and represents any decoded
// value exactly, so a reading survives a save and load unchanged.
class Date {
public:
    // Seconds between the Unix epoch and the reference date.
    static constexpr double kUnixToReferenceSeconds = 978307200.0;

    constexpr Date() = default;
    static constexpr Date fromSecondsSinceReferenceDate(double seconds) { return Date(seconds); }
    static constexpr Date fromSecondsSince1970(double seconds) {
        return Date(seconds - kUnixToReferenceSeconds);
    }
    static Date fromTimePoint(std::chrono::system_clock::time_point timePoint);

    constexpr double secondsSinceReferenceDate() const { return m_seconds; }
    constexpr double secondsSince1970() const { return m_seconds + kUnixToReferenceSeconds; }

    // Seconds from other to this date; negative when this date is earlier.
    constexpr double secondsSince(Date other) const { return m_seconds - other.m_seconds; }
    constexpr Date addingSeconds(double seconds) const { return Date(m_seconds + seconds); }

    friend constexpr bool operator==(Date, Date) = default;
    friend constexpr auto operator<=>(Date, Date) = default;

private:
    constexpr explicit Date(double seconds) : m_seconds(seconds) {}
    double m_seconds = 0.0;
};

} // namespace ambrel
