#include "tests/views/CardHarness.h"

#include "platform/linux/ProcessEnvironment.h"

namespace ambrel::testing {

CardHarness::CardHarness()
    : m_locale(UserLocale::forUser(ProcessEnvironment())),
      m_fakes(std::make_shared<SimulatedScheduler>(Date::fromSecondsSince1970(kStartUnixSeconds))),
      m_answer(std::make_shared<PhoneAnswer>()) {
    m_answer->issue = PhoneIssue{PhoneSetupState::notFound, "No iPhone found", false};
    m_fakes.folders->temp = m_folder.path().toStdString();
    auto answer = m_answer;
    auto clock = m_fakes.scheduler;
    auto readPhone = [answer, clock](const std::filesystem::path&,
                                     const std::optional<std::string>&,
                                     const std::optional<PhoneIdentity>&) -> PhoneReadResult {
        if (!answer->percentage) {
            return unexpected(answer->issue);
        }
        BatteryDeviceSnapshot snapshot("iphone", answer->name, *answer->percentage, false, false,
                                       clock->now(), answer->source, std::string("iPhone15,2"));
        return PhoneReading{
            snapshot, phoneLinkFromText(answer->source).value_or(PhoneLink::usb), "00008110-TEST",
            PhoneIdentity{"00008110-TEST", answer->name, std::string("iPhone15,2")}};
    };
    const auto cache = std::filesystem::path(m_folder.path().toStdString()) / "battery-cache.json";
    m_monitor = std::make_unique<BatteryMonitor>(m_fakes.services(std::move(readPhone)),
                                                 std::nullopt, cache);
}

void CardHarness::setMacBattery(std::int64_t percentage, bool charging, bool pluggedIn) {
    PowerSourceDescription battery;
    battery["Current Capacity"] = percentage;
    battery["Max Capacity"] = std::int64_t{100};
    battery["Is Present"] = true;
    battery["Transport Type"] = std::string("Internal");
    battery["Power Source State"] = std::string(pluggedIn ? "AC Power" : "Battery Power");
    battery["Is Charging"] = charging;
    m_fakes.power->sources = PowerSourceList{battery};
}

void CardHarness::readMacBattery(std::int64_t percentage, bool charging, bool pluggedIn) {
    setMacBattery(percentage, charging, pluggedIn);
    m_monitor->refreshMac();
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
    m_fakes.worker->runJobs();
    m_fakes.scheduler->runPosted();
}

void CardHarness::readPhoneNow() {
    m_monitor->refreshPhone();
    finishPhoneRead();
}

} // namespace ambrel::testing
