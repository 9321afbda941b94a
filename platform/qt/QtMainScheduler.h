#pragma once

#include <memory>
#include <set>

#include "platform/MainScheduler.h"

namespace ambrel {

class QtTimer;

// MainScheduler over the Qt event loop of the thread that made it (the main thread). Needs a
// QCoreApplication. Tasks posted once the application object is gone are dropped.
class QtMainScheduler final : public MainScheduler {
public:
    QtMainScheduler();
    ~QtMainScheduler() override;

    std::shared_ptr<Timer> scheduleTimer(TimerDelay delay, TimerRepeat repeat,
                                         std::function<void()> action) override;
    void post(std::function<void()> task) override;

private:
    // Valid timers, kept alive here as a run loop keeps its timers; main thread only.
    std::shared_ptr<std::set<std::shared_ptr<QtTimer>>> m_live;
};

} // namespace ambrel
