#pragma once

#include <functional>

#include <QString>
#include <QWidget>

namespace ambrel {

// The widget's window: frameless, transparent outside the card's own glass, no shadow, fixed at
// 360 x 170, below application windows on every workspace and out of taskbars and pagers. It
// takes keyboard focus for the card's controls. A left press anywhere on the card that no control
// takes (gauges, texts, bare glass) moves the window, as the title's drag region does.
class DesktopPanel final : public QWidget {
public:
    explicit DesktopPanel(const QString& title, QWidget* parent = nullptr);

    // Puts `content` (the card) over the whole panel; the panel takes ownership.
    void setContent(QWidget* content);
    QWidget* content() const { return m_content; }

    // Shows the panel and raises it within its layer, without taking focus from other windows.
    void bringToFront();

    // Told after every move of the panel.
    void setMovedHandler(std::function<void()> handler) { m_moved = std::move(handler); }

protected:
    void moveEvent(QMoveEvent* event) override;
    void showEvent(QShowEvent* event) override;

private:
    QWidget* m_content = nullptr;
    std::function<void()> m_moved;
};

} // namespace ambrel
