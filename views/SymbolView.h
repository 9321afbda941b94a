#pragma once

#include <QString>
#include <QWidget>

namespace ambrel {

// A symbol of a given size drawn in the accent colour, centred in the widget.
class SymbolView final : public QWidget {
    Q_OBJECT

public:
    SymbolView(const QString& symbol, qreal symbolSize, QSize size, QWidget* parent = nullptr);

    const QString& symbol() const { return m_symbol; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    QString m_symbol;
    qreal m_symbolSize;
};

} // namespace ambrel
