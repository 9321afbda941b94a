#include "commands/PhoneConnectionCommand.h"

#include <utility>

#include "commands/CommandLine.h"

namespace ambrel {

PhoneConnectionCommand::PhoneConnectionCommand(std::string switchName,
                                               std::function<SystemConnectionProbe::Setup()> setup,
                                               std::shared_ptr<Worker> worker)
    : m_switchName(std::move(switchName)), m_setup(std::move(setup)), m_worker(std::move(worker)) {}

bool PhoneConnectionCommand::isRequested(const std::vector<std::string>& arguments) const {
    return CommandLine::hasArgument(arguments, m_switchName);
}

void PhoneConnectionCommand::runWithSetup(
    const std::function<void(const SystemConnectionProbe::Setup&)>& job) {
    const auto setup = m_setup();
    runAndWait(*m_worker, [&] { job(setup); });
}

} // namespace ambrel
