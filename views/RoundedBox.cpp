#include "views/RoundedBox.h"

#include <QPainter>
#include <QVBoxLayout>

#include "views/Appearance.h"
#include "views/ContinuousCorners.h"

namespace ambrel {

RoundedBox::RoundedBox(const Appearance& appearance, QWidget* parent)
    : QWidget(parent), m_appearance(appearance) {
    auto* layout = new QVBoxLayout(this);
    layout->setContentsMargins(kPadding, kPadding, kPadding, kPadding);
}

void RoundedBox::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(Qt::NoPen);
    painter.setOpacity(0.5);
    painter.setBrush(Appearance::quaternaryFill(m_appearance.look()));
    painter.drawPath(continuousRoundedRect(QRectF(rect()), kRadius));
}

} // namespace ambrel
