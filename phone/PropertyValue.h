#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace ambrel {

// One value of a parsed property list, reduced to what the phone reader asks of it: is it a
// number, and what are its integer and truth values. Integers, reals and booleans all count as
// numbers; strings are kept as text; containers, data and dates are only "other".
class PropertyValue {
public:
    enum class Kind { integer, real, boolean, string, other };

    static PropertyValue integer(std::int64_t value);
    static PropertyValue real(double value);
    static PropertyValue boolean(bool value);
    static PropertyValue string(std::string value);
    static PropertyValue other();

    Kind kind() const { return m_kind; }
    bool isNumber() const;

    // The integer value of a number: an integer as it is, a boolean as 0 or 1, a real truncated
    // toward zero (87.6 gives 87, -0.5 gives 0). Absent for anything that is not a number and
    // for a real that is NaN, infinite or outside the 64-bit range.
    std::optional<std::int64_t> integerValue() const;

    // The truth value of a number: a boolean as it is, any other number true unless it is zero.
    // Absent for anything that is not a number and for a NaN real.
    std::optional<bool> boolValue() const;

    // The text of a string value; absent for every other kind.
    std::optional<std::string> stringValue() const;

    friend bool operator==(const PropertyValue&, const PropertyValue&) = default;

private:
    PropertyValue(Kind kind, std::int64_t integer, double real, std::string text);

    Kind m_kind = Kind::other;
    std::int64_t m_integer = 0;
    double m_real = 0.0;
    std::string m_text;
};

} // namespace ambrel
