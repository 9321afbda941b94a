#include "monitor/BarStatePublisher.h"

#include <unistd.h>

#include "monitor/BarState.h"

namespace ambrel {

BarStatePublisher::BarStatePublisher(BatteryMonitor& monitor, MainScheduler& scheduler,
                                     std::filesystem::path file)
    : m_monitor(monitor), m_scheduler(scheduler), m_file(std::move(file)),
      m_lifetime(std::make_shared<BarStatePublisher*>(this)) {
    m_observer = m_monitor.addObserver([this](MonitorProperty property, ChangePhase phase) {
        const bool shown = property == MonitorProperty::mac || property == MonitorProperty::phone ||
                           property == MonitorProperty::isRefreshingPhone ||
                           property == MonitorProperty::phoneSetupState;
        if (!shown || phase != ChangePhase::didChange || m_pending) {
            return;
        }
        m_pending = true;
        std::weak_ptr<BarStatePublisher*> weak = m_lifetime;
        m_scheduler.post([weak] {
            if (const auto self = weak.lock()) {
                (*self)->publish();
            }
        });
    });
    publish();
}

BarStatePublisher::~BarStatePublisher() {
    m_monitor.removeObserver(m_observer);
    BarStateFile::remove(m_file, ::getpid());
}

void BarStatePublisher::publish() {
    m_pending = false;
    BarState state;
    state.mac = m_monitor.mac();
    state.phone = m_monitor.phone();
    state.isRefreshingPhone = m_monitor.isRefreshingPhone();
    state.phoneSetupState = m_monitor.phoneSetupState();
    if (state.phoneSetupState != PhoneSetupState::checking) {
        m_lastOutcome = state.phoneSetupState;
    } else if (state.isRefreshingPhone && m_lastOutcome) {
        state.phoneSetupState = *m_lastOutcome;
    }
    state.writer = ::getpid();
    BarStateFile::save(m_file, state);
}

} // namespace ambrel
