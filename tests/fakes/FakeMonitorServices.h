#pragma once

#include <memory>
#include <utility>

#include "monitor/BatteryMonitor.h"
#include "tests/fakes/FakeSystem.h"
#include "tests/fakes/ManualWorker.h"
#include "tests/fakes/SimulatedScheduler.h"

namespace ambrel::testing {

// Everything a BatteryMonitor runs on, as fakes a test sets up and drives: simulated time that is
// both the clock and the main-thread scheduler, a worker whose jobs run when the test says so,
// this computer's battery, host, folders and bundle. The phone read is the test's own.
class FakeMonitorServices {
public:
    explicit FakeMonitorServices(
        std::shared_ptr<SimulatedScheduler> time = std::make_shared<SimulatedScheduler>())
        : scheduler(std::move(time)), worker(std::make_shared<ManualWorker>(*scheduler)),
          power(std::make_shared<FakePowerSourceProvider>()),
          host(std::make_shared<FakeHostInfo>()), folders(std::make_shared<FakeFolders>()),
          bundle(std::make_shared<FakeBundle>()) {}

    // The services with these fakes and `readPhone` as the phone read.
    MonitorServices services(PhoneReadFunction readPhone) const {
        MonitorServices result;
        result.clock = scheduler;
        result.scheduler = scheduler;
        result.worker = worker;
        result.powerSources = power;
        result.host = host;
        result.folders = folders;
        result.bundle = bundle;
        result.readPhone = std::move(readPhone);
        return result;
    }

    std::shared_ptr<SimulatedScheduler> scheduler;
    std::shared_ptr<ManualWorker> worker;
    std::shared_ptr<FakePowerSourceProvider> power;
    std::shared_ptr<FakeHostInfo> host;
    std::shared_ptr<FakeFolders> folders;
    std::shared_ptr<FakeBundle> bundle;
};

} // namespace ambrel::testing
