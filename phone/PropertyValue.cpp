#include "phone/PropertyValue.h"

#include <cmath>
#include <utility>

namespace ambrel {

namespace {

// 2^63 as a double: the first real whose truncation no longer fits in a signed 64-bit integer.
constexpr double kTwoToThe63 = 9223372036854775808.0;

} // namespace

PropertyValue::PropertyValue(Kind kind, std::int64_t integer, double real, std::string text)
    : m_kind(kind), m_integer(integer), m_real(real), m_text(std::move(text)) {}

PropertyValue PropertyValue::integer(std::int64_t value) {
    return PropertyValue(Kind::integer, value, 0.0, {});
}

PropertyValue PropertyValue::real(double value) {
    return PropertyValue(Kind::real, 0, value, {});
}

PropertyValue PropertyValue::boolean(bool value) {
    return PropertyValue(Kind::boolean, value ? 1 : 0, 0.0, {});
}

PropertyValue PropertyValue::string(std::string value) {
    return PropertyValue(Kind::string, 0, 0.0, std::move(value));
}

PropertyValue PropertyValue::other() {
    return PropertyValue(Kind::other, 0, 0.0, {});
}

bool PropertyValue::isNumber() const {
    return m_kind == Kind::integer || m_kind == Kind::real || m_kind == Kind::boolean;
}

std::optional<std::int64_t> PropertyValue::integerValue() const {
    switch (m_kind) {
    case Kind::integer:
    case Kind::boolean:
        return m_integer;
    case Kind::real: {
        if (!std::isfinite(m_real)) {
            return std::nullopt;
        }
        const double truncated = std::trunc(m_real);
        // The range check runs on the truncated value so that converting it is always defined.
        if (truncated >= kTwoToThe63 || truncated < -kTwoToThe63) {
            return std::nullopt;
        }
        return static_cast<std::int64_t>(truncated);
    }
    case Kind::string:
    case Kind::other:
        break;
    }
    return std::nullopt;
}

std::optional<bool> PropertyValue::boolValue() const {
    switch (m_kind) {
    case Kind::integer:
    case Kind::boolean:
        return m_integer != 0;
    case Kind::real:
        if (std::isnan(m_real)) {
            return std::nullopt;
        }
        return m_real != 0.0;
    case Kind::string:
    case Kind::other:
        break;
    }
    return std::nullopt;
}

std::optional<std::string> PropertyValue::stringValue() const {
    if (m_kind != Kind::string) {
        return std::nullopt;
    }
    return m_text;
}

} // namespace ambrel
