#pragma once

#include <optional>

#include <QPoint>

class QMouseEvent;
class QWidget;

namespace ambrel {

// Moving a borderless window with a left press on one of its widgets: the press hands the window
// to the window manager as the start of an interactive move, already on the first click. Where
// the window manager cannot take the move over, the window follows the pointer while the button
// is held. The widget passes its mouse events on; what is not a drag goes back to it.
class WindowDrag {
public:
    // True when `event` was a left press on `widget` and started a move (the event is taken).
    bool press(QWidget& widget, QMouseEvent* event);
    // True when it moved the window itself (the event is taken).
    bool move(QWidget& widget, QMouseEvent* event);
    void release(const QMouseEvent* event);

private:
    // Where the press was, relative to the window's top-left corner, while the window is moved
    // here rather than by the window manager.
    std::optional<QPoint> m_pressOffset;
};

} // namespace ambrel
