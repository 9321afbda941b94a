#include "views/SymbolIcons.h"

#include "views/PixelRatio.h"

#include <QHash>
#include <QPainter>
#include <QSvgRenderer>
#include <cmath>

namespace ambrel::SymbolIcons {

namespace {

// Enough for every icon in both looks at two pixel ratios; cleared wholesale when exceeded.
constexpr qsizetype kCacheLimit = 256;

QString cacheKey(const QString& name, int pixels, const QColor& color) {
    return name + QLatin1Char('|') + QString::number(pixels) + QLatin1Char('|') +
           QString::number(color.rgba(), 16);
}

} // namespace

QString nameOf(GaugeSymbol symbol) {
    switch (symbol) {
    case GaugeSymbol::laptop:
        return QStringLiteral("laptop");
    case GaugeSymbol::phone:
        return QStringLiteral("phone");
    case GaugeSymbol::charging:
        return QStringLiteral("lightning-charge-fill");
    case GaugeSymbol::pluggedIn:
        return QStringLiteral("plug-fill");
    }
    return {};
}

QPixmap tinted(const QString& name, qreal size, const QColor& color, qreal devicePixelRatio) {
    static QHash<QString, QPixmap> cache;
    const int pixels = std::max(1, static_cast<int>(std::lround(size * devicePixelRatio)));
    const QString key = cacheKey(name, pixels, color);
    if (const auto found = cache.constFind(key); found != cache.constEnd()) {
        QPixmap pixmap = found.value();
        pixmap.setDevicePixelRatio(devicePixelRatio);
        return pixmap;
    }
    QSvgRenderer renderer(QStringLiteral(":/ambrel/icons/") + name + QStringLiteral(".svg"));
    if (!renderer.isValid()) {
        return {};
    }
    QImage image(pixels, pixels, QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    {
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        renderer.render(&painter, QRectF(0, 0, pixels, pixels));
        // Keep the icon's coverage and take the colour (and its opacity) from `color`.
        painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
        painter.fillRect(image.rect(), color);
    }
    QPixmap pixmap = QPixmap::fromImage(std::move(image));
    if (cache.size() >= kCacheLimit) {
        cache.clear();
    }
    cache.insert(key, pixmap);
    pixmap.setDevicePixelRatio(devicePixelRatio);
    return pixmap;
}

void paint(QPainter& painter, const QRectF& target, const QString& name, const QColor& color) {
    const qreal ratio = pixelRatio(painter);
    const QPixmap pixmap = tinted(name, target.width(), color, ratio);
    if (!pixmap.isNull()) {
        painter.drawPixmap(target, pixmap, QRectF(pixmap.rect()));
    }
}

QIcon menuIcon(const QString& name, const QColor& color) {
    QIcon icon;
    for (const qreal ratio : {1.0, 2.0}) {
        icon.addPixmap(tinted(name, 16, color, ratio));
    }
    return icon;
}

} // namespace ambrel::SymbolIcons
