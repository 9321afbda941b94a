#pragma once

#include <QAbstractButton>
#include <QString>

#include "views/ActivitySpinner.h"

namespace ambrel {

// A plain button: no frame or background, only a symbol in the secondary colour, clickable over
// its whole fixed rectangle. While busy it shows a spinner instead of the symbol and ignores
// clicks.
class IconButton final : public QAbstractButton {
    Q_OBJECT

public:
    // `symbolSize` and `size` in logical pixels.
    IconButton(const Appearance& appearance, const QString& symbol, qreal symbolSize, QSize size,
               QWidget* parent = nullptr);

    const QString& symbol() const { return m_symbol; }
    void setBusy(bool busy);
    bool isBusy() const { return m_busy; }
    const ActivitySpinner* spinner() const { return m_spinner; }

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;

private:
    const Appearance& m_appearance;
    QString m_symbol;
    qreal m_symbolSize;
    QSize m_size;
    bool m_busy = false;
    ActivitySpinner* m_spinner;
};

} // namespace ambrel
