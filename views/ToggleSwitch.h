#pragma once

#include <QAbstractButton>

namespace ambrel {

class Appearance;

// An on/off switch: a pill in the desktop's accent colour when on, faint when off, with a round
// knob at the side it is set to. Checkable; Space toggles it when it has the focus.
class ToggleSwitch final : public QAbstractButton {
    Q_OBJECT
public:
    explicit ToggleSwitch(const Appearance& appearance, QWidget* parent = nullptr);

    static constexpr QSize kSize{38, 22};
    QSize sizeHint() const override { return kSize; }

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    const Appearance& m_appearance;
};

} // namespace ambrel
