#include "platform/linux/ThreadWorker.h"

#include <chrono>
#include <thread>
#include <utility>

#include <sys/resource.h>
#include <unistd.h>

namespace ambrel {

namespace {

constexpr int kBackgroundNice = 10;

} // namespace

void ThreadWorker::run(std::function<void()> job) {
    std::thread([job = std::move(job)] {
        // On Linux the nice value belongs to the thread, so this leaves the main thread alone.
        setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), kBackgroundNice);
        job();
    }).detach();
}

void ThreadWorker::pause(double seconds) {
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

} // namespace ambrel
