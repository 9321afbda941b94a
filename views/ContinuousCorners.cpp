#include "views/ContinuousCorners.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace ambrel {

namespace {

// Exponent of the corner's superellipse |x|^n + |y|^n = 1; 2 would be a circle.
constexpr double kExponent = 4.0;
// Points per corner; plenty for a smooth outline at twice the pixel density.
constexpr int kSteps = 24;
constexpr double kPi = std::numbers::pi;

// How far the corner reaches along each edge, relative to the circle's radius: the depth of
// the rounding on the diagonal, r * (sqrt 2 - 1), matched to the superellipse's.
double reachFactor() {
    const double superellipseDepth = std::sqrt(2.0) * (1.0 - std::pow(0.5, 1.0 / kExponent));
    return (std::sqrt(2.0) - 1.0) / superellipseDepth;
}

} // namespace

QPainterPath continuousRoundedRect(const QRectF& rect, qreal radius) {
    QPainterPath path;
    if (rect.isEmpty()) {
        return path;
    }
    const double reach =
        std::min({radius * reachFactor(), rect.width() / 2.0, rect.height() / 2.0});
    if (reach <= 0.0) {
        path.addRect(rect);
        return path;
    }
    // Each corner: the point `reach` inwards from both of its edges, and the direction (an angle,
    // y pointing down) where its curve starts.
    struct Corner {
        QPointF centre;
        double startAngle;
    };
    const Corner corners[] = {
        {{rect.right() - reach, rect.top() + reach}, -kPi / 2},
        {{rect.right() - reach, rect.bottom() - reach}, 0},
        {{rect.left() + reach, rect.bottom() - reach}, kPi / 2},
        {{rect.left() + reach, rect.top() + reach}, kPi},
    };
    bool first = true;
    for (const auto& corner : corners) {
        for (int step = 0; step <= kSteps; ++step) {
            const double angle = corner.startAngle + (kPi / 2) * step / kSteps;
            const double c = std::cos(angle);
            const double s = std::sin(angle);
            const double x = std::pow(std::abs(c), 2.0 / kExponent) * (c < 0 ? -1 : 1);
            const double y = std::pow(std::abs(s), 2.0 / kExponent) * (s < 0 ? -1 : 1);
            const QPointF point(corner.centre.x() + reach * x, corner.centre.y() + reach * y);
            if (first) {
                path.moveTo(point);
                first = false;
            } else {
                path.lineTo(point);
            }
        }
    }
    path.closeSubpath();
    return path;
}

} // namespace ambrel
