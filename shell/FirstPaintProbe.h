#pragma once

#include <QObject>

namespace ambrel {

// Prints "first-paint <seconds>" (CLOCK_MONOTONIC) to standard error once the watched widget
// has painted for the first time, then removes itself: "--report-first-paint", for measuring how
// fast the card appears.
class FirstPaintProbe final : public QObject {
public:
    static constexpr const char* kSwitch = "--report-first-paint";

    // Watches `widget` until its first paint.
    static void install(QObject* widget);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    using QObject::QObject;
    bool m_reported = false;
};

} // namespace ambrel
