#include "views/PairedCellMark.h"

#include <QPainter>
#include <QPainterPath>

#include "views/Appearance.h"

namespace ambrel {

namespace {

constexpr qreal kPillWidth = 5.7;
constexpr qreal kPillHeight = 12.0;
// Clockwise on screen, about each pill's own centre.
constexpr qreal kTiltDegrees = 12.0;
constexpr qreal kOutlineWidth = 1.4;
constexpr QPointF kOutlinedOffset(-3.8, -1.1);
constexpr QPointF kFilledOffset(3.8, 1.1);

QPainterPath pill() {
    QPainterPath path;
    const QRectF frame(-kPillWidth / 2, -kPillHeight / 2, kPillWidth, kPillHeight);
    path.addRoundedRect(frame, kPillWidth / 2, kPillWidth / 2);
    return path;
}

} // namespace

PairedCellMark::PairedCellMark(QWidget* parent) : QWidget(parent) {
    setFixedSize(kSize, kSize);
}

void PairedCellMark::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QColor accent = Appearance::accent();
    const QPointF centre(width() / 2.0, height() / 2.0);
    const QPainterPath shape = pill();

    // Each pill is framed at the origin, tilted about its centre, then moved to its place.
    QTransform outlined;
    outlined.translate(centre.x() + kOutlinedOffset.x(), centre.y() + kOutlinedOffset.y());
    outlined.rotate(kTiltDegrees);
    QPen pen(accent, kOutlineWidth, Qt::SolidLine, Qt::FlatCap, Qt::MiterJoin);
    painter.setPen(pen);
    painter.setBrush(Qt::NoBrush);
    painter.drawPath(outlined.map(shape));

    QTransform filled;
    filled.translate(centre.x() + kFilledOffset.x(), centre.y() + kFilledOffset.y());
    filled.rotate(kTiltDegrees);
    painter.setPen(Qt::NoPen);
    painter.setBrush(accent);
    painter.drawPath(filled.map(shape));
}

} // namespace ambrel
