#include "tests/views/ViewTestSupport.h"

#include <QApplication>
#include <QLayout>
#include <cmath>
#include <cstdlib>
#include <utility>

namespace ambrel::testing {

TestStyle::TestStyle(ViewFonts fonts, std::string brandName)
    : m_appearance(*QCoreApplication::instance()), m_style{m_appearance, std::move(fonts),
                                                           WidgetBrand::brandName(
                                                               std::move(brandName))} {}

void showAndSettle(QWidget& widget) {
    widget.show();
    if (widget.layout()) {
        widget.layout()->activate();
    }
    QApplication::processEvents();
}

QImage renderWidget(QWidget& widget, qreal devicePixelRatio, Background background) {
    const QSize pixels = (QSizeF(widget.size()) * devicePixelRatio).toSize();
    QImage image(pixels, QImage::Format_ARGB32_Premultiplied);
    image.setDevicePixelRatio(devicePixelRatio);
    image.fill(Qt::transparent);
    const QWidget::RenderFlags flags = background == Background::window
                                           ? QWidget::DrawWindowBackground | QWidget::DrawChildren
                                           : QWidget::DrawChildren;
    widget.render(&image, QPoint(), QRegion(), flags);
    return image;
}

QColor pixelAt(const QImage& image, QPointF logicalPoint) {
    const qreal ratio = image.devicePixelRatio();
    const QPoint pixel(static_cast<int>(std::floor(logicalPoint.x() * ratio)),
                       static_cast<int>(std::floor(logicalPoint.y() * ratio)));
    return image.pixelColor(pixel);
}

bool closeTo(const QColor& actual, const QColor& expected, int tolerance) {
    return std::abs(actual.red() - expected.red()) <= tolerance &&
           std::abs(actual.green() - expected.green()) <= tolerance &&
           std::abs(actual.blue() - expected.blue()) <= tolerance;
}

} // namespace ambrel::testing
