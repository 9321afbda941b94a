#pragma once

#include <functional>
#include <string>
#include <vector>

#include "platform/Worker.h"

namespace ambrel {

// How a command was called and where its lines go: the process's arguments (the program path
// first), argc and argv for the commands that run an event loop, and the two output streams.
struct Invocation {
    std::vector<std::string> arguments;
    int argc = 0;
    char** argv = nullptr;
    std::function<void(const std::string&)> out;
    std::function<void(const std::string&)> err;
};

// A one-shot switch of the program: it tells whether the command line asks for it, then runs,
// prints its lines and ends with the process's exit code. Every one has this shape; the entry
// asks them in a fixed order and runs the first that is asked for. Each gets what it works
// with (the system's services, the bundle's facts) through its constructor.
class Command {
public:
    // A switch given without the value it takes, with a wrong one, or without the switch it
    // goes with.
    static constexpr int kUsageExitCode = 2;

    virtual ~Command() = default;

    virtual bool isRequested(const std::vector<std::string>& arguments) const = 0;
    // Whether it talks to the phone: the entry then starts the program's own muxer first.
    virtual bool usesPhone() const { return false; }
    // Runs the command on the calling (main) thread and returns the exit code.
    virtual int run(const Invocation& invocation) = 0;

    // What a usage error prints: "tovrin: " and `problem` on one line, then where to look.
    static std::string usageError(const std::string& problem);

protected:
    // Runs `job` on `worker` and waits for it: the phone's tools are run off the main thread,
    // as everywhere in the program.
    static void runAndWait(Worker& worker, std::function<void()> job);
};

} // namespace ambrel
