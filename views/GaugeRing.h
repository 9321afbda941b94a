#pragma once

#include <optional>

#include <QFont>
#include <QImage>
#include <QString>
#include <QWidget>

#include "presentation/ColorRole.h"
#include "presentation/GaugeSymbol.h"
#include "views/Appearance.h"
#include "views/GaugeCentreLayout.h"

namespace ambrel {

class DeviceBatteryGaugeModel;
struct ViewStyle;

// The gauge's ring: a faint full-circle track, the charge arc from twelve o'clock clockwise,
// and in the middle the device icon above the percentage (with "%" and the power symbol).
// One accessibility element, named by the gauge's spoken label.
class GaugeRing final : public QWidget {
    Q_OBJECT

public:
    // What the ring draws, taken from a gauge model.
    struct Face {
        bool showsArc = false;
        double fillFraction = 0.0;
        ColorRole arcColor = ColorRole::secondary;
        double arcOpacity = 1.0;
        GaugeSymbol deviceSymbol = GaugeSymbol::laptop;
        ColorRole deviceSymbolColor = ColorRole::secondary;
        QString number;
        ColorRole numberColor = ColorRole::secondary;
        bool showsPercentSign = false;
        std::optional<GaugeSymbol> powerSymbol;

        friend bool operator==(const Face&, const Face&) = default;
    };

    // The ring's frame and the padding around it, in logical pixels.
    static constexpr int kRingSize = 64;
    static constexpr int kPadding = 2;
    static constexpr qreal kLineWidth = 5.5;

    explicit GaugeRing(const ViewStyle& style, QWidget* parent = nullptr);

    void setModel(const DeviceBatteryGaugeModel& model);
    const Face& face() const { return m_face; }
    // Shows `face` as it is; setModel() shows the face of a model.
    void setFace(const Face& face);
    // The centre of the circle the track and arc follow, and its radius.
    QPointF circleCentre() const;
    qreal circleRadius() const;
    // Where the icon and the number row go, measured as `device` draws text (null: the
    // screen).
    GaugeCentreLayout centreLayout(QPaintDevice* device = nullptr) const;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    void drawRing(QPainter& painter, double ratio, Look look) const;

    const Appearance& m_appearance;
    Face m_face;
    // The last drawing, reused while the face, the look and the pixel ratio stay the same:
    // translucent strokes are slow to rasterize and the card repaints far more often than a
    // reading changes.
    QImage m_drawing;
    double m_drawingRatio = 0.0;
    Look m_drawingLook = Look::light;
    QFont m_numberFont;
    QFont m_percentFont;
};

} // namespace ambrel
