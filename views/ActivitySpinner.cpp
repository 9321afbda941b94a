#include "views/ActivitySpinner.h"

#include <QPainter>
#include <cmath>
#include <numbers>

#include "views/Appearance.h"

namespace ambrel {

namespace {

constexpr int kSpokes = 8;
// One turn a second, as the system spinners go.
constexpr int kTickMilliseconds = 1000 / kSpokes;
constexpr int kSize = 12;

} // namespace

ActivitySpinner::ActivitySpinner(const Appearance& appearance, QWidget* parent)
    : QWidget(parent), m_appearance(appearance) {
    setFixedSize(kSize, kSize);
    // An animation, not a promise of time: a coarse timer lets the system batch its wake-ups.
    m_timer.setTimerType(Qt::CoarseTimer);
    m_timer.setInterval(kTickMilliseconds);
    connect(&m_timer, &QTimer::timeout, this, [this] {
        m_phase = (m_phase + 1) % kSpokes;
        update();
    });
}

void ActivitySpinner::start() {
    if (!m_timer.isActive()) {
        m_timer.start();
    }
}

void ActivitySpinner::stop() {
    m_timer.stop();
}

QSize ActivitySpinner::sizeHint() const {
    return {kSize, kSize};
}

void ActivitySpinner::paintEvent(QPaintEvent*) {
    QPainter painter(this);
    painter.setRenderHint(QPainter::Antialiasing);
    const QColor base = m_appearance.color(ColorRole::secondary);
    const QPointF centre(width() / 2.0, height() / 2.0);
    const qreal outer = std::min(width(), height()) / 2.0 - 0.75;
    const qreal inner = outer * 0.45;
    for (int spoke = 0; spoke < kSpokes; ++spoke) {
        // The leading spoke is the strongest; the ones behind it fade out.
        const int behind = (m_phase - spoke + kSpokes) % kSpokes;
        QColor color = base;
        color.setAlphaF(base.alphaF() * (1.0 - 0.8 * behind / (kSpokes - 1)));
        QPen pen(color, 1.5, Qt::SolidLine, Qt::RoundCap);
        painter.setPen(pen);
        const qreal angle = 2.0 * std::numbers::pi * spoke / kSpokes;
        const QPointF direction(std::sin(angle), -std::cos(angle));
        painter.drawLine(centre + direction * inner, centre + direction * outer);
    }
}

} // namespace ambrel
