#include "views/WidgetDragRegion.h"

#include <QMouseEvent>
#include <QWindow>

#include "presentation/CardTexts.h"

namespace ambrel {

WidgetDragRegion::WidgetDragRegion(QWidget* parent) : QWidget(parent) {
    setAttribute(Qt::WA_NoSystemBackground);
    setToolTip(QString::fromUtf8(CardTexts::kDragHelp));
}

void WidgetDragRegion::mousePressEvent(QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) {
        QWidget::mousePressEvent(event);
        return;
    }
    m_pressOffset.reset();
    QWindow* handle = window()->windowHandle();
    if (!handle || !handle->startSystemMove()) {
        m_pressOffset = event->globalPosition().toPoint() - window()->frameGeometry().topLeft();
    }
    event->accept();
    Q_EMIT moveStarted();
}

void WidgetDragRegion::mouseMoveEvent(QMouseEvent* event) {
    if (!m_pressOffset || !(event->buttons() & Qt::LeftButton)) {
        QWidget::mouseMoveEvent(event);
        return;
    }
    window()->move(event->globalPosition().toPoint() - *m_pressOffset);
    event->accept();
}

void WidgetDragRegion::mouseReleaseEvent(QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) {
        m_pressOffset.reset();
    }
    QWidget::mouseReleaseEvent(event);
}

} // namespace ambrel
