#include "views/WindowDrag.h"

#include <utility>

#include <QMouseEvent>
#include <QWidget>
#include <QWindow>

#include "platform/qt/X11Connection.h"

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
        m_handedOver = handle != nullptr && handle->startSystemMove();
        if (!m_handedOver) {
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
            if (std::exchange(m_handedOver, false)) {
                // Once the window manager holds the pointer the release goes to it; this one
                // came first, and the window manager would wait for another.
                X11Connection::cancelMoveResize(
                    static_cast<xcb_window_t>(m_widget->window()->winId()));
            }
        }
        return false;
    default:
        return false;
    }
}

} // namespace ambrel
