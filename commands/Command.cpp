#include "commands/Command.h"

#include <future>
#include <memory>
#include <utility>

namespace ambrel {

void Command::runAndWait(Worker& worker, std::function<void()> job) {
    auto done = std::make_shared<std::promise<void>>();
    auto finished = done->get_future();
    worker.run([job = std::move(job), done] {
        job();
        done->set_value();
    });
    finished.wait();
}

std::string Command::usageError(const std::string& problem) {
    return "tovrin: " + problem + "\nTry 'tovrin --help'.\n";
}

} // namespace ambrel
