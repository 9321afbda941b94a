#pragma once

#include <functional>
#include <memory>

#include "commands/PhoneConnectionCommand.h"

namespace ambrel {

// "--diagnose [--text]": the connection check as one JSON line, or as text for people; exit 0
// when every check passed, 1 otherwise.
class DiagnoseCommand final : public PhoneConnectionCommand {
public:
    // `setup` is asked once the program's own muxer runs; the check runs on `worker`.
    DiagnoseCommand(std::function<SystemConnectionProbe::Setup()> setup,
                    std::shared_ptr<Worker> worker);

    int run(const Invocation& invocation) override;
};

} // namespace ambrel
