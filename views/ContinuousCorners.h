#pragma once

#include <QPainterPath>
#include <QRectF>

namespace ambrel {

// A rounded rectangle whose corners ease into the straight edges (a superellipse in each
// corner) instead of meeting them with a circular arc's sudden bend. `radius` is the radius of
// the circular corner it stands for; each corner reaches further along the edges so that the
// rounding looks as deep as that circle's.
QPainterPath continuousRoundedRect(const QRectF& rect, qreal radius);

} // namespace ambrel
