#include "app/ArrivalRelay.h"

namespace ambrel {

void ArrivalRelay::connect(std::shared_ptr<MainScheduler> scheduler, Handler handler) {
    const std::lock_guard lock(m_mutex);
    m_target = std::make_shared<Target>(Target{std::move(scheduler), std::move(handler)});
}

void ArrivalRelay::disconnect() {
    const std::lock_guard lock(m_mutex);
    if (m_target) {
        // Main thread: a task already posted sees the handler gone and does nothing.
        m_target->handler = nullptr;
        m_target.reset();
    }
}

void ArrivalRelay::phoneAppeared(const std::string& phone, bool overWifi) {
    std::shared_ptr<Target> target;
    {
        const std::lock_guard lock(m_mutex);
        target = m_target;
    }
    if (!target) {
        return;
    }
    PhoneArrival arrival{phone, overWifi ? PhoneArrival::Path::wifi : PhoneArrival::Path::usb};
    target->scheduler->post([target, arrival = std::move(arrival)] {
        if (target->handler) {
            target->handler(arrival);
        }
    });
}

} // namespace ambrel
