#pragma once

#include <QTimer>
#include <QWidget>

namespace ambrel {

class Appearance;

// A small indeterminate spinner: spokes of fading strength turning around. Its timer runs only
// between start() and stop(), so an idle card has no animation running.
class ActivitySpinner final : public QWidget {
    Q_OBJECT

public:
    explicit ActivitySpinner(const Appearance& appearance, QWidget* parent = nullptr);

    void start();
    void stop();
    bool isAnimating() const { return m_timer.isActive(); }
    // The spoke currently drawn strongest; moves on at every tick.
    int phase() const { return m_phase; }

    QSize sizeHint() const override;

protected:
    void paintEvent(QPaintEvent* event) override;

private:
    const Appearance& m_appearance;
    QTimer m_timer;
    int m_phase = 0;
};

} // namespace ambrel
