#include "views/WindowDrag.h"

#include <utility>

#include <QMouseEvent>
#include <QWidget>
#include <QWindow>

namespace ambrel {

WindowDrag::WindowDrag(QWidget* widget, std::function<void()> started)
    : QObject(widget), m_widget(widget), m_started(std::move(started)) {
    widget->installEventFilter(this);
}

bool WindowDrag::eventFilter(QObject* watched, QEvent* event) {
    if (watched != m_widget) {
        return false;
    }
    switch (event->type()) {
    case QEvent::MouseButtonPress: {
        auto* press = static_cast<QMouseEvent*>(event);
        if (press->button() != Qt::LeftButton) {
            return false;
        }
        m_pressOffset.reset();
        QWidget* window = m_widget->window();
        QWindow* handle = window->windowHandle();
        if (handle == nullptr || !handle->startSystemMove()) {
            m_pressOffset = press->globalPosition().toPoint() - window->frameGeometry().topLeft();
        }
        press->accept();
        if (m_started) {
            m_started();
        }
        return true;
    }
    case QEvent::MouseMove: {
        auto* move = static_cast<QMouseEvent*>(event);
        if (!m_pressOffset || !(move->buttons() & Qt::LeftButton)) {
            return false;
        }
        m_widget->window()->move(move->globalPosition().toPoint() - *m_pressOffset);
        move->accept();
        return true;
    }
    case QEvent::MouseButtonRelease:
        if (static_cast<QMouseEvent*>(event)->button() == Qt::LeftButton) {
            m_pressOffset.reset();
        }
        return false;
    default:
        return false;
    }
}

} // namespace ambrel
