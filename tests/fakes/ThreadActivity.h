#pragma once

#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace ambrel::testing {

// What the kernel tells of this process's threads (from /proc/self/task): which have a given
// name, whether one is asleep, and how often it has gone to sleep of its own accord. A thread
// that waits on its descriptors without a time-out goes to sleep once and stays there.
struct ThreadActivity {
    // The ids of all this process's threads.
    static std::vector<pid_t> threads();
    // The ids of this process's threads named `name` (the name a thread gave itself).
    static std::vector<pid_t> threadsNamed(const std::string& name);
    // How many times the thread gave up the processor to wait; nothing once it has ended.
    static std::optional<long> voluntarySwitches(pid_t thread);
    // Whether the thread is in an interruptible sleep (waiting for an event or a time-out).
    static bool isAsleep(pid_t thread);
};

} // namespace ambrel::testing
