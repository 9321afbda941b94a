#pragma once

#include <functional>
#include <memory>
#include <mutex>

#include "monitor/PhoneArrivalReads.h"
#include "muxer/PhoneArrivalSink.h"
#include "platform/MainScheduler.h"

namespace ambrel {

// Carries the muxer's news of phones that appear, from its threads to the main thread. The
// muxer starts before the widget's monitor exists: until the widget connects it, and after it
// disconnects, the news is dropped (the monitor's own first read covers that time).
class ArrivalRelay final : public PhoneArrivalSink {
public:
    using Handler = std::function<void(const PhoneArrival&)>;

    // `handler` runs on the main thread, through `scheduler`.
    void connect(std::shared_ptr<MainScheduler> scheduler, Handler handler);
    void disconnect();

    // PhoneArrivalSink: any thread; posts and returns.
    void phoneAppeared(const std::string& phone, bool overWifi) override;

private:
    struct Target {
        std::shared_ptr<MainScheduler> scheduler;
        Handler handler;
    };

    std::mutex m_mutex;
    // Shared with the tasks posted, which find it emptied once disconnected.
    std::shared_ptr<Target> m_target;
};

} // namespace ambrel
