#pragma once

#include <filesystem>
#include <memory>
#include <optional>

#include "monitor/BatteryMonitor.h"
#include "platform/MainScheduler.h"

namespace ambrel {

// Shares the widget's readings with "tovrin --bar": after every change of a reading or of the
// phone link, the state file is written once (changes that come together are written
// together). While a phone check runs, the file keeps the outcome of the last finished one, so
// that a bar goes on marking a reading from a phone it could not reach until a check reaches it.
// The file goes away with this object. Main thread only; `monitor` and `scheduler`
// must outlive it.
class BarStatePublisher {
public:
    BarStatePublisher(BatteryMonitor& monitor, MainScheduler& scheduler,
                      std::filesystem::path file);
    ~BarStatePublisher();
    BarStatePublisher(const BarStatePublisher&) = delete;
    BarStatePublisher& operator=(const BarStatePublisher&) = delete;

    // Writes the file now.
    void publish();

private:
    BatteryMonitor& m_monitor;
    MainScheduler& m_scheduler;
    std::filesystem::path m_file;
    BatteryMonitor::ObserverId m_observer = 0;
    bool m_pending = false;
    // How the last finished phone check ended; none before the first.
    std::optional<PhoneSetupState> m_lastOutcome;
    // The posted write holds this weakly and does nothing once it is gone.
    std::shared_ptr<BarStatePublisher*> m_lifetime;
};

} // namespace ambrel
