#include "monitor/BatteryMonitor.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "mac/MacBatteryReader.h"
#include "model/BatteryRefreshPolicy.h"
#include "monitor/ReadingCache.h"

namespace ambrel {

BatteryMonitor::BatteryMonitor(MonitorServices services,
                               std::optional<std::filesystem::path> toolDirectory,
                               std::optional<std::filesystem::path> cacheURL)
    : m_services(std::move(services)), m_lifetime(std::make_shared<BatteryMonitor*>(this)) {
    if (toolDirectory) {
        m_toolDirectory = std::move(*toolDirectory);
    } else {
        const auto resources = m_services.bundle->resourceFolder();
        const auto base =
            resources ? *resources : m_services.bundle->executablePath().parent_path();
        m_toolDirectory = base / "Runtime" / "bin" / "";
    }
    if (cacheURL) {
        m_cacheURL = std::move(*cacheURL);
    } else {
        const auto support = m_services.folders->applicationSupport();
        const auto base = support ? *support : m_services.folders->temporary();
        m_cacheURL = base / "Ambrel" / "battery-cache.json";
    }
    if (auto saved = ReadingCache::load(m_cacheURL, m_services.clock->now())) {
        m_phone = std::move(saved);
        m_phoneStatus = kSavedReadingStatus;
    }
}

BatteryMonitor::~BatteryMonitor() = default;

std::string BatteryMonitor::wifiStatus() {
    const auto minutes =
        static_cast<long long>(std::lround(BatteryRefreshPolicy::phoneInterval / 60.0));
    return "Connected over Wi-Fi \u00b7 checks every " + std::to_string(minutes) + " min";
}

BatteryMonitor::ObserverId BatteryMonitor::addObserver(Observer observer) {
    const ObserverId id = m_nextObserverId++;
    m_observers.push_back({id, std::move(observer)});
    return id;
}

void BatteryMonitor::removeObserver(ObserverId id) {
    std::erase_if(m_observers, [id](const ObserverEntry& entry) { return entry.id == id; });
}

void BatteryMonitor::notify(MonitorProperty property, ChangePhase phase) {
    // Observers may add or remove observers while being told; walk a copy of the ids and skip
    // any that went away meanwhile.
    std::vector<ObserverId> ids;
    ids.reserve(m_observers.size());
    for (const auto& entry : m_observers) {
        ids.push_back(entry.id);
    }
    for (const ObserverId id : ids) {
        const auto found =
            std::find_if(m_observers.begin(), m_observers.end(),
                         [id](const ObserverEntry& entry) { return entry.id == id; });
        if (found != m_observers.end()) {
            auto observer = found->observer;
            observer(property, phase);
        }
    }
}

template <typename T> void BatteryMonitor::publish(T& field, T value, MonitorProperty property) {
    notify(property, ChangePhase::willChange);
    field = std::move(value);
    notify(property, ChangePhase::didChange);
}

void BatteryMonitor::start() {
    if (m_started) {
        return;
    }
    m_started = true;
    refreshMac();
    refreshPhone();
    std::weak_ptr<BatteryMonitor*> weak = m_lifetime;
    m_macTimer = m_services.scheduler->scheduleTimer(TimerDelay(BatteryRefreshPolicy::macInterval),
                                                     TimerRepeat::repeating, [weak] {
                                                         if (auto alive = weak.lock()) {
                                                             (*alive)->refreshMac();
                                                         }
                                                     });
}

void BatteryMonitor::refreshAll() {
    refreshMac();
    refreshPhone();
}

void BatteryMonitor::refreshMac() {
    auto outcome =
        MacBatteryReader::read(*m_services.powerSources, *m_services.host, m_services.clock->now());
    // The snapshot goes first so that an observer woken by the status already sees it.
    if (outcome.snapshot) {
        publish(m_mac, std::optional<BatteryDeviceSnapshot>(std::move(outcome.snapshot)),
                MonitorProperty::mac);
        if (outcome.health != m_macHealth) {
            publish(m_macHealth, outcome.health, MonitorProperty::macHealth);
        }
        if (outcome.timeLeft != m_macTimeLeft) {
            publish(m_macTimeLeft, outcome.timeLeft, MonitorProperty::macTimeLeft);
        }
    }
    publish(m_macStatus, std::move(outcome.status), MonitorProperty::macStatus);
}

void BatteryMonitor::refreshPhone() {
    if (m_isRefreshingPhone) {
        return;
    }
    publish(m_isRefreshingPhone, true, MonitorProperty::isRefreshingPhone);
    publish(m_phoneSetupState, PhoneSetupState::checking, MonitorProperty::phoneSetupState);
    publish(m_phoneStatus, std::string(kCheckingPhoneStatus), MonitorProperty::phoneStatus);
    publish(m_lastPhoneAttempt, std::optional<Date>(m_services.clock->now()),
            MonitorProperty::lastPhoneAttempt);
    if (m_phoneTimer) {
        m_phoneTimer->invalidate();
    }
    publish(m_nextPhoneCheck, std::optional<Date>(), MonitorProperty::nextPhoneCheck);

    // The worker gets copies as they are now; later changes on the main thread do not reach it.
    // It holds the monitor, the worker and the scheduler weakly: a read for a monitor that is gone
    // is not started, not retried, and its outcome goes nowhere.
    std::weak_ptr<BatteryMonitor*> weak = m_lifetime;
    std::weak_ptr<Worker> weakWorker = m_services.worker;
    std::weak_ptr<MainScheduler> weakScheduler = m_services.scheduler;
    m_services.worker->run([weak, weakWorker, weakScheduler, readPhone = m_services.readPhone,
                            toolDirectory = m_toolDirectory, preferredID = m_preferredPhoneID,
                            identity = m_identity]() {
        if (weak.expired()) {
            return;
        }
        PhoneReadResult result = readPhone(toolDirectory, preferredID, identity);
        if (!result.hasValue() && result.error().isTransient) {
            // One more try, whatever it gives: never a third.
            if (auto worker = weakWorker.lock(); worker && !weak.expired()) {
                worker->pause(kTransientRetryDelay);
            }
            if (weak.expired()) {
                return;
            }
            result = readPhone(toolDirectory, preferredID, identity);
        }
        if (weak.expired()) {
            return;
        }
        if (auto scheduler = weakScheduler.lock()) {
            scheduler->post([weak, result = std::move(result)]() mutable {
                if (auto alive = weak.lock()) {
                    (*alive)->applyPhoneResult(std::move(result));
                }
            });
        }
    });
}

void BatteryMonitor::applyPhoneResult(PhoneReadResult result) {
    if (result.hasValue()) {
        PhoneReading& reading = result.value();
        publish(m_phone, std::optional<BatteryDeviceSnapshot>(reading.snapshot),
                MonitorProperty::phone);
        m_preferredPhoneID = reading.udid;
        m_identity = reading.identity;
        publish(m_phoneSetupState, PhoneSetupState::ready, MonitorProperty::phoneSetupState);
        publish(m_phoneStatus,
                reading.link == PhoneLink::wifi ? wifiStatus() : std::string(kUsbStatus),
                MonitorProperty::phoneStatus);
        savePhoneCache(reading.snapshot);
    } else {
        // The last good reading stays, and so do the remembered udid and identity: the next
        // read looks for the same phone.
        const PhoneIssue& issue = result.error();
        publish(m_phoneSetupState, issue.state, MonitorProperty::phoneSetupState);
        publish(m_phoneStatus, issue.message, MonitorProperty::phoneStatus);
    }
    publish(m_isRefreshingPhone, false, MonitorProperty::isRefreshingPhone);
    schedulePhoneCheck();
}

void BatteryMonitor::schedulePhoneCheck() {
    publish(m_nextPhoneCheck,
            std::optional<Date>(
                m_services.clock->now().addingSeconds(BatteryRefreshPolicy::phoneInterval)),
            MonitorProperty::nextPhoneCheck);
    std::weak_ptr<BatteryMonitor*> weak = m_lifetime;
    m_phoneTimer = m_services.scheduler->scheduleTimer(
        TimerDelay(BatteryRefreshPolicy::phoneInterval), TimerRepeat::once, [weak] {
            if (auto alive = weak.lock()) {
                (*alive)->refreshPhone();
            }
        });
}

void BatteryMonitor::savePhoneCache(const BatteryDeviceSnapshot& snapshot) {
    ReadingCache::save(m_cacheURL, snapshot);
}

} // namespace ambrel
