#include "platform/qt/DeadlineTimer.h"

#include <algorithm>
#include <utility>

namespace ambrel {

namespace {

// QTimer takes an int of milliseconds.
constexpr std::chrono::milliseconds kLongestWait{2147483647};

} // namespace

DeadlineTimer::DeadlineTimer(std::function<void()> action, std::function<Clock::time_point()> now,
                             QObject* parent)
    : QObject(parent), m_action(std::move(action)), m_now(std::move(now)) {
    m_timer.setTimerType(Qt::PreciseTimer);
    m_timer.setSingleShot(true);
    QObject::connect(&m_timer, &QTimer::timeout, this, [this] { onTimeout(); });
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
    m_timer.stop();
}

std::chrono::milliseconds DeadlineTimer::pendingWait() const {
    return std::chrono::milliseconds(m_timer.interval());
}

std::chrono::milliseconds DeadlineTimer::waitCovering(Clock::duration remaining) {
    if (remaining <= Clock::duration::zero()) {
        return std::chrono::milliseconds::zero();
    }
    return std::min(std::chrono::ceil<std::chrono::milliseconds>(remaining), kLongestWait);
}

void DeadlineTimer::arm(Clock::time_point now) {
    m_timer.start(static_cast<int>(waitCovering(m_deadline - now).count()));
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
