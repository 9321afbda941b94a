#include "shell/DesktopPanel.h"

#include <QApplication>
#include <QGuiApplication>
#include <QMouseEvent>
#include <QMoveEvent>
#include <QShowEvent>

#include "shell/PanelPlacement.h"
#include "shell/X11WindowHints.h"
#include "views/WindowDrag.h"

namespace ambrel {

DesktopPanel::DesktopPanel(const QString& title, QWidget* parent)
    : QWidget(parent, Qt::Window | Qt::FramelessWindowHint | Qt::NoDropShadowWindowHint |
                          Qt::WindowStaysOnBottomHint | Qt::WindowDoesNotAcceptFocus) {
    // A panel on the desktop never takes the keyboard from the window the user works in: not
    // when it appears, not when it is clicked or dragged. Its menu takes the keyboard while
    // it is open, as every popup menu does.
    setAttribute(Qt::WA_ShowWithoutActivating);
    // Both must be set before the native window exists: they choose its visual.
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_NoSystemBackground);
    setWindowTitle(title);
    setFixedSize(PanelPlacement::kPanelSize);
    // Controls accept their presses, so only presses no child took move the panel.
    new WindowDrag(this);
    // Every press and release of the window, whichever child takes it, passes here first.
    qApp->installEventFilter(this);
}

void DesktopPanel::setContent(QWidget* content) {
    delete m_content;
    m_content = content;
    if (m_content != nullptr) {
        m_content->setParent(this);
        m_content->setGeometry(rect());
        m_content->show();
    }
}

void DesktopPanel::bringToFront() {
    show();
    raise();
    X11WindowHints::flush();
}

void DesktopPanel::moveEvent(QMoveEvent* event) {
    QWidget::moveEvent(event);
    if (m_dragging) {
        m_movedWhileDragging = true;
    }
    if (m_moved) {
        m_moved(!m_dragging);
    }
}

bool DesktopPanel::eventFilter(QObject* watched, QEvent* event) {
    // Only the events of this window: its QWindow receives them before any widget.
    if (watched != windowHandle()) {
        return false;
    }
    switch (event->type()) {
    case QEvent::MouseButtonPress:
        if (static_cast<QMouseEvent*>(event)->button() == Qt::LeftButton) {
            m_dragging = true;
            m_movedWhileDragging = false;
        }
        break;
    case QEvent::MouseButtonRelease:
        // A drag of the program's own moves the panel before its release ends it. A window
        // manager that takes the move over gets a release at once, before any move, and ends
        // the move with the pointer coming back to the panel.
        if (static_cast<QMouseEvent*>(event)->button() == Qt::LeftButton && m_movedWhileDragging) {
            dragEnded();
        }
        break;
    case QEvent::Enter:
        if (QGuiApplication::mouseButtons() == Qt::NoButton) {
            dragEnded();
        }
        break;
    default:
        break;
    }
    return false;
}

void DesktopPanel::dragEnded() {
    if (!m_dragging) {
        return;
    }
    m_dragging = false;
    if (m_movedWhileDragging && m_moved) {
        m_moved(true);
    }
    m_movedWhileDragging = false;
}

void DesktopPanel::showEvent(QShowEvent* event) {
    // Qt sends this before it maps the window, the moment window-manager hints must be in place.
    if (!event->spontaneous()) {
        X11WindowHints::markAsDesktopPanel(winId());
    }
    QWidget::showEvent(event);
}

} // namespace ambrel
