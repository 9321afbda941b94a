#include "views/SymbolMark.h"

#include <QPainter>

#include "views/Appearance.h"
#include "views/SymbolIcons.h"

namespace ambrel {

SymbolMark::SymbolMark(const Appearance& appearance, const QString& symbol, ColorRole role,
                       int size, QWidget* parent)
    : QWidget(parent), m_appearance(appearance), m_symbol(symbol), m_role(role) {
    setFixedSize(size, size);
}

void SymbolMark::setSymbol(const QString& symbol, ColorRole role) {
    m_symbol = symbol;
    m_role = role;
    update();
}

void SymbolMark::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    SymbolIcons::paint(painter, QRectF(rect()), m_symbol, m_appearance.color(m_role));
}

} // namespace ambrel
