#include "views/WindowDrag.h"

#include <QMouseEvent>
#include <QWidget>
#include <QWindow>

namespace ambrel {

bool WindowDrag::press(QWidget& widget, QMouseEvent* event) {
    if (event->button() != Qt::LeftButton) {
        return false;
    }
    m_pressOffset.reset();
    QWidget* window = widget.window();
    QWindow* handle = window->windowHandle();
    if (handle == nullptr || !handle->startSystemMove()) {
        m_pressOffset = event->globalPosition().toPoint() - window->frameGeometry().topLeft();
    }
    event->accept();
    return true;
}

bool WindowDrag::move(QWidget& widget, QMouseEvent* event) {
    if (!m_pressOffset || !(event->buttons() & Qt::LeftButton)) {
        return false;
    }
    widget.window()->move(event->globalPosition().toPoint() - *m_pressOffset);
    event->accept();
    return true;
}

void WindowDrag::release(const QMouseEvent* event) {
    if (event->button() == Qt::LeftButton) {
        m_pressOffset.reset();
    }
}

} // namespace ambrel
