#include "shell/DesktopPanel.h"

#include <QMoveEvent>
#include <QShowEvent>

#include "shell/PanelPlacement.h"
#include "shell/X11WindowHints.h"
#include "views/WindowDrag.h"

namespace ambrel {

DesktopPanel::DesktopPanel(const QString& title, QWidget* parent)
    : QWidget(parent, Qt::Window | Qt::FramelessWindowHint | Qt::NoDropShadowWindowHint |
                          Qt::WindowStaysOnBottomHint) {
    // Both must be set before the native window exists: they choose its visual.
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_NoSystemBackground);
    setWindowTitle(title);
    setFixedSize(PanelPlacement::kPanelSize);
    // Controls accept their presses, so only presses no child took move the panel.
    new WindowDrag(this);
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
    if (m_moved) {
        m_moved();
    }
}

void DesktopPanel::showEvent(QShowEvent* event) {
    // Qt sends this before it maps the window, the moment window-manager hints must be in place.
    if (!event->spontaneous()) {
        X11WindowHints::markAsDesktopPanel(winId());
    }
    QWidget::showEvent(event);
}

} // namespace ambrel
