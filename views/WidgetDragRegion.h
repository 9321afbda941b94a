#pragma once

#include <QWidget>

namespace ambrel {

// An invisible surface under the card's title that moves the borderless window: a left press
// hands the window to the window manager as the start of an interactive move, already on the
// first click. Where the window manager cannot take the move over, the region moves the window
// itself while the button is held. It draws nothing, so the glass shows through.
class WidgetDragRegion final : public QWidget {
    Q_OBJECT

public:
    explicit WidgetDragRegion(QWidget* parent = nullptr);

Q_SIGNALS:
    // A left press has started a window move (by the window manager or by the region).
    void moveStarted();
};

} // namespace ambrel
