// The floor the widget's footprint is measured against: the least a Qt Widgets program does to
// show a frameless window with one label. With --report-first-paint it prints
// "first-paint <seconds>" (CLOCK_MONOTONIC) to standard error after its first paint, as the
// widget does.

#include <cstdio>
#include <ctime>

#include <QApplication>
#include <QEvent>
#include <QLabel>
#include <QTimer>

namespace {

class FirstPaint final : public QObject {
public:
    using QObject::QObject;

protected:
    bool eventFilter(QObject*, QEvent* event) override {
        if (event->type() == QEvent::Paint && !m_seen) {
            m_seen = true;
            QTimer::singleShot(0, [] {
                timespec now{};
                clock_gettime(CLOCK_MONOTONIC, &now);
                std::fprintf(stderr, "first-paint %lld.%06ld\n", static_cast<long long>(now.tv_sec),
                             now.tv_nsec / 1000);
                std::fflush(stderr);
            });
        }
        return false;
    }

private:
    bool m_seen = false;
};

} // namespace

int main(int argc, char** argv) {
    QApplication application(argc, argv);
    QLabel label(QStringLiteral("Floor"));
    label.setWindowFlags(Qt::Window | Qt::FramelessWindowHint);
    label.resize(360, 170);
    if (QCoreApplication::arguments().contains(QStringLiteral("--report-first-paint"))) {
        label.installEventFilter(new FirstPaint(&label));
    }
    label.show();
    return QApplication::exec();
}
