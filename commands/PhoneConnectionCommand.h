#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "commands/Command.h"
#include "diagnosis/SystemConnectionProbe.h"
#include "platform/Worker.h"

namespace ambrel {

// What "--diagnose" and "--enable-wifi" have in common: they talk to the phone with the setup
// `setup` gives, asked once the program's own muxer runs, and do their work on `worker`.
class PhoneConnectionCommand : public Command {
public:
    bool isRequested(const std::vector<std::string>& arguments) const final;
    bool usesPhone() const final { return true; }

protected:
    // `switchName` is the argument that asks for the command.
    PhoneConnectionCommand(std::string switchName,
                           std::function<SystemConnectionProbe::Setup()> setup,
                           std::shared_ptr<Worker> worker);

    // Asks for the setup now, then runs `job` with it on the worker and waits for it.
    void runWithSetup(const std::function<void(const SystemConnectionProbe::Setup&)>& job);

private:
    std::string m_switchName;
    std::function<SystemConnectionProbe::Setup()> m_setup;
    std::shared_ptr<Worker> m_worker;
};

} // namespace ambrel
