#include "views/GaugeRing.h"

#include <QPainter>
#include <cmath>

#include "presentation/DeviceBatteryGaugeModel.h"
#include "views/Appearance.h"
#include "views/GaugeCentreLayout.h"
#include "views/PixelRatio.h"
#include "views/SymbolIcons.h"
#include "views/ViewStyle.h"

namespace ambrel {

namespace {

constexpr qreal kTrackOpacity = 0.1;

QColor withOpacity(QColor color, qreal opacity) {
    color.setAlphaF(color.alphaF() * opacity);
    return color;
}

// The faint full-circle track, alike in every gauge: stroked once per size, look and pixel
// ratio, since a translucent stroke is slow to rasterize. Main thread only.
const QImage& trackDrawing(QSize size, const QRectF& circle, double ratio, Look look) {
    struct Drawing {
        QSize size;
        QRectF circle;
        double ratio = 0.0;
        Look look = Look::light;
        QImage image;
    };
    static Drawing cached;
    if (cached.image.isNull() || cached.size != size || cached.circle != circle ||
        cached.ratio != ratio || cached.look != look) {
        QImage image((QSizeF(size) * ratio).toSize(), QImage::Format_ARGB32_Premultiplied);
        image.setDevicePixelRatio(ratio);
        image.fill(Qt::transparent);
        QPainter painter(&image);
        painter.setRenderHint(QPainter::Antialiasing);
        painter.setBrush(Qt::NoBrush);
        painter.setPen(QPen(withOpacity(Appearance::color(ColorRole::primary, look), kTrackOpacity),
                            GaugeRing::kLineWidth, Qt::SolidLine, Qt::FlatCap));
        painter.drawEllipse(circle);
        painter.end();
        cached = Drawing{size, circle, ratio, look, std::move(image)};
    }
    return cached.image;
}

} // namespace

GaugeRing::GaugeRing(const ViewStyle& style, QWidget* parent)
    : QWidget(parent), m_appearance(style.appearance),
      m_numberFont(style.fonts.system(16, QFont::DemiBold)),
      m_percentFont(style.fonts.system(9, QFont::Medium)) {
    setFixedSize(kRingSize + 2 * kPadding, kRingSize + 2 * kPadding);
}

void GaugeRing::setModel(const DeviceBatteryGaugeModel& model) {
    Face face;
    face.showsArc = model.showsArc();
    face.fillFraction = model.fillFraction();
    face.arcColor = model.gaugeColor();
    face.arcOpacity = model.arcOpacity();
    face.deviceSymbol = model.deviceSymbol();
    face.deviceSymbolColor = model.deviceSymbolColor();
    face.number = QString::fromStdString(model.numberText());
    face.numberColor = model.numberColor();
    face.showsPercentSign = model.showsPercentSign();
    face.powerSymbol = model.powerSymbol();
    setAccessibleName(QString::fromStdString(model.accessibilityLabel()));
    // The clock passes the same model twice a minute: nothing to draw then.
    if (!(face == m_face)) {
        m_face = std::move(face);
        m_drawing = QImage();
        update();
    }
}

void GaugeRing::setFace(const Face& face) {
    m_face = face;
    m_drawing = QImage();
    update();
}

QPointF GaugeRing::circleCentre() const {
    return {width() / 2.0, height() / 2.0};
}

GaugeCentreLayout GaugeRing::centreLayout(QPaintDevice* device) const {
    const GaugeCentreLayout::Content content{m_face.number, m_face.showsPercentSign,
                                             m_face.powerSymbol.has_value()};
    const GaugeCentreLayout::Ring ring{circleCentre(), circleRadius() - kLineWidth / 2.0};
    return GaugeCentreLayout::compute(content, ring, m_numberFont, m_percentFont, device);
}

qreal GaugeRing::circleRadius() const {
    // The stroke is centred on the circle; keeping its outer edge on the padded frame keeps the
    // whole band inside the widget instead of clipping its outermost sliver.
    return kRingSize / 2.0 + kPadding - kLineWidth / 2.0;
}

void GaugeRing::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    const double ratio = pixelRatio(painter);
    const Look look = m_appearance.look();
    if (m_drawing.isNull() || m_drawingRatio != ratio || m_drawingLook != look) {
        m_drawing = QImage((QSizeF(size()) * ratio).toSize(), QImage::Format_ARGB32_Premultiplied);
        m_drawing.setDevicePixelRatio(ratio);
        m_drawing.fill(Qt::transparent);
        QPainter drawing(&m_drawing);
        drawRing(drawing, ratio, look);
        m_drawingRatio = ratio;
        m_drawingLook = look;
    }
    painter.drawImage(QPointF(0, 0), m_drawing);
}

void GaugeRing::drawRing(QPainter& painter, double ratio, Look look) const {
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);

    const QPointF centre = circleCentre();
    const qreal radius = circleRadius();
    const QRectF circle(centre.x() - radius, centre.y() - radius, 2 * radius, 2 * radius);

    painter.drawImage(QPointF(0, 0), trackDrawing(size(), circle, ratio, look));

    if (m_face.showsArc && m_face.fillFraction > 0.0) {
        painter.save();
        painter.setOpacity(m_face.arcOpacity);
        painter.setPen(QPen(Appearance::color(m_face.arcColor, look), kLineWidth, Qt::SolidLine,
                            Qt::RoundCap));
        // Qt's angles run counter-clockwise from three o'clock in sixteenths of a degree: start
        // at twelve and sweep clockwise (negative).
        const int span = -static_cast<int>(std::lround(m_face.fillFraction * 360.0 * 16.0));
        painter.drawArc(circle, 90 * 16, span);
        painter.restore();
    }

    // The centre: the device icon above the number row, the pair centred in the ring.
    const GaugeCentreLayout centreLayout = this->centreLayout(painter.device());
    SymbolIcons::paint(painter, centreLayout.deviceSymbol, SymbolIcons::nameOf(m_face.deviceSymbol),
                       Appearance::color(m_face.deviceSymbolColor, look));

    painter.save();
    painter.setTransform(centreLayout.rowTransform, true);
    painter.setFont(m_numberFont);
    painter.setPen(Appearance::color(m_face.numberColor, look));
    painter.drawText(centreLayout.numberOrigin, m_face.number);
    if (m_face.showsPercentSign) {
        painter.setFont(m_percentFont);
        painter.setPen(Appearance::color(ColorRole::secondary, look));
        painter.drawText(centreLayout.percentOrigin, QStringLiteral("%"));
    }
    painter.restore();
    if (m_face.powerSymbol) {
        // Drawn into its square as mapped, so the icon is rasterized at the size it shows.
        SymbolIcons::paint(painter, centreLayout.rowTransform.mapRect(centreLayout.powerSymbol),
                           SymbolIcons::nameOf(*m_face.powerSymbol),
                           Appearance::color(m_face.arcColor, look));
    }
}

} // namespace ambrel
