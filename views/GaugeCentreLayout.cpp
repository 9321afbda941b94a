#include "views/GaugeCentreLayout.h"

#include <QFontMetricsF>
#include <algorithm>
#include <cmath>

namespace ambrel {

namespace {

// The row is tried at its stated size and then a step smaller at a time.
constexpr int kScaleSteps = 100;

QFontMetricsF metricsOf(const QFont& font, QPaintDevice* device) {
    return device ? QFontMetricsF(font, device) : QFontMetricsF(font);
}

} // namespace

qreal GaugeCentreLayout::farthestCorner(const QRectF& rect, QPointF centre) {
    const qreal dx =
        std::max(std::abs(rect.left() - centre.x()), std::abs(rect.right() - centre.x()));
    const qreal dy =
        std::max(std::abs(rect.top() - centre.y()), std::abs(rect.bottom() - centre.y()));
    return std::hypot(dx, dy);
}

GaugeCentreLayout GaugeCentreLayout::compute(const Content& content, const Ring& ring,
                                             const QFont& numberFont, const QFont& percentFont,
                                             QPaintDevice* device) {
    const QFontMetricsF numberMetrics = metricsOf(numberFont, device);
    const QFontMetricsF percentMetrics = metricsOf(percentFont, device);
    GaugeCentreLayout layout;

    // The icon above the row, the pair centred in the ring at the stated sizes.
    const qreal stackHeight = kDeviceSymbolSize + kCentreSpacing + numberMetrics.height();
    const qreal top = ring.centre.y() - stackHeight / 2.0;
    layout.deviceSymbol = QRectF(ring.centre.x() - kDeviceSymbolSize / 2.0, top, kDeviceSymbolSize,
                                 kDeviceSymbolSize);
    const qreal baseline = top + kDeviceSymbolSize + kCentreSpacing + numberMetrics.ascent();

    // The row in its own coordinates; its parts share the number's baseline.
    QRectF ink = numberMetrics.tightBoundingRect(content.number);
    qreal x = numberMetrics.horizontalAdvance(content.number);
    if (content.showsPercentSign) {
        const QString percent = QStringLiteral("%");
        x += kRowSpacing;
        layout.percentOrigin = QPointF(x, 0);
        ink |= percentMetrics.tightBoundingRect(percent).translated(x, 0);
        x += percentMetrics.horizontalAdvance(percent);
    }
    if (content.showsPowerSymbol) {
        x += kRowSpacing;
        layout.powerSymbol = QRectF(x, -kPowerSymbolSize, kPowerSymbolSize, kPowerSymbolSize);
        ink |= layout.powerSymbol;
    }

    // What is drawn is centred across the ring; a smaller row keeps the middle of its line.
    const qreal lineMiddle = (numberMetrics.descent() - numberMetrics.ascent()) / 2.0;
    const QPointF rowPivot(ink.center().x(), lineMiddle);
    const QPointF ringPivot(ring.centre.x(), baseline + lineMiddle);
    const qreal limit = ring.innerRadius - kClearance;
    const int leastStep = static_cast<int>(std::lround((1.0 - kMinimumRowScale) * kScaleSteps));
    for (int step = 0; step <= leastStep; ++step) {
        layout.rowScale = 1.0 - static_cast<qreal>(step) / kScaleSteps;
        layout.rowTransform = QTransform();
        layout.rowTransform.translate(ringPivot.x(), ringPivot.y());
        layout.rowTransform.scale(layout.rowScale, layout.rowScale);
        layout.rowTransform.translate(-rowPivot.x(), -rowPivot.y());
        layout.rowBounds = layout.rowTransform.mapRect(ink);
        if (farthestCorner(layout.rowBounds, ring.centre) <= limit) {
            break;
        }
    }
    return layout;
}

} // namespace ambrel
