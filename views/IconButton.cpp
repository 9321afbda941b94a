#include "views/IconButton.h"

#include <QPainter>

#include "views/Appearance.h"
#include "views/SymbolIcons.h"

namespace ambrel {

IconButton::IconButton(const Appearance& appearance, const QString& symbol, qreal symbolSize,
                       QSize size, QWidget* parent)
    : QAbstractButton(parent), m_appearance(appearance), m_symbol(symbol), m_symbolSize(symbolSize),
      m_size(size), m_spinner(new ActivitySpinner(appearance, this)) {
    setFixedSize(size);
    setFocusPolicy(Qt::NoFocus);
    m_spinner->hide();
}

void IconButton::setBusy(bool busy) {
    if (busy == m_busy) {
        return;
    }
    m_busy = busy;
    setEnabled(!busy);
    m_spinner->setVisible(busy);
    if (busy) {
        m_spinner->start();
    } else {
        m_spinner->stop();
    }
    update();
}

QSize IconButton::sizeHint() const {
    return m_size;
}

void IconButton::resizeEvent(QResizeEvent* event) {
    QAbstractButton::resizeEvent(event);
    m_spinner->move((width() - m_spinner->width()) / 2, (height() - m_spinner->height()) / 2);
}

void IconButton::paintEvent(QPaintEvent*) {
    if (m_busy) {
        return;
    }
    QPainter painter(this);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    // A pressed button dims, as plain buttons do.
    if (isDown()) {
        painter.setOpacity(0.55);
    }
    const QRectF target((width() - m_symbolSize) / 2.0, (height() - m_symbolSize) / 2.0,
                        m_symbolSize, m_symbolSize);
    SymbolIcons::paint(painter, target, m_symbol, m_appearance.color(ColorRole::secondary));
}

} // namespace ambrel
