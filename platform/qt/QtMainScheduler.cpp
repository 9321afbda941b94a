#include "platform/qt/QtMainScheduler.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include <QCoreApplication>
#include <QMetaObject>
#include <QPointer>
#include <QThread>
#include <QTimer>

namespace ambrel {

class QtTimer final : public Timer, public std::enable_shared_from_this<QtTimer> {
public:
    using Registry = std::set<std::shared_ptr<QtTimer>>;

    QtTimer(std::weak_ptr<Registry> registry, std::function<void()> action)
        : m_registry(std::move(registry)), m_action(std::move(action)), m_timer(new QTimer) {}

    ~QtTimer() override {
        // The last owner may let go on another thread; a QTimer can only be stopped on its own,
        // but deleteLater is safe from any, and a firing meanwhile finds this timer gone.
        if (m_timer) {
            if (m_timer->thread() == QThread::currentThread()) {
                m_timer->stop();
            }
            m_timer->deleteLater();
        }
    }

    void start(double seconds, TimerRepeat repeat) {
        const double milliseconds = std::clamp(std::round(seconds * 1000.0), 0.0, 2147483647.0);
        m_timer->setTimerType(Qt::PreciseTimer);
        m_timer->setSingleShot(repeat == TimerRepeat::once);
        std::weak_ptr<QtTimer> weakSelf = shared_from_this();
        QObject::connect(m_timer, &QTimer::timeout, m_timer, [weakSelf] {
            if (auto self = weakSelf.lock()) {
                self->fire();
            }
        });
        m_timer->start(static_cast<int>(milliseconds));
    }

    void invalidate() override {
        if (!m_valid) {
            return;
        }
        m_valid = false;
        if (m_timer) {
            m_timer->stop();
        }
        forget();
    }

    bool isValid() const override { return m_valid; }

private:
    void fire() {
        if (!m_valid) {
            return;
        }
        // Keep this timer alive through the action even if the registry lets it go.
        auto keepAlive = shared_from_this();
        if (m_timer && m_timer->isSingleShot()) {
            m_valid = false;
            forget();
        }
        m_action();
    }

    void forget() {
        if (auto registry = m_registry.lock()) {
            registry->erase(shared_from_this());
        }
    }

    std::weak_ptr<Registry> m_registry;
    std::function<void()> m_action;
    QPointer<QTimer> m_timer;
    bool m_valid = true;
};

QtMainScheduler::QtMainScheduler()
    : m_live(std::make_shared<std::set<std::shared_ptr<QtTimer>>>()) {}

QtMainScheduler::~QtMainScheduler() = default;

std::shared_ptr<Timer> QtMainScheduler::scheduleTimer(double seconds, TimerRepeat repeat,
                                                      std::function<void()> action) {
    auto timer = std::make_shared<QtTimer>(m_live, std::move(action));
    m_live->insert(timer);
    timer->start(seconds, repeat);
    return timer;
}

void QtMainScheduler::post(std::function<void()> task) {
    QCoreApplication* application = QCoreApplication::instance();
    if (application == nullptr) {
        return;
    }
    QMetaObject::invokeMethod(application, std::move(task), Qt::QueuedConnection);
}

} // namespace ambrel
