#pragma once

#include <QWidget>

namespace ambrel {

class Appearance;

// A faintly filled box with continuous rounded corners (radius 10) behind its contents, which
// it pads by 13 on every side. Put the contents in layout().
class RoundedBox final : public QWidget {
    Q_OBJECT

public:
    explicit RoundedBox(const Appearance& appearance, QWidget* parent = nullptr);

    static constexpr int kPadding = 13;
    static constexpr qreal kRadius = 10;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    const Appearance& m_appearance;
};

} // namespace ambrel
