#include "views/WidgetDragRegion.h"

#include <QMouseEvent>

#include "presentation/CardTexts.h"

namespace ambrel {

WidgetDragRegion::WidgetDragRegion(QWidget* parent) : QWidget(parent) {
    setAttribute(Qt::WA_NoSystemBackground);
    setToolTip(QString::fromUtf8(CardTexts::kDragHelp));
}

void WidgetDragRegion::mousePressEvent(QMouseEvent* event) {
    if (!m_drag.press(*this, event)) {
        QWidget::mousePressEvent(event);
        return;
    }
    Q_EMIT moveStarted();
}

void WidgetDragRegion::mouseMoveEvent(QMouseEvent* event) {
    if (!m_drag.move(*this, event)) {
        QWidget::mouseMoveEvent(event);
    }
}

void WidgetDragRegion::mouseReleaseEvent(QMouseEvent* event) {
    m_drag.release(event);
    QWidget::mouseReleaseEvent(event);
}

} // namespace ambrel
