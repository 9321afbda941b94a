#include "views/ToggleSwitch.h"

#include <QPainter>

#include "views/Appearance.h"

namespace ambrel {

ToggleSwitch::ToggleSwitch(const Appearance& appearance, QWidget* parent)
    : QAbstractButton(parent), m_appearance(appearance) {
    setCheckable(true);
    setFixedSize(kSize);
    setFocusPolicy(Qt::StrongFocus);
    setCursor(Qt::PointingHandCursor);
}

void ToggleSwitch::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    if (!isEnabled()) {
        painter.setOpacity(0.45);
    }
    const Look look = m_appearance.look();
    const QRectF track = QRectF(rect()).adjusted(1, 1, -1, -1);
    const qreal radius = track.height() / 2;
    QColor fill =
        isChecked() ? Appearance::accent() : Appearance::color(ColorRole::secondary, look);
    if (!isChecked()) {
        fill.setAlphaF(0.35);
    }
    painter.setPen(Qt::NoPen);
    painter.setBrush(fill);
    painter.drawRoundedRect(track, radius, radius);

    const qreal knobSize = track.height() - 4;
    const qreal knobX = isChecked() ? track.right() - 2 - knobSize : track.left() + 2;
    painter.setBrush(Qt::white);
    painter.drawEllipse(QRectF(knobX, track.top() + 2, knobSize, knobSize));

    if (hasFocus()) {
        painter.setOpacity(1);
        painter.setBrush(Qt::NoBrush);
        painter.setPen(QPen(Appearance::accent(), 1.5));
        painter.drawRoundedRect(QRectF(rect()).adjusted(0.75, 0.75, -0.75, -0.75), radius + 1,
                                radius + 1);
    }
}

} // namespace ambrel
