#pragma once

#include <QWidget>

namespace ambrel {

// The product's mark: two tilted pills side by side, the left one outlined and a little
// higher, the right one filled and a little lower, standing for the two paired devices. Always
// 16 x 16, in the accent colour.
class PairedCellMark final : public QWidget {
    Q_OBJECT

public:
    explicit PairedCellMark(QWidget* parent = nullptr);

    static constexpr int kSize = 16;

protected:
    void paintEvent(QPaintEvent* event) override;
};

} // namespace ambrel
