#include "commands/DiagnoseCommand.h"

#include <utility>

#include "commands/CommandLine.h"
#include "diagnosis/ConnectionCheck.h"

namespace ambrel {

DiagnoseCommand::DiagnoseCommand(std::function<SystemConnectionProbe::Setup()> setup,
                                 std::shared_ptr<Worker> worker)
    : PhoneConnectionCommand("--diagnose", std::move(setup), std::move(worker)) {}

int DiagnoseCommand::run(const Invocation& invocation) {
    const bool asText = CommandLine::hasArgument(invocation.arguments, "--text");
    ConnectionReport report;
    runWithSetup([&](const SystemConnectionProbe::Setup& setup) {
        SystemConnectionProbe probe(setup);
        report = ConnectionCheck::run(probe);
    });
    invocation.out(asText ? ConnectionCheck::toText(report)
                          : ConnectionCheck::toJson(report) + "\n");
    // Either link working is a working setup.
    return report.readable() ? 0 : 1;
}

} // namespace ambrel
