#include "shell/PreviewCapture.h"

#include <cmath>

#include <QDir>
#include <QImage>
#include <QPainter>
#include <QSaveFile>
#include <QWidget>

namespace ambrel::PreviewCapture {

bool capture(QWidget* content, qreal devicePixelRatio, const QString& path) {
    if (content == nullptr || path.isEmpty() || devicePixelRatio <= 0) {
        return false;
    }
    const QSize size = content->size();
    if (size.isEmpty()) {
        return false;
    }
    QImage image(static_cast<int>(std::lround(size.width() * devicePixelRatio)),
                 static_cast<int>(std::lround(size.height() * devicePixelRatio)),
                 QImage::Format_ARGB32_Premultiplied);
    if (image.isNull()) {
        return false;
    }
    image.setDevicePixelRatio(devicePixelRatio);
    image.fill(Qt::transparent);
    {
        QPainter painter(&image);
        // Children only: the panel has no background of its own beyond the card's glass.
        content->render(&painter, QPoint(), QRegion(), QWidget::DrawChildren);
    }
    QSaveFile file(QDir::current().absoluteFilePath(path));
    if (!file.open(QIODevice::WriteOnly)) {
        return false;
    }
    if (!image.save(&file, "PNG")) {
        file.cancelWriting();
        return false;
    }
    return file.commit();
}

} // namespace ambrel::PreviewCapture
