#include "tests/views/CardHarness.h"

namespace ambrel::testing {

CardHarness::CardHarness()
    : m_scheduler(
          std::make_shared<SimulatedScheduler>(Date::fromSecondsSince1970(kStartUnixSeconds))),
      m_worker(std::make_shared<ManualWorker>(*m_scheduler)),
      m_powerSources(std::make_shared<FakePowerSourceProvider>()),
      m_host(std::make_shared<FakeHostInfo>()), m_answer(std::make_shared<PhoneAnswer>()) {
    m_answer->issue = PhoneIssue{PhoneSetupState::notFound, "No iPhone found", false};
    MonitorServices services;
    services.clock = m_scheduler;
    services.scheduler = m_scheduler;
    services.worker = m_worker;
    services.powerSources = m_powerSources;
    services.host = m_host;
    auto folders = std::make_shared<FakeFolders>();
    folders->temp = m_folder.path().toStdString();
    services.folders = folders;
    services.bundle = std::make_shared<FakeBundle>();
    auto answer = m_answer;
    auto clock = m_scheduler;
    services.readPhone = [answer, clock](const std::filesystem::path&,
                                         const std::optional<std::string>&,
                                         const std::optional<PhoneIdentity>&) -> PhoneReadResult {
        if (!answer->percentage) {
            return unexpected(answer->issue);
        }
        BatteryDeviceSnapshot snapshot("iphone", answer->name, *answer->percentage, false, false,
                                       clock->now(), answer->source, std::string("iPhone15,2"));
        return PhoneReading{
            snapshot, "00008110-TEST",
            PhoneIdentity{"00008110-TEST", answer->name, std::string("iPhone15,2")}};
    };
    const auto cache = std::filesystem::path(m_folder.path().toStdString()) / "battery-cache.json";
    m_monitor = std::make_unique<BatteryMonitor>(std::move(services), std::nullopt, cache);
}

void CardHarness::setMacBattery(std::int64_t percentage, bool charging, bool pluggedIn) {
    PowerSourceDescription battery;
    battery["Current Capacity"] = percentage;
    battery["Max Capacity"] = std::int64_t{100};
    battery["Is Present"] = true;
    battery["Transport Type"] = std::string("Internal");
    battery["Power Source State"] = std::string(pluggedIn ? "AC Power" : "Battery Power");
    battery["Is Charging"] = charging;
    m_powerSources->sources = PowerSourceList{battery};
}

void CardHarness::answerPhone(std::int64_t percentage, const std::string& name,
                              const std::string& source) {
    m_answer->percentage = percentage;
    m_answer->name = name;
    m_answer->source = source;
}

void CardHarness::failPhone(PhoneSetupState state, const std::string& message) {
    m_answer->percentage.reset();
    m_answer->issue = PhoneIssue{state, message, false};
}

void CardHarness::finishPhoneRead() {
    m_worker->runJobs();
    m_scheduler->runPosted();
}

void CardHarness::readPhoneNow() {
    m_monitor->refreshPhone();
    finishPhoneRead();
}

} // namespace ambrel::testing
