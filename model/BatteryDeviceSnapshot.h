#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

#include "model/Date.h"

namespace ambrel {

// One reading of one device's battery. Immutable: every field is fixed at construction.
// The phone's reading has id "iphone" and source "Wi-Fi" or "USB"; this computer's has id
// "mac" and source "Mac".
class BatteryDeviceSnapshot {
public:
    BatteryDeviceSnapshot(std::string id, std::string name, std::int64_t percentage,
                          bool isCharging, bool isPluggedIn, Date lastUpdated, std::string source,
                          std::optional<std::string> model = std::nullopt);

    const std::string& id() const { return m_id; }
    const std::string& name() const { return m_name; }
    // State of charge in percent; expected 0 to 100 but not enforced here.
    std::int64_t percentage() const { return m_percentage; }
    bool isCharging() const { return m_isCharging; }
    bool isPluggedIn() const { return m_isPluggedIn; }
    Date lastUpdated() const { return m_lastUpdated; }
    const std::string& source() const { return m_source; }
    const std::optional<std::string>& model() const { return m_model; }

    // True when the reading is older than its limit at `now`: 600 s for id "iphone"
    // (exact, case-sensitive), 180 s for every other id. A reading from the future is never
    // stale.
    bool isStale(Date now) const;

    // The JSON object form: seven keys, plus "model" only when there is one.
    nlohmann::json toJson() const;
    // Compact JSON text of toJson().
    std::string encodeJson() const;

    // Decodes the JSON object form. Absent when the value is not an object, a required key is
    // missing or of the wrong type, "percentage" is not an integral number, or "model" is
    // neither a string nor null. Unknown keys are ignored; no range checks are made.
    static std::optional<BatteryDeviceSnapshot> fromJson(const nlohmann::json& json);
    static std::optional<BatteryDeviceSnapshot> decodeJson(std::string_view text);

private:
    std::string m_id;
    std::string m_name;
    std::int64_t m_percentage;
    bool m_isCharging;
    bool m_isPluggedIn;
    Date m_lastUpdated;
    std::string m_source;
    std::optional<std::string> m_model;
};

} // namespace ambrel
