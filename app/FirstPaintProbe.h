#pragma once

#include <QObject>

namespace ambrel {

// Prints "first-paint <seconds>" (CLOCK_MONOTONIC) to standard error once the watched widget
// has painted for the first time, then removes itself. Installed only when the environment
// asks for it (TOVRIN_REPORT_FIRST_PAINT=1), for measuring how fast the card appears.
class FirstPaintProbe final : public QObject {
public:
    static constexpr const char* kEnvironmentVariable = "TOVRIN_REPORT_FIRST_PAINT";

    // Watches `widget` when the environment asks for it; otherwise does nothing.
    static void installIfRequested(QObject* widget);

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    using QObject::QObject;
    bool m_reported = false;
};

} // namespace ambrel
