#include "views/SymbolView.h"

#include <QPainter>

#include "views/Appearance.h"
#include "views/SymbolIcons.h"

namespace ambrel {

SymbolView::SymbolView(const QString& symbol, qreal symbolSize, QSize size, QWidget* parent)
    : QWidget(parent), m_symbol(symbol), m_symbolSize(symbolSize) {
    setFixedSize(size);
}

void SymbolView::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    const QRectF target((width() - m_symbolSize) / 2.0, (height() - m_symbolSize) / 2.0,
                        m_symbolSize, m_symbolSize);
    SymbolIcons::paint(painter, target, m_symbol, Appearance::accent());
}

} // namespace ambrel
