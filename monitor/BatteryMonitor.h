#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "model/BatteryDeviceSnapshot.h"
#include "model/BatteryHealth.h"
#include "model/PhoneSetupState.h"
#include "monitor/MonitorProperty.h"
#include "phone/PhoneReader.h"
#include "platform/Bundle.h"
#include "platform/Clock.h"
#include "platform/Folders.h"
#include "platform/HostInfo.h"
#include "platform/MainScheduler.h"
#include "platform/PowerSourceProvider.h"
#include "platform/Worker.h"

namespace ambrel {

// Reads the phone once; called on a worker thread with copies of the tool folder, the preferred
// udid and the remembered identity. Must be thread-safe.
using PhoneReadFunction = std::function<PhoneReadResult(
    const std::filesystem::path& toolDirectory, const std::optional<std::string>& preferredID,
    const std::optional<PhoneIdentity>& identity)>;

// Everything the monitor reaches the system through.
struct MonitorServices {
    std::shared_ptr<Clock> clock;
    std::shared_ptr<MainScheduler> scheduler;
    std::shared_ptr<Worker> worker;
    std::shared_ptr<PowerSourceProvider> powerSources;
    std::shared_ptr<HostInfo> host;
    std::shared_ptr<Folders> folders;
    std::shared_ptr<Bundle> bundle;
    PhoneReadFunction readPhone;
};

// The program's one model object: the latest readings of this computer and of the paired
// iPhone, a status line for each, the phone-check schedule and the phone's setup state. Views
// observe it and only call refreshAll(). Main thread only, like everything it publishes.
class BatteryMonitor {
public:
    using Observer = std::function<void(MonitorProperty, ChangePhase)>;
    using ObserverId = std::uint64_t;

    static constexpr const char* kInitialPhoneStatus = "Checking for your iPhone\u2026";
    static constexpr const char* kInitialMacStatus = "Checking Mac battery\u2026";
    static constexpr const char* kSavedReadingStatus =
        "Saved reading \u00b7 checking connection\u2026";
    static constexpr const char* kCheckingPhoneStatus = "Checking iPhone\u2026";
    static constexpr const char* kUsbStatus = "Connected by USB \u00b7 unplug to test Wi-Fi";
    // Delay before the one retry of a transient phone failure, in seconds.
    static constexpr std::chrono::milliseconds kTransientRetryDelay{500};

    // A missing tool folder becomes the bundle's resource folder (else the executable's folder)
    // + "Runtime/bin"; a missing cache file becomes Application Support (else the temporary
    // folder) + "Ambrel/battery-cache.json". Loads the saved phone reading. Starts nothing.
    BatteryMonitor(MonitorServices services, std::optional<std::filesystem::path> toolDirectory,
                   std::optional<std::filesystem::path> cacheURL);
    ~BatteryMonitor();
    BatteryMonitor(const BatteryMonitor&) = delete;
    BatteryMonitor& operator=(const BatteryMonitor&) = delete;

    const std::optional<BatteryDeviceSnapshot>& mac() const { return m_mac; }
    const std::optional<BatteryDeviceSnapshot>& phone() const { return m_phone; }
    bool isRefreshingPhone() const { return m_isRefreshingPhone; }
    const std::string& phoneStatus() const { return m_phoneStatus; }
    const std::string& macStatus() const { return m_macStatus; }
    std::optional<Date> lastPhoneAttempt() const { return m_lastPhoneAttempt; }
    std::optional<Date> nextPhoneCheck() const { return m_nextPhoneCheck; }
    PhoneSetupState phoneSetupState() const { return m_phoneSetupState; }
    // What the last reading of this computer told of its battery's wear and time left; each
    // is published only when it changes.
    const BatteryHealth& macHealth() const { return m_macHealth; }
    // The udid of the phone the last good read reached.
    const std::optional<std::string>& phoneID() const { return m_preferredPhoneID; }
    const BatteryTimeLeft& macTimeLeft() const { return m_macTimeLeft; }

    const std::filesystem::path& toolDirectory() const { return m_toolDirectory; }
    const std::filesystem::path& cacheURL() const { return m_cacheURL; }
    const Clock& clock() const { return *m_services.clock; }

    // Observers are told of every change of a published property, on the main thread, in the
    // order the changes happen. An observer may remove itself while being told.
    ObserverId addObserver(Observer observer);
    void removeObserver(ObserverId id);

    // Reads this computer now and the phone now, then keeps reading: the computer every 60 s,
    // the phone 300 s after each read ends. A second call does nothing.
    void start();
    // Reads this computer and starts a phone read now (unless one is running). Works before
    // start() too, without creating any timer.
    void refreshAll();
    void refresh() { refreshAll(); }
    // Reads this computer's battery and publishes mac (on success) then macStatus.
    void refreshMac();
    // Starts a phone read unless one is in flight; the outcome is applied later on the main
    // thread.
    void refreshPhone();

    // The Wi-Fi status line, built from the phone interval in minutes.
    static std::string wifiStatus();

private:
    template <typename T> void publish(T& field, T value, MonitorProperty property);
    void notify(MonitorProperty property, ChangePhase phase);
    void applyPhoneResult(PhoneReadResult result);
    void schedulePhoneCheck();
    void savePhoneCache(const BatteryDeviceSnapshot& snapshot);

    MonitorServices m_services;

    std::optional<BatteryDeviceSnapshot> m_mac;
    std::optional<BatteryDeviceSnapshot> m_phone;
    bool m_isRefreshingPhone = false;
    std::string m_phoneStatus = kInitialPhoneStatus;
    std::string m_macStatus = kInitialMacStatus;
    std::optional<Date> m_lastPhoneAttempt;
    std::optional<Date> m_nextPhoneCheck;
    PhoneSetupState m_phoneSetupState = PhoneSetupState::checking;
    BatteryHealth m_macHealth;
    BatteryTimeLeft m_macTimeLeft;

    std::filesystem::path m_toolDirectory;
    std::filesystem::path m_cacheURL;
    std::shared_ptr<Timer> m_macTimer;
    std::shared_ptr<Timer> m_phoneTimer;
    std::optional<std::string> m_preferredPhoneID;
    std::optional<PhoneIdentity> m_identity;
    bool m_started = false;

    // Closures kept by timers and the phone read hold this weakly and do nothing once the
    // monitor is gone.
    std::shared_ptr<BatteryMonitor*> m_lifetime;

    struct ObserverEntry {
        ObserverId id;
        Observer observer;
    };
    std::vector<ObserverEntry> m_observers;
    ObserverId m_nextObserverId = 1;
};

} // namespace ambrel
