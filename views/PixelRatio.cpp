#include "views/PixelRatio.h"

#include <QPaintDevice>
#include <QPainter>
#include <algorithm>
#include <cmath>

namespace ambrel {

double pixelRatio(const QPainter& painter) {
    const QTransform transform = painter.deviceTransform();
    const double scale = std::hypot(transform.m11(), transform.m12());
    const double device = painter.device() ? painter.device()->devicePixelRatioF() : 1.0;
    return std::max({scale, device, 1.0});
}

} // namespace ambrel
