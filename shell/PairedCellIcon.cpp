#include "shell/PairedCellIcon.h"

#include <cmath>

#include <QPainter>
#include <QPainterPath>
#include <QPixmap>

namespace ambrel::PairedCellIcon {

QColor labelColor(bool dark) {
    // The system label colours: near-black on light, near-white on dark, at 85 % opacity.
    return dark ? QColor(255, 255, 255, 217) : QColor(0, 0, 0, 217);
}

QImage draw(const QColor& color, qreal devicePixelRatio) {
    const int pixels = static_cast<int>(std::lround(kSize * devicePixelRatio));
    QImage image(pixels, pixels, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    image.setDevicePixelRatio(devicePixelRatio);

    QPainter painter(&image);
    painter.setRenderHint(QPainter::Antialiasing);
    // The mark is laid out with y growing upward from the bottom-left corner; flipping first lets
    // the tilt and the cells keep those numbers, and a negative angle then turns clockwise.
    painter.translate(0, kSize);
    painter.scale(1, -1);
    painter.translate(9, 9);
    painter.rotate(-12);
    painter.translate(-9, -9);

    QPainterPath outlined;
    outlined.addRoundedRect(QRectF(4, 5, 4, 10), 2, 2);
    painter.setPen(QPen(color, 1.4));
    painter.setBrush(Qt::NoBrush);
    painter.drawPath(outlined);

    QPainterPath solid;
    solid.addRoundedRect(QRectF(10, 3, 4, 10), 2, 2);
    painter.setPen(Qt::NoPen);
    painter.setBrush(color);
    painter.drawPath(solid);
    return image;
}

QIcon icon(const QColor& color) {
    QIcon icon;
    for (const qreal ratio : {1.0, 2.0, 3.0}) {
        icon.addPixmap(QPixmap::fromImage(draw(color, ratio)));
    }
    return icon;
}

} // namespace ambrel::PairedCellIcon
