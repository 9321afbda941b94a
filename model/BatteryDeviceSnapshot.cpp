#include "model/BatteryDeviceSnapshot.h"

#include <cmath>
#include <limits>
#include <utility>

#include <nlohmann/json.hpp>

#include "model/BatteryRefreshPolicy.h"

namespace ambrel {

namespace {

const nlohmann::json* member(const nlohmann::json& object, const char* key) {
    const auto found = object.find(key);
    return found == object.end() ? nullptr : &*found;
}

std::optional<std::string> stringMember(const nlohmann::json& object, const char* key) {
    const nlohmann::json* value = member(object, key);
    if (value == nullptr || !value->is_string()) {
        return std::nullopt;
    }
    return value->get<std::string>();
}

std::optional<bool> boolMember(const nlohmann::json& object, const char* key) {
    const nlohmann::json* value = member(object, key);
    if (value == nullptr || !value->is_boolean()) {
        return std::nullopt;
    }
    return value->get<bool>();
}

// Any JSON number with an integral value that fits 64 bits: 50 and 50.0 decode, 50.5 does not.
std::optional<std::int64_t> integralMember(const nlohmann::json& object, const char* key) {
    const nlohmann::json* value = member(object, key);
    if (value == nullptr) {
        return std::nullopt;
    }
    if (value->is_number_integer() && !value->is_number_unsigned()) {
        return value->get<std::int64_t>();
    }
    if (value->is_number_unsigned()) {
        const auto unsignedValue = value->get<std::uint64_t>();
        if (unsignedValue > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
            return std::nullopt;
        }
        return static_cast<std::int64_t>(unsignedValue);
    }
    if (value->is_number_float()) {
        const double number = value->get<double>();
        // 2^63 is exactly representable; anything at or beyond it does not fit.
        constexpr double kLimit = 9223372036854775808.0;
        if (!std::isfinite(number) || std::trunc(number) != number || number < -kLimit ||
            number >= kLimit) {
            return std::nullopt;
        }
        return static_cast<std::int64_t>(number);
    }
    return std::nullopt;
}

std::optional<double> numberMember(const nlohmann::json& object, const char* key) {
    const nlohmann::json* value = member(object, key);
    if (value == nullptr || !value->is_number()) {
        return std::nullopt;
    }
    return value->get<double>();
}

} // namespace

BatteryDeviceSnapshot::BatteryDeviceSnapshot(std::string id, std::string name,
                                             std::int64_t percentage, bool isCharging,
                                             bool isPluggedIn, Date lastUpdated, std::string source,
                                             std::optional<std::string> model)
    : m_id(std::move(id)), m_name(std::move(name)), m_percentage(percentage),
      m_isCharging(isCharging), m_isPluggedIn(isPluggedIn), m_lastUpdated(lastUpdated),
      m_source(std::move(source)), m_model(std::move(model)) {}

bool BatteryDeviceSnapshot::isStale(Date now) const {
    const double limit = m_id == "iphone" ? BatteryRefreshPolicy::phoneStaleAfter
                                          : BatteryRefreshPolicy::macStaleAfter;
    return now.secondsSince(m_lastUpdated) > limit;
}

nlohmann::json BatteryDeviceSnapshot::toJson() const {
    nlohmann::json json = {
        {"id", m_id},
        {"name", m_name},
        {"percentage", m_percentage},
        {"isCharging", m_isCharging},
        {"isPluggedIn", m_isPluggedIn},
        {"lastUpdated", m_lastUpdated.secondsSinceReferenceDate()},
        {"source", m_source},
    };
    if (m_model) {
        json["model"] = *m_model;
    }
    return json;
}

std::string BatteryDeviceSnapshot::encodeJson() const {
    // Texts come from tools and may hold any bytes; replacing bad UTF-8 keeps the encoder
    // from failing on them.
    return toJson().dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::optional<BatteryDeviceSnapshot> BatteryDeviceSnapshot::fromJson(const nlohmann::json& json) {
    if (!json.is_object()) {
        return std::nullopt;
    }
    auto id = stringMember(json, "id");
    auto name = stringMember(json, "name");
    const auto percentage = integralMember(json, "percentage");
    const auto isCharging = boolMember(json, "isCharging");
    const auto isPluggedIn = boolMember(json, "isPluggedIn");
    const auto lastUpdated = numberMember(json, "lastUpdated");
    auto source = stringMember(json, "source");
    if (!id || !name || !percentage || !isCharging || !isPluggedIn || !lastUpdated || !source) {
        return std::nullopt;
    }
    std::optional<std::string> model;
    if (const nlohmann::json* value = member(json, "model");
        value != nullptr && !value->is_null()) {
        if (!value->is_string()) {
            return std::nullopt;
        }
        model = value->get<std::string>();
    }
    return BatteryDeviceSnapshot(std::move(*id), std::move(*name), *percentage, *isCharging,
                                 *isPluggedIn, Date::fromSecondsSinceReferenceDate(*lastUpdated),
                                 std::move(*source), std::move(model));
}

std::optional<BatteryDeviceSnapshot> BatteryDeviceSnapshot::decodeJson(std::string_view text) {
    const nlohmann::json json = nlohmann::json::parse(text, nullptr, false);
    if (json.is_discarded()) {
        return std::nullopt;
    }
    return fromJson(json);
}

} // namespace ambrel
