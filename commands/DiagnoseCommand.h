#pragma once

#include <functional>
#include <memory>
#include <string>

#include "commands/Command.h"
#include "diagnosis/ConnectionProbe.h"
#include "diagnosis/SystemConnectionProbe.h"
#include "platform/Worker.h"

namespace ambrel {

// "--diagnose [--text]": the connection check as one JSON line, or as text for people; exit 0
// when every check passed, 1 otherwise.
class DiagnoseCommand final : public Command {
public:
    // `setup` is asked once the program's own muxer runs; the check runs on `worker`.
    DiagnoseCommand(std::function<SystemConnectionProbe::Setup()> setup,
                    std::shared_ptr<Worker> worker);

    bool isRequested(const std::vector<std::string>& arguments) const override;
    bool usesPhone() const override { return true; }
    int run(const Invocation& invocation) override;

private:
    std::function<SystemConnectionProbe::Setup()> m_setup;
    std::shared_ptr<Worker> m_worker;
};

} // namespace ambrel
