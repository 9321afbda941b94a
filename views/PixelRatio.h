#pragma once

class QPainter;

namespace ambrel {

// Device pixels per logical pixel for what `painter` draws now. Drawing a widget into an image
// (QWidget::render) scales the painter rather than reporting the image's ratio as the device's,
// so both are looked at.
double pixelRatio(const QPainter& painter);

} // namespace ambrel
