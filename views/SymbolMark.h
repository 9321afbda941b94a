#pragma once

#include <QString>
#include <QWidget>

#include "presentation/ColorRole.h"

namespace ambrel {

class Appearance;

// One symbol (a bootstrap icon) in a colour role of the look in force, in a square of its own.
class SymbolMark final : public QWidget {
    Q_OBJECT
public:
    SymbolMark(const Appearance& appearance, const QString& symbol, ColorRole role, int size,
               QWidget* parent = nullptr);

    void setSymbol(const QString& symbol, ColorRole role);
    const QString& symbol() const { return m_symbol; }
    ColorRole role() const { return m_role; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    const Appearance& m_appearance;
    QString m_symbol;
    ColorRole m_role;
};

} // namespace ambrel
