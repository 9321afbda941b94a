#include "platform/qt/QtMainScheduler.h"

#include <algorithm>
#include <chrono>
#include <utility>

#include <QCoreApplication>
#include <QMetaObject>
#include <QPointer>
#include <QThread>

#include "platform/qt/DeadlineTimer.h"

namespace ambrel {

namespace {

// About 68 years: past any use, and well inside the clock's range.
constexpr double kLongestSeconds = 2147483647.0;

} // namespace

class QtTimer final : public Timer, public std::enable_shared_from_this<QtTimer> {
public:
    using Registry = std::set<std::shared_ptr<QtTimer>>;

    QtTimer(std::weak_ptr<Registry> registry, std::function<void()> action)
        : m_registry(std::move(registry)), m_action(std::move(action)) {}

    ~QtTimer() override {
        // The last owner may let go on another thread; a Qt timer can only be stopped on its own,
        // but deleteLater is safe from any, and a firing meanwhile finds this timer gone.
        if (m_timer) {
            if (m_timer->thread() == QThread::currentThread()) {
                m_timer->stop();
            }
            m_timer->deleteLater();
        }
    }

    void start(double seconds, TimerRepeat repeat) {
        // Rounded up to the clock's tick, so a fraction of a nanosecond never makes it early.
        const double bounded = seconds > 0.0 ? std::min(seconds, kLongestSeconds) : 0.0;
        const auto interval = std::chrono::ceil<DeadlineTimer::Clock::duration>(
            std::chrono::duration<double>(bounded));
        std::weak_ptr<QtTimer> weakSelf = shared_from_this();
        m_timer = new DeadlineTimer([weakSelf] {
            if (auto self = weakSelf.lock()) {
                self->fire();
            }
        });
        m_timer->start(interval, repeat);
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
        if (m_timer && m_timer->repeat() == TimerRepeat::once) {
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
    QPointer<DeadlineTimer> m_timer;
    bool m_valid = true;
};

QtMainScheduler::QtMainScheduler()
    : m_live(std::make_shared<std::set<std::shared_ptr<QtTimer>>>()) {}

QtMainScheduler::~QtMainScheduler() = default;

std::shared_ptr<Timer> QtMainScheduler::scheduleTimer(TimerDelay delay, TimerRepeat repeat,
                                                      std::function<void()> action) {
    auto timer = std::make_shared<QtTimer>(m_live, std::move(action));
    m_live->insert(timer);
    timer->start(delay.count(), repeat);
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
