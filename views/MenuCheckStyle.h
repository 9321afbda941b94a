#pragma once

#include <QProxyStyle>

namespace ambrel {

// The card menu's style: the platform's own, except for the box of an entry that can be ticked
// (Start at Login, Low Battery Alerts). The usual box takes its edge from the window colour a
// shade darker, which on the dark menu is all but invisible, so an unticked entry looked like a
// plain one. Here the box is drawn from the text colour: an outline when unticked, filled with
// the accent and ticked in white when ticked.
class MenuCheckStyle final : public QProxyStyle {
public:
    // On the application's own style.
    MenuCheckStyle() = default;

    void drawPrimitive(PrimitiveElement element, const QStyleOption* option, QPainter* painter,
                       const QWidget* widget = nullptr) const override;
};

} // namespace ambrel
