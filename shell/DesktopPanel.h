#pragma once

#include <functional>

#include <QString>
#include <QWidget>

namespace ambrel {

// The widget's window: frameless, transparent outside the card's own glass, no shadow, fixed at
// 360 x 170, below application windows on every workspace and out of taskbars and pagers. It
// never takes keyboard focus (its menu does, while open). A left press anywhere on the card that no
// control takes (gauges, texts, bare glass) moves the window, as the title's drag region does.
class DesktopPanel final : public QWidget {
public:
    explicit DesktopPanel(const QString& title, QWidget* parent = nullptr);

    // Puts `content` (the card) over the whole panel; the panel takes ownership.
    void setContent(QWidget* content);
    QWidget* content() const { return m_content; }

    // Shows the panel and raises it within its layer, without taking focus from other windows.
    void bringToFront();

    // Told after every move of the panel: `settled` when the move is over (a move while no
    // button is held, such as the window manager's last one, or the end of a drag that moved
    // it), not while a drag goes on.
    void setMovedHandler(std::function<void(bool settled)> handler) {
        m_moved = std::move(handler);
    }

protected:
    void moveEvent(QMoveEvent* event) override;
    void showEvent(QShowEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void dragEnded();

    QWidget* m_content = nullptr;
    std::function<void(bool)> m_moved;
    // A left press on the panel went down and its drag has not ended yet.
    bool m_dragging = false;
    bool m_movedWhileDragging = false;
};

} // namespace ambrel
