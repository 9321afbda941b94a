// A small program the command runner tests start as their child. The first argument picks what
// it does; every mode is deterministic and quick unless it is about waiting.
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <signal.h>
#include <string>
#include <string_view>
#include <thread>
#include <utility>

#include <dirent.h>
#include <unistd.h>

#include "tests/fakes/ChildProcess.h"

namespace {

void writeAll(int descriptor, const char* data, std::size_t size) {
    while (size > 0) {
        const ssize_t written = ::write(descriptor, data, size);
        if (written < 0) {
            if (errno == EINTR) {
                continue;
            }
            std::exit(3);
        }
        data += written;
        size -= static_cast<std::size_t>(written);
    }
}

void writeText(int descriptor, std::string_view text) {
    writeAll(descriptor, text.data(), text.size());
}

// Byte i of the pattern is 'a' + i % 26, so a test can check exactly which bytes it got.
void writePattern(int descriptor, std::size_t count) {
    std::string pattern(count, '\0');
    for (std::size_t index = 0; index < count; ++index) {
        pattern[index] = static_cast<char>('a' + index % 26);
    }
    writeAll(descriptor, pattern.data(), pattern.size());
}

void sleepSeconds(double seconds) {
    std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
}

// The descriptors open in this process, without the one used to list them.
std::string openDescriptors() {
    std::string list;
    DIR* directory = ::opendir("/proc/self/fd");
    if (directory == nullptr) {
        return "unreadable";
    }
    const int own = ::dirfd(directory);
    while (const dirent* entry = ::readdir(directory)) {
        const std::string name = entry->d_name;
        if (name == "." || name == ".." || name == std::to_string(own)) {
            continue;
        }
        list += list.empty() ? name : " " + name;
    }
    ::closedir(directory);
    return list;
}

// How SIGUSR1 and SIGPIPE are handled and whether SIGUSR2 is blocked.
std::string signalState() {
    const auto disposition = [](int signalNumber) {
        struct sigaction current {};
        ::sigaction(signalNumber, nullptr, &current);
        return current.sa_handler == SIG_IGN ? std::string("ignored") : std::string("default");
    };
    sigset_t blocked;
    sigemptyset(&blocked);
    ::sigprocmask(SIG_BLOCK, nullptr, &blocked);
    return "SIGUSR1 " + disposition(SIGUSR1) + ", SIGPIPE " + disposition(SIGPIPE) + ", SIGUSR2 " +
           (sigismember(&blocked, SIGUSR2) ? "blocked" : "unblocked");
}

// How many entries `folder` holds.
std::size_t entriesIn(const std::filesystem::path& folder) {
    std::error_code error;
    std::size_t count = 0;
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        ++count;
    }
    return count;
}

// Does what argv[1] names with the arguments after it; argv[0] is not looked at.
int act(int argc, char** argv) {
    const std::string mode = argc > 1 ? argv[1] : "";
    const auto number = [&](int index) { return argc > index ? std::atof(argv[index]) : 0.0; };

    if (mode == "meet") {
        // Leaves its mark in the folder argv[2], waits until argv[3] marks are there (its
        // fellows have started too), then goes on as the mode that follows.
        if (argc < 5) {
            return 2;
        }
        const std::filesystem::path folder = argv[2];
        const auto expected = static_cast<std::size_t>(number(3));
        std::ofstream(folder / std::to_string(::getpid())) << "here";
        while (entriesIn(folder) < expected) {
            sleepSeconds(0.005);
        }
        return act(argc - 3, argv + 3);
    }
    if (mode == "silent") {
        return 0;
    }
    if (mode == "exit") {
        return static_cast<int>(number(2));
    }
    if (mode == "stdout-bytes") {
        writePattern(STDOUT_FILENO, static_cast<std::size_t>(number(2)));
        return 0;
    }
    if (mode == "stderr-bytes") {
        writePattern(STDERR_FILENO, static_cast<std::size_t>(number(2)));
        return 0;
    }
    if (mode == "both-bytes") {
        // Standard error first: a runner that read standard output alone would leave this
        // child blocked on a full pipe for ever.
        writePattern(STDERR_FILENO, static_cast<std::size_t>(number(2)));
        writePattern(STDOUT_FILENO, static_cast<std::size_t>(number(2)));
        return 0;
    }
    if (mode == "print-then-sleep") {
        writeText(STDOUT_FILENO, "before the wait\n");
        sleepSeconds(number(2));
        return 0;
    }
    if (mode == "sleep") {
        sleepSeconds(number(2));
        return 0;
    }
    if (mode == "ignore-term") {
        std::signal(SIGTERM, SIG_IGN);
        writeText(STDOUT_FILENO, "ignoring SIGTERM\n");
        sleepSeconds(number(2));
        return 0;
    }
    if (mode == "mark-then-sleep") {
        // Tells the test it is running by creating the file named in argv[2].
        std::ofstream(argv[2]) << ::getpid();
        sleepSeconds(number(3));
        return 0;
    }
    if (mode == "descriptors") {
        writeText(STDOUT_FILENO, openDescriptors());
        return 0;
    }
    if (mode == "signals") {
        writeText(STDOUT_FILENO, signalState());
        return 0;
    }
    if (mode == "read-stdin") {
        char buffer[256];
        std::size_t total = 0;
        ssize_t count = 0;
        while ((count = ::read(STDIN_FILENO, buffer, sizeof buffer)) != 0) {
            if (count < 0) {
                if (errno == EINTR) {
                    continue;
                }
                writeText(STDOUT_FILENO, std::string("error ") + std::strerror(errno));
                return 1;
            }
            total += static_cast<std::size_t>(count);
        }
        writeText(STDOUT_FILENO, "eof after " + std::to_string(total) + " bytes");
        return 0;
    }
    if (mode == "invalid-utf8") {
        writeText(STDOUT_FILENO, "ok \xFF\xFE end \xE2\x82 caf\xC3\xA9");
        writeText(STDERR_FILENO, "\xC0\xAF");
        return 0;
    }
    if (mode == "arguments") {
        for (int index = 2; index < argc; ++index) {
            writeText(STDOUT_FILENO, std::string("[") + argv[index] + "]\n");
        }
        return 0;
    }
    if (mode == "raise") {
        std::signal(static_cast<int>(number(2)), SIG_DFL);
        std::raise(static_cast<int>(number(2)));
        return 0;
    }
    if (mode == "leave-grandchild") {
        // The grandchild, this program asleep, keeps both pipes open long after this process
        // has ended.
        std::error_code error;
        ambrel::testing::ProcessOptions options;
        options.arguments = {std::filesystem::read_symlink("/proc/self/exe", error).string(),
                             "sleep", argc > 2 ? argv[2] : "0"};
        options.output = ambrel::testing::OutputTo::inherit;
        options.error = ambrel::testing::OutputTo::inherit;
        ambrel::testing::ChildProcess grandchild(std::move(options));
        writeText(STDOUT_FILENO, std::to_string(grandchild.release()));
        return 0;
    }
    writeText(STDERR_FILENO, "unknown mode " + mode + "\n");
    return 2;
}

} // namespace

int main(int argc, char** argv) {
    return act(argc, argv);
}
