#pragma once

#include <QFont>
#include <QPointF>
#include <QRectF>
#include <QString>
#include <QTransform>

class QPaintDevice;

namespace ambrel {

// Where the middle of a gauge's ring goes: the device icon above the number row ("54", "%",
// the power symbol). The row keeps its stated sizes when its drawn extent clears the inside
// of the ring's stroke; when a wide font would reach the stroke, the row is drawn smaller as a
// whole, down to kMinimumRowScale. Both the ring's painting and its tests use this, so the
// geometry checked is the geometry drawn.
struct GaugeCentreLayout {
    // What the centre shows.
    struct Content {
        QString number;
        bool showsPercentSign = false;
        bool showsPowerSymbol = false;
    };

    // The circle the stroke follows and the room it leaves inside, in the ring's logical pixels.
    struct Ring {
        QPointF centre;
        qreal innerRadius = 0.0;
    };

    static constexpr qreal kDeviceSymbolSize = 18;
    static constexpr qreal kPowerSymbolSize = 8;
    static constexpr qreal kCentreSpacing = 2;
    static constexpr qreal kRowSpacing = 1;
    // The least gap kept between anything drawn in the middle and the stroke's inner edge:
    // enough that antialiasing of the glyphs and of the stroke never meet.
    static constexpr qreal kClearance = 1.5;
    // The row is never drawn smaller than this share of its stated size.
    static constexpr qreal kMinimumRowScale = 0.8;

    // The device icon's square, in ring coordinates.
    QRectF deviceSymbol;
    // The row's scale (1 at the stated sizes) and the map from row coordinates (the number's
    // baseline at y = 0, its start at x = 0) to ring coordinates.
    qreal rowScale = 1.0;
    QTransform rowTransform;
    // Where each part starts on the row's baseline, and the power symbol's square, in row
    // coordinates.
    QPointF numberOrigin;
    QPointF percentOrigin;
    QRectF powerSymbol;
    // What the row draws (the glyphs' ink and the symbol's square), in ring coordinates.
    QRectF rowBounds;

    // The layout for `content` in `ring`, measuring the fonts as `device` draws them (null:
    // as the screen does).
    static GaugeCentreLayout compute(const Content& content, const Ring& ring,
                                     const QFont& numberFont, const QFont& percentFont,
                                     QPaintDevice* device = nullptr);

    // The largest distance from the ring's centre of any corner of `rect`.
    static qreal farthestCorner(const QRectF& rect, QPointF centre);
};

} // namespace ambrel
