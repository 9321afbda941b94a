#include "platform/linux/ThreadWorker.h"

#include <cerrno>
#include <chrono>
#include <system_error>
#include <thread>

#include <pthread.h>
#include <sys/resource.h>
#include <unistd.h>

namespace ambrel {

namespace {

// Lowers the calling thread to the background nice value. On Linux the nice value belongs to the
// thread, so the main thread keeps its own (and so does the launcher's spawning thread, which
// starts the tools). A thread that
// is already nicer (the whole program started under `nice -n 19`, say) is left alone, since
// going back up would need privileges.
void lowerThreadPriority() {
    const auto thread = static_cast<id_t>(gettid());
    errno = 0;
    const int current = getpriority(PRIO_PROCESS, thread);
    if (errno == 0 && current >= ThreadWorker::kBackgroundNice) {
        return;
    }
    setpriority(PRIO_PROCESS, thread, ThreadWorker::kBackgroundNice);
}

} // namespace

void ThreadWorker::run(std::function<void()> job) {
    try {
        std::thread([job]() {
            ::pthread_setname_np(::pthread_self(), "background-job");
            lowerThreadPriority();
            job();
        }).detach();
    } catch (const std::system_error&) {
        // No thread to be had (the system is out of them): doing the work here is slow, but its
        // outcome still arrives the way it always does, so nothing waits forever.
        job();
    }
}

void ThreadWorker::pause(std::chrono::milliseconds delay) {
    std::this_thread::sleep_for(delay);
}

} // namespace ambrel
