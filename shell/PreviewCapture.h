#pragma once

#include <QString>

class QWidget;

namespace ambrel::PreviewCapture {

// Renders `content` (the panel's whole content: glass and card) at `devicePixelRatio` into a PNG
// at `path` (relative to the current folder), replacing any file there. Works for a hidden
// widget as well: it draws the widget, it does not grab the screen. Every failure is silent;
// the result only says whether the file was written.
bool capture(QWidget* content, qreal devicePixelRatio, const QString& path);

} // namespace ambrel::PreviewCapture
