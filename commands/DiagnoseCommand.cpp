#include "commands/DiagnoseCommand.h"

#include <utility>

#include "commands/CommandLine.h"
#include "diagnosis/ConnectionCheck.h"

namespace ambrel {

DiagnoseCommand::DiagnoseCommand(std::function<SystemConnectionProbe::Setup()> setup,
                                 std::shared_ptr<Worker> worker)
    : m_setup(std::move(setup)), m_worker(std::move(worker)) {}

bool DiagnoseCommand::isRequested(const std::vector<std::string>& arguments) const {
    return CommandLine::hasArgument(arguments, "--diagnose");
}

int DiagnoseCommand::run(const Invocation& invocation) {
    const auto setup = m_setup();
    const bool asText = CommandLine::hasArgument(invocation.arguments, "--text");
    ConnectionReport report;
    runAndWait(*m_worker, [&] {
        SystemConnectionProbe probe(setup);
        report = ConnectionCheck::run(probe);
    });
    invocation.out(asText ? ConnectionCheck::toText(report)
                          : ConnectionCheck::toJson(report) + "\n");
    return report.ok ? 0 : 1;
}

} // namespace ambrel
