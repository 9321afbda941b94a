#include "presentation/DeviceBatteryGaugeModel.h"

#include <algorithm>
#include <utility>
#include <vector>

namespace ambrel {

DeviceBatteryGaugeModel::DeviceBatteryGaugeModel(std::optional<BatteryDeviceSnapshot> snapshot,
                                                 BatteryDeviceKind kind, bool isChecking,
                                                 bool connectionFailed, Date now,
                                                 const UserLocale& locale)
    : m_snapshot(std::move(snapshot)), m_kind(kind), m_isChecking(isChecking),
      m_connectionFailed(connectionFailed), m_now(now), m_locale(&locale) {}

const std::vector<std::string>& DeviceBatteryGaugeModel::macFamilies() {
    static const std::vector<std::string> families = {
        "MacBook Pro", "MacBook Air", "MacBook", "Mac Studio", "Mac mini", "Mac Pro", "iMac",
    };
    return families;
}

std::string DeviceBatteryGaugeModel::deviceWord() const {
    return m_kind == BatteryDeviceKind::mac ? "This Mac" : "iPhone";
}

bool DeviceBatteryGaugeModel::isDoubtful() const {
    return m_snapshot && (m_snapshot->isStale(m_now) || m_connectionFailed);
}

ColorRole DeviceBatteryGaugeModel::gaugeColor() const {
    if (!m_snapshot) {
        return ColorRole::secondary;
    }
    if (m_snapshot->isStale(m_now) || m_connectionFailed) {
        return ColorRole::orange;
    }
    if (m_snapshot->percentage() <= 10) {
        return ColorRole::red;
    }
    if (m_snapshot->percentage() <= 20) {
        return ColorRole::orange;
    }
    return ColorRole::green;
}

double DeviceBatteryGaugeModel::fillFraction() const {
    if (!m_snapshot) {
        return 0.0;
    }
    const auto clamped = std::clamp<std::int64_t>(m_snapshot->percentage(), 0, 100);
    return static_cast<double>(clamped) / 100.0;
}

double DeviceBatteryGaugeModel::arcOpacity() const {
    return isDoubtful() ? 0.75 : 1.0;
}

std::string DeviceBatteryGaugeModel::title() const {
    if (!m_snapshot) {
        return deviceWord();
    }
    if (m_kind == BatteryDeviceKind::phone) {
        return m_snapshot->name();
    }
    for (const auto& family : macFamilies()) {
        if (m_locale->containsIgnoringCase(m_snapshot->name(), family)) {
            return family;
        }
        if (m_snapshot->model() && m_locale->containsIgnoringCase(*m_snapshot->model(), family)) {
            return family;
        }
    }
    return m_snapshot->name();
}

std::string DeviceBatteryGaugeModel::titleHelp() const {
    return m_snapshot ? m_snapshot->name() : deviceWord();
}

std::string DeviceBatteryGaugeModel::statusLine() const {
    if (!m_snapshot) {
        if (m_isChecking) {
            return "Checking\u2026";
        }
        return m_kind == BatteryDeviceKind::phone ? "Connect your iPhone" : "Battery unavailable";
    }
    if (m_isChecking) {
        return "Checking connection\u2026";
    }
    const std::string prefix = isDoubtful() ? "Last known" : "Updated";
    return prefix + " \u00b7 " + shortTimestamp(m_snapshot->lastUpdated());
}

ColorRole DeviceBatteryGaugeModel::statusColor() const {
    return isDoubtful() ? ColorRole::orange : ColorRole::secondary;
}

std::string DeviceBatteryGaugeModel::shortTimestamp(Date date) const {
    if (m_locale->isSameDay(date, m_now)) {
        return m_locale->shortTime(date);
    }
    return m_locale->monthDayTime(date);
}

std::string DeviceBatteryGaugeModel::updateHelp() const {
    if (!m_snapshot) {
        return m_kind == BatteryDeviceKind::phone
                   ? "Open connection help below to pair your iPhone."
                   : "No Mac battery reading is available.";
    }
    std::string power = m_snapshot->isCharging()    ? "Charging"
                        : m_snapshot->isPluggedIn() ? "Plugged in"
                                                    : "On battery";
    std::string help = power + " \u00b7 " + m_snapshot->source() + " \u00b7 Last confirmed " +
                       m_locale->mediumDateShortTime(m_snapshot->lastUpdated());
    if (isDoubtful()) {
        help += ". The current connection has not been confirmed.";
    }
    return help;
}

std::string DeviceBatteryGaugeModel::accessibilityLabel() const {
    if (!m_snapshot) {
        return deviceWord() + ", battery unavailable";
    }
    std::string label =
        m_snapshot->name() + ", " + std::to_string(m_snapshot->percentage()) + " percent";
    if (isDoubtful()) {
        label += ", last known reading";
    }
    label += m_snapshot->isCharging()    ? ", charging"
             : m_snapshot->isPluggedIn() ? ", plugged in"
                                         : ", on battery";
    return label;
}

GaugeSymbol DeviceBatteryGaugeModel::deviceSymbol() const {
    return m_kind == BatteryDeviceKind::mac ? GaugeSymbol::laptop : GaugeSymbol::phone;
}

ColorRole DeviceBatteryGaugeModel::deviceSymbolColor() const {
    return m_snapshot ? ColorRole::primary : ColorRole::secondary;
}

std::string DeviceBatteryGaugeModel::numberText() const {
    return m_snapshot ? std::to_string(m_snapshot->percentage()) : std::string("\u2014");
}

ColorRole DeviceBatteryGaugeModel::numberColor() const {
    return !m_snapshot || isDoubtful() ? ColorRole::secondary : ColorRole::primary;
}

std::optional<GaugeSymbol> DeviceBatteryGaugeModel::powerSymbol() const {
    if (!m_snapshot || !m_snapshot->isPluggedIn()) {
        return std::nullopt;
    }
    return m_snapshot->isCharging() ? GaugeSymbol::charging : GaugeSymbol::pluggedIn;
}

} // namespace ambrel
