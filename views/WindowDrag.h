#pragma once

#include <functional>
#include <optional>

#include <QObject>
#include <QPoint>

class QWidget;

namespace ambrel {

// Moves a borderless window by a left press on one of its widgets: the press hands the window
// to the window manager as the start of an interactive move, already on the first click. Where
// the window manager cannot take the move over, the window follows the pointer while the button
// is held. A release that still reaches the widget came before the window manager took the
// pointer, so the move it was asked for is called off. Watches the widget's mouse events; every
// other press, move and release reaches the widget as before.
class WindowDrag final : public QObject {
public:
    // Made a child of `widget`; `started` is told of every move a press starts.
    explicit WindowDrag(QWidget* widget, std::function<void()> started = {});

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    QWidget* m_widget;
    std::function<void()> m_started;
    // Where the press was, relative to the window's top-left corner, while the window is moved
    // here rather than by the window manager.
    std::optional<QPoint> m_pressOffset;
    // Whether the window manager was asked to move the window for the current press.
    bool m_handedOver = false;
};

} // namespace ambrel
