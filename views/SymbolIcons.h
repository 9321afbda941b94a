#pragma once

#include <QColor>
#include <QIcon>
#include <QPixmap>
#include <QRectF>
#include <QString>

#include "presentation/GaugeSymbol.h"

class QPainter;

namespace ambrel::SymbolIcons {

// The icons are bootstrap-icons SVGs built into the program (":/ambrel/icons/<name>.svg"),
// drawn in a single colour. Main thread only.

// The icon's name for a gauge symbol.
QString nameOf(GaugeSymbol symbol);

// The icon `name` drawn into a square of `size` logical pixels in `color`, for a device pixel
// ratio of `devicePixelRatio`. Drawings are kept and reused; an unknown name gives a null pixmap.
QPixmap tinted(const QString& name, qreal size, const QColor& color, qreal devicePixelRatio);

// Draws the icon into `target` (a square), sharp at the painter's pixel ratio.
void paint(QPainter& painter, const QRectF& target, const QString& name, const QColor& color);

// A menu icon in `color`, sharp at 1x and 2x.
QIcon menuIcon(const QString& name, const QColor& color);

} // namespace ambrel::SymbolIcons
