#include "platform/qt/DeadlineTimer.h"

#include <algorithm>
#include <utility>

#include <QTimer>

namespace ambrel {

namespace {

// QTimer takes an int of milliseconds.
constexpr std::chrono::milliseconds kLongestWait{2147483647};

// The program's alarm: a single-shot precise QTimer of the calling thread.
class QtTimerAlarm final : public TimerAlarm {
public:
    QtTimerAlarm() {
        m_timer.setTimerType(Qt::PreciseTimer);
        m_timer.setSingleShot(true);
    }
    void setWake(std::function<void()> wake) override {
        QObject::connect(&m_timer, &QTimer::timeout, &m_timer, std::move(wake));
    }
    void arm(std::chrono::milliseconds wait) override {
        m_timer.start(static_cast<int>(wait.count()));
    }
    void disarm() override { m_timer.stop(); }
    std::chrono::milliseconds wait() const override {
        return std::chrono::milliseconds(m_timer.interval());
    }

private:
    QTimer m_timer;
};

} // namespace

DeadlineTimer::DeadlineTimer(std::function<void()> action, std::function<Clock::time_point()> now,
                             std::unique_ptr<TimerAlarm> alarm, QObject* parent)
    : QObject(parent), m_action(std::move(action)), m_now(std::move(now)),
      m_alarm(alarm ? std::move(alarm) : std::make_unique<QtTimerAlarm>()) {
    m_alarm->setWake([this] { onTimeout(); });
}

DeadlineTimer::~DeadlineTimer() = default;

void DeadlineTimer::start(Clock::duration interval, TimerRepeat repeat) {
    const Clock::time_point now = m_now();
    m_interval = std::max(interval, Clock::duration::zero());
    m_repeat = repeat;
    m_deadline = now + m_interval;
    m_active = true;
    arm(now);
}

void DeadlineTimer::stop() {
    m_active = false;
    m_alarm->disarm();
}

std::chrono::milliseconds DeadlineTimer::pendingWait() const {
    return m_alarm->wait();
}

std::chrono::milliseconds DeadlineTimer::waitCovering(Clock::duration remaining) {
    if (remaining <= Clock::duration::zero()) {
        return std::chrono::milliseconds::zero();
    }
    return std::min(std::chrono::ceil<std::chrono::milliseconds>(remaining), kLongestWait);
}

void DeadlineTimer::arm(Clock::time_point now) {
    m_alarm->arm(waitCovering(m_deadline - now));
}

void DeadlineTimer::onTimeout() {
    if (!m_active) {
        return;
    }
    const Clock::time_point now = m_now();
    if (now < m_deadline) {
        arm(now);
        return;
    }
    if (m_repeat == TimerRepeat::repeating && m_interval > Clock::duration::zero()) {
        const auto periodsPassed = (now - m_deadline) / m_interval + 1;
        m_deadline += m_interval * periodsPassed;
        arm(now);
    } else if (m_repeat == TimerRepeat::repeating) {
        m_deadline = now;
        arm(now);
    } else {
        m_active = false;
    }
    // Last, through a copy: the action may stop, restart or destroy this timer.
    const auto action = m_action;
    action();
}

} // namespace ambrel
