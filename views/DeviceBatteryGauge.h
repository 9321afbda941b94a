#pragma once

#include <QWidget>

namespace ambrel {

class DeviceBatteryGaugeModel;
class GaugeRing;
class TextLine;
struct ViewStyle;

// One device's battery in the card: the ring, the device's title under it and a one-line
// status under the title, each with its tooltip. It only draws what its model says; it keeps
// no state of its own and calls nothing.
class DeviceBatteryGauge final : public QWidget {
    Q_OBJECT

public:
    explicit DeviceBatteryGauge(const ViewStyle& style, QWidget* parent = nullptr);

    void setModel(const DeviceBatteryGaugeModel& model);

    GaugeRing* ring() const { return m_ring; }
    TextLine* titleLine() const { return m_title; }
    TextLine* statusLine() const { return m_status; }

private:
    GaugeRing* m_ring;
    TextLine* m_title;
    TextLine* m_status;
};

} // namespace ambrel
