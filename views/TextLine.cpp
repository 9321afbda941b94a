#include "views/TextLine.h"

#include <QFontMetricsF>
#include <QPainter>
#include <algorithm>
#include <cmath>

#include "views/Appearance.h"

namespace ambrel {

TextLine::TextLine(const Appearance& appearance, const QFont& font, ColorRole role, Fit fit,
                   Qt::Alignment alignment, QWidget* parent)
    : QWidget(parent), m_appearance(appearance), m_role(role), m_fit(fit), m_alignment(alignment) {
    setFont(font);
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);
}

void TextLine::setText(const QString& text) {
    if (text == m_text) {
        return;
    }
    m_text = text;
    setAccessibleName(text);
    updateGeometry();
    update();
}

void TextLine::setColorRole(ColorRole role) {
    if (role != m_role) {
        m_role = role;
        update();
    }
}

void TextLine::setMinimumScale(qreal scale) {
    m_minimumScale = std::clamp<qreal>(scale, 0.1, 1.0);
    update();
}

int TextLine::naturalWidth() const {
    return static_cast<int>(std::ceil(QFontMetricsF(font()).horizontalAdvance(m_text)));
}

void TextLine::setLineHeight(int height) {
    m_lineHeight = height;
    updateGeometry();
    update();
}

int TextLine::lineHeight() const {
    return m_lineHeight > 0 ? m_lineHeight : fontMetrics().height();
}

QSize TextLine::sizeHint() const {
    return {naturalWidth(), lineHeight()};
}

QSize TextLine::minimumSizeHint() const {
    return {0, lineHeight()};
}

TextLine::Layout TextLine::layoutFor(int width) const {
    const QFontMetricsF metrics(font());
    const qreal natural = metrics.horizontalAdvance(m_text);
    if (natural <= width) {
        return {m_text, 1.0};
    }
    switch (m_fit) {
    case Fit::elideEnd:
        return {metrics.elidedText(m_text, Qt::ElideRight, width), 1.0};
    case Fit::elideMiddle:
        return {metrics.elidedText(m_text, Qt::ElideMiddle, width), 1.0};
    case Fit::shrinkThenElideEnd: {
        const qreal scale = width / natural;
        if (scale >= m_minimumScale) {
            return {m_text, scale};
        }
        return {metrics.elidedText(m_text, Qt::ElideRight, width / m_minimumScale), m_minimumScale};
    }
    }
    return {m_text, 1.0};
}

QString TextLine::displayedText() const {
    return layoutFor(width()).text;
}

qreal TextLine::displayedScale() const {
    return layoutFor(width()).scale;
}

void TextLine::paintEvent(QPaintEvent*) {
    if (m_text.isEmpty()) {
        return;
    }
    const Layout layout = layoutFor(width());
    const QFontMetricsF metrics(font());
    const qreal textWidth = metrics.horizontalAdvance(layout.text) * layout.scale;
    qreal x = 0;
    if (m_alignment & Qt::AlignHCenter) {
        x = (width() - textWidth) / 2.0;
    } else if (m_alignment & Qt::AlignRight) {
        x = width() - textWidth;
    }
    qreal baseline =
        (height() - metrics.height() * layout.scale) / 2.0 + metrics.ascent() * layout.scale;
    if (metrics.height() * layout.scale > height()) {
        // The font's line is taller than the room: centre the capitals and descenders, the
        // same for every text so that lines side by side share their baseline.
        const QRectF ink = metrics.tightBoundingRect(QStringLiteral("Hg"));
        baseline = height() / 2.0 - (ink.top() + ink.bottom()) / 2.0 * layout.scale;
    }

    QPainter painter(this);
    painter.setRenderHint(QPainter::TextAntialiasing);
    painter.setPen(m_appearance.color(m_role));
    painter.translate(x, baseline);
    painter.scale(layout.scale, layout.scale);
    painter.drawText(QPointF(0, 0), layout.text);
}

} // namespace ambrel
