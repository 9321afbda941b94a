#include "shell/FirstPaintProbe.h"

#include <cstdio>
#include <ctime>

#include <QEvent>
#include <QTimer>

namespace ambrel {

void FirstPaintProbe::install(QObject* widget) {
    if (widget == nullptr) {
        return;
    }
    widget->installEventFilter(new FirstPaintProbe(widget));
}

bool FirstPaintProbe::eventFilter(QObject* watched, QEvent* event) {
    if (event->type() == QEvent::Paint && !m_reported) {
        m_reported = true;
        // Stamped once the event loop comes back, after this paint has been flushed.
        QTimer::singleShot(0, this, [this, watched] {
            timespec now{};
            clock_gettime(CLOCK_MONOTONIC, &now);
            std::fprintf(stderr, "first-paint %lld.%06ld\n", static_cast<long long>(now.tv_sec),
                         now.tv_nsec / 1000);
            std::fflush(stderr);
            watched->removeEventFilter(this);
            deleteLater();
        });
    }
    return false;
}

} // namespace ambrel
