#pragma once

#include <optional>
#include <string>
#include <vector>

#include "model/BatteryDeviceKind.h"
#include "model/BatteryDeviceSnapshot.h"
#include "model/Date.h"
#include "presentation/ColorRole.h"
#include "presentation/GaugeSymbol.h"
#include "presentation/UserLocale.h"

namespace ambrel {

// Everything one battery gauge shows, worked out from its four inputs without any drawing:
// texts, colour roles, the ring's fill and the symbols. `now` decides staleness and whether a
// time stamp is today; `locale` formats the dates and must outlive the model.
class DeviceBatteryGaugeModel {
public:
    DeviceBatteryGaugeModel(std::optional<BatteryDeviceSnapshot> snapshot, BatteryDeviceKind kind,
                            bool isChecking, bool connectionFailed, Date now,
                            const UserLocale& locale);

    const std::optional<BatteryDeviceSnapshot>& snapshot() const { return m_snapshot; }
    BatteryDeviceKind kind() const { return m_kind; }
    bool isChecking() const { return m_isChecking; }
    bool connectionFailed() const { return m_connectionFailed; }

    // "This Mac" or "iPhone".
    std::string deviceWord() const;
    // A reading is shown but may not be current: it is stale or the device was not reached.
    bool isDoubtful() const;
    // The ring's colour; charging never changes it (a charging battery at 8 % is red).
    ColorRole gaugeColor() const;
    // The percentage clamped to 0...100, as a fraction of the full ring.
    double fillFraction() const;
    // The arc is drawn only when there is a reading.
    bool showsArc() const { return m_snapshot.has_value(); }
    // 0.75 for a doubtful reading, else 1.
    double arcOpacity() const;

    // The line under the ring and its tooltip (the full name, for a shortened computer title).
    std::string title() const;
    std::string titleHelp() const;
    // The one-line status under the title, its colour and its tooltip.
    std::string statusLine() const;
    ColorRole statusColor() const;
    std::string updateHelp() const;
    // Today: the short time; another day: month, day and time, never the year.
    std::string shortTimestamp(Date date) const;
    // The ring's spoken label.
    std::string accessibilityLabel() const;

    GaugeSymbol deviceSymbol() const;
    // Primary with a reading, secondary without.
    ColorRole deviceSymbolColor() const;
    // The unclamped percentage, or an em dash without a reading.
    std::string numberText() const;
    // The number's colour: secondary without a reading or with a doubtful one.
    ColorRole numberColor() const;
    bool showsPercentSign() const { return m_snapshot.has_value(); }
    // Only for a plugged-in device: the charging bolt or the plug.
    std::optional<GaugeSymbol> powerSymbol() const;

    // The computer's family names, longer names ahead of their prefixes.
    static const std::vector<std::string>& macFamilies();

private:
    std::optional<BatteryDeviceSnapshot> m_snapshot;
    BatteryDeviceKind m_kind;
    bool m_isChecking;
    bool m_connectionFailed;
    Date m_now;
    const UserLocale* m_locale;
};

} // namespace ambrel
