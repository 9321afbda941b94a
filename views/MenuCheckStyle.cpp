#include "views/MenuCheckStyle.h"

#include <algorithm>

#include <QMenu>
#include <QPainter>
#include <QPainterPath>
#include <QStyleOption>

namespace ambrel {

namespace {

// The outline's share of the text colour: enough to stand out from the menu in both looks
// (at least 3:1, as a control's edge should), light enough not to shout.
constexpr int kOutlineAlpha = 150;
constexpr qreal kCornerRadius = 3.0;

} // namespace

void MenuCheckStyle::drawPrimitive(PrimitiveElement element, const QStyleOption* option,
                                   QPainter* painter, const QWidget* widget) const {
    if (element != PE_IndicatorCheckBox || qobject_cast<const QMenu*>(widget) == nullptr) {
        QProxyStyle::drawPrimitive(element, option, painter, widget);
        return;
    }
    const bool ticked = (option->state & State_On) != 0;
    const bool enabled = (option->state & State_Enabled) != 0;
    const QPalette::ColorGroup group = enabled ? QPalette::Active : QPalette::Disabled;
    const int side = std::min(option->rect.width(), option->rect.height()) - 2;
    const QRectF box(option->rect.x() + (option->rect.width() - side) / 2.0,
                     option->rect.y() + (option->rect.height() - side) / 2.0, side, side);
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    if (ticked) {
        painter->setPen(Qt::NoPen);
        painter->setBrush(option->palette.color(group, QPalette::Highlight));
        painter->drawRoundedRect(box, kCornerRadius, kCornerRadius);
        QPainterPath tick;
        tick.moveTo(box.left() + side * 0.24, box.top() + side * 0.52);
        tick.lineTo(box.left() + side * 0.43, box.top() + side * 0.71);
        tick.lineTo(box.left() + side * 0.77, box.top() + side * 0.30);
        QPen pen(option->palette.color(group, QPalette::HighlightedText), side * 0.14);
        pen.setCapStyle(Qt::RoundCap);
        pen.setJoinStyle(Qt::RoundJoin);
        painter->setPen(pen);
        painter->setBrush(Qt::NoBrush);
        painter->drawPath(tick);
    } else {
        QColor edge = option->palette.color(group, QPalette::Text);
        edge.setAlpha(kOutlineAlpha);
        painter->setPen(QPen(edge, 1.0));
        painter->setBrush(Qt::NoBrush);
        painter->drawRoundedRect(box.adjusted(0.5, 0.5, -0.5, -0.5), kCornerRadius, kCornerRadius);
    }
    painter->restore();
}

} // namespace ambrel
