// ambrel_test_env: runs one test program in an environment of the suite's own.
//
//   ambrel_test_env PROGRAM [ARGUMENT...]
//
// Whatever the caller has (a desktop session, a root shell with nothing set, CI, a container),
// the program gets the same world: a new HOME and XDG folders under a temporary root, a
// private runtime folder (0700) with a session bus of its own, no display, no system bus, a
// UTF-8 locale and UTC. Only PATH, CI and the suite's own TOVRIN_* switches are taken from the
// caller. When the program ends, the bus goes, and every process it left behind (an X server,
// a window manager, the widget) is stopped: this program is their subreaper, so an orphan
// comes back to it instead of to init. The root folder is removed last.
//
// The exit status is the program's; a program killed by a signal is reported with the same
// signal. A program that runs past its time limit (TOVRIN_TEST_TIME_LIMIT seconds, 290 by
// default: under CTest's 300, so that the clean-up still runs) is stopped and fails. With
// TOVRIN_TEST_LEFTOVER_LOG set, each test that left processes running adds a line to that file.
#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <pwd.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr const char* kMarker = "TOVRIN_TEST_ENV";
constexpr std::chrono::seconds kDefaultTimeLimit{290};
constexpr std::chrono::seconds kBusStartLimit{20};
constexpr std::chrono::milliseconds kLeftoverGrace{1500};
constexpr std::chrono::milliseconds kSettleTime{1000};

void say(const std::string& text) {
    const std::string line = "ambrel_test_env: " + text + "\n";
    [[maybe_unused]] const auto written = ::write(STDERR_FILENO, line.data(), line.size());
}

std::vector<char*> pointers(std::vector<std::string>& strings) {
    std::vector<char*> result;
    for (auto& text : strings) {
        result.push_back(text.data());
    }
    result.push_back(nullptr);
    return result;
}

std::optional<std::string> variable(const char* name) {
    const char* value = std::getenv(name);
    if (value == nullptr) {
        return std::nullopt;
    }
    return std::string(value);
}

// PATH as the caller has it (or the usual one), with the system folders that hold
// avahi-daemon, ip and the like added: a plain user's PATH often lacks them.
std::string searchPath() {
    std::string path = variable("PATH").value_or("/usr/local/bin:/usr/bin:/bin");
    for (const char* folder : {"/usr/sbin", "/sbin"}) {
        const std::string padded = ":" + path + ":";
        if (padded.find(std::string(":") + folder + ":") == std::string::npos) {
            path += std::string(":") + folder;
        }
    }
    return path;
}

struct Root {
    fs::path top;
    fs::path home;
    fs::path runtime;
    fs::path temporary;
    fs::path bus() const { return runtime / "bus"; }
};

std::optional<Root> makeRoot() {
    std::string pattern = "/tmp/tovrin-t.XXXXXX";
    if (::mkdtemp(pattern.data()) == nullptr) {
        return std::nullopt;
    }
    Root root;
    root.top = pattern;
    root.home = root.top / "home";
    root.runtime = root.top / "run";
    root.temporary = root.top / "tmp";
    for (const auto& folder :
         {root.home, root.home / ".config", root.home / ".local/share", root.home / ".cache",
          root.home / ".local/state", root.runtime, root.temporary}) {
        std::error_code error;
        fs::create_directories(folder, error);
        if (error) {
            return std::nullopt;
        }
    }
    // Tests run as root hand their folders to an unprivileged user (the fault tests do), who
    // must be able to reach them: the root and the temporary folder are open like /tmp is.
    // The runtime folder stays private, as the XDG rules want it.
    ::chmod(root.top.c_str(), 0755);
    ::chmod(root.temporary.c_str(), 01777);
    ::chmod(root.runtime.c_str(), 0700);
    return root;
}

void removeRoot(const fs::path& top) {
    std::error_code error;
    // A test may leave folders without write or search permission; they are opened up first.
    for (auto it = fs::recursive_directory_iterator(
             top, fs::directory_options::skip_permission_denied, error);
         !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
        if (it->is_directory(error) && !it->is_symlink(error)) {
            ::chmod(it->path().c_str(), 0700);
        }
    }
    fs::remove_all(top, error);
}

std::vector<std::string> environmentFor(const Root& root) {
    std::vector<std::string> result{
        "PATH=" + searchPath(),
        "HOME=" + root.home.string(),
        "XDG_CONFIG_HOME=" + (root.home / ".config").string(),
        "XDG_DATA_HOME=" + (root.home / ".local/share").string(),
        "XDG_CACHE_HOME=" + (root.home / ".cache").string(),
        "XDG_STATE_HOME=" + (root.home / ".local/state").string(),
        "XDG_RUNTIME_DIR=" + root.runtime.string(),
        "TMPDIR=" + root.temporary.string(),
        "DBUS_SESSION_BUS_ADDRESS=unix:path=" + root.bus().string(),
        // No system bus: a test that needs one (logind, avahi) starts its own.
        "DBUS_SYSTEM_BUS_ADDRESS=unix:path=" + (root.runtime / "no-system-bus").string(),
        "LANG=C.UTF-8",
        "TZ=UTC",
        "TERM=dumb",
        "SHELL=/bin/sh",
        std::string(kMarker) + "=" + root.top.string(),
    };
    if (const passwd* user = ::getpwuid(::getuid()); user != nullptr) {
        result.push_back(std::string("USER=") + user->pw_name);
        result.push_back(std::string("LOGNAME=") + user->pw_name);
    }
    // The suite's own switches (TOVRIN_LONG_E2E, TOVRIN_CAPTURE_DIR, ...) are the caller's to
    // give, and so is CI=true (a machine the package test may install into); so are the
    // sanitizers' options, for whoever hunts a report by hand.
    for (char** entry = environ; entry != nullptr && *entry != nullptr; ++entry) {
        const std::string_view text = *entry;
        const bool suiteSwitch =
            (text.starts_with("TOVRIN_") && !text.starts_with(kMarker)) || text.starts_with("CI=");
        const bool sanitizerOption =
            text.starts_with("ASAN_OPTIONS=") || text.starts_with("UBSAN_OPTIONS=") ||
            text.starts_with("LSAN_OPTIONS=") || text.starts_with("TSAN_OPTIONS=");
        if (suiteSwitch || sanitizerOption) {
            result.emplace_back(text);
        }
    }
    return result;
}

// The signals the launcher takes through its descriptor; its children get them back.
sigset_t launcherSignals() {
    sigset_t set;
    ::sigemptyset(&set);
    for (const int signal : {SIGCHLD, SIGTERM, SIGINT, SIGHUP}) {
        ::sigaddset(&set, signal);
    }
    return set;
}

void unblockSignals() {
    const sigset_t set = launcherSignals();
    ::sigprocmask(SIG_UNBLOCK, &set, nullptr);
}

// A bus configuration of the test's own: nothing is started on demand from the services the
// machine has installed (a notification daemon, a portal), so every peer on it is the test's.
bool writeBusConfiguration(const Root& root, const fs::path& file) {
    std::ofstream out(file);
    out << "<!DOCTYPE busconfig PUBLIC \"-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN\"\n"
           " \"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd\">\n"
           "<busconfig>\n"
           "  <type>session</type>\n"
           "  <keep_umask/>\n"
           "  <listen>unix:path="
        << root.bus().string()
        << "</listen>\n"
           "  <auth>EXTERNAL</auth>\n"
           "  <policy context=\"default\">\n"
           "    <allow send_destination=\"*\" eavesdrop=\"true\"/>\n"
           "    <allow eavesdrop=\"true\"/>\n"
           "    <allow own=\"*\"/>\n"
           "  </policy>\n"
           "</busconfig>\n";
    return static_cast<bool>(out.flush());
}

// Starts dbus-daemon on the root's bus socket and waits until it has printed its address,
// which it does once it listens. Returns its process number, or -1.
pid_t startBus(const Root& root, std::vector<std::string>& environment) {
    const fs::path configuration = root.top / "session-bus.conf";
    if (!writeBusConfiguration(root, configuration)) {
        return -1;
    }
    std::array<int, 2> ready{-1, -1};
    if (::pipe2(ready.data(), O_CLOEXEC) != 0) {
        return -1;
    }
    const pid_t pid = ::fork();
    if (pid == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGTERM);
        unblockSignals();
        ::dup2(ready[1], 3);
        // Its complaints (it may not raise its descriptor limit, say) go to a log beside it.
        const int null = ::open("/dev/null", O_RDWR);
        const int log =
            ::open((root.top / "session-bus.log").c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
        ::dup2(null, STDIN_FILENO);
        ::dup2(null, STDOUT_FILENO);
        ::dup2(log >= 0 ? log : null, STDERR_FILENO);
        std::vector<std::string> arguments{"dbus-daemon", "--nofork", "--nopidfile",
                                           "--config-file=" + configuration.string(),
                                           "--print-address=3"};
        auto argv = pointers(arguments);
        auto envp = pointers(environment);
        ::execvpe("dbus-daemon", argv.data(), envp.data());
        ::_exit(127);
    }
    ::close(ready[1]);
    if (pid < 0) {
        ::close(ready[0]);
        return -1;
    }
    std::string printed;
    const auto deadline = Clock::now() + kBusStartLimit;
    while (printed.find('\n') == std::string::npos && Clock::now() < deadline) {
        pollfd entry{ready[0], POLLIN, 0};
        const auto left =
            std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
        if (::poll(&entry, 1, static_cast<int>(std::max<long>(left, 0))) <= 0) {
            continue;
        }
        std::array<char, 256> buffer{};
        const ssize_t count = ::read(ready[0], buffer.data(), buffer.size());
        if (count <= 0) {
            break;
        }
        printed.append(buffer.data(), static_cast<std::size_t>(count));
    }
    ::close(ready[0]);
    if (printed.find('\n') == std::string::npos) {
        std::ifstream log(root.top / "session-bus.log");
        for (std::string line; std::getline(log, line);) {
            say("dbus-daemon: " + line);
        }
        ::kill(pid, SIGKILL);
        ::waitpid(pid, nullptr, 0);
        return -1;
    }
    return pid;
}

std::string commandName(pid_t pid) {
    std::ifstream in("/proc/" + std::to_string(pid) + "/comm");
    std::string name;
    std::getline(in, name);
    return name.empty() ? "?" : name;
}

// The processes whose parent is this one: the test's orphans land here.
std::vector<pid_t> children() {
    std::vector<pid_t> result;
    const pid_t self = ::getpid();
    std::error_code error;
    for (const auto& entry : fs::directory_iterator("/proc", error)) {
        const std::string name = entry.path().filename().string();
        if (name.empty() || !std::all_of(name.begin(), name.end(), ::isdigit)) {
            continue;
        }
        std::ifstream in(entry.path() / "stat");
        std::string stat;
        std::getline(in, stat);
        // "pid (comm) state ppid ...": the name may hold spaces and parentheses.
        const auto close = stat.rfind(')');
        if (close == std::string::npos) {
            continue;
        }
        char state = 0;
        int parent = 0;
        if (std::sscanf(stat.c_str() + close + 1, " %c %d", &state, &parent) == 2 &&
            parent == self) {
            result.push_back(static_cast<pid_t>(std::stoi(name)));
        }
    }
    return result;
}

void reapAll() {
    while (::waitpid(-1, nullptr, WNOHANG) > 0) {
    }
}

// Stops everything the test left running: SIGTERM to each orphan (and its group when it
// leads one), a short grace, then SIGKILL; until no child is left. Returns their names.
std::vector<std::string> stopLeftovers() {
    std::vector<std::string> names;
    std::set<pid_t> seen;
    // What ends by itself within a moment is not left running: a process the test has just
    // killed, or a helper that ends when its parent goes (the sanitizers' symbolizer reads until
    // the test's end closes its input).
    const auto settled = Clock::now() + kSettleTime;
    while (Clock::now() < settled) {
        reapAll();
        if (children().empty()) {
            return names;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    for (int round = 0; round < 50; ++round) {
        reapAll();
        const auto left = children();
        if (left.empty()) {
            break;
        }
        for (const pid_t pid : left) {
            if (seen.insert(pid).second) {
                names.push_back(commandName(pid) + "(" + std::to_string(pid) + ")");
            }
            if (::getpgid(pid) == pid) {
                ::kill(-pid, SIGTERM);
            }
            ::kill(pid, SIGTERM);
        }
        const auto deadline = Clock::now() + kLeftoverGrace;
        while (Clock::now() < deadline) {
            reapAll();
            if (children().empty()) {
                break;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        for (const pid_t pid : children()) {
            if (::getpgid(pid) == pid) {
                ::kill(-pid, SIGKILL);
            }
            ::kill(pid, SIGKILL);
        }
    }
    reapAll();
    return names;
}

std::chrono::seconds timeLimit() {
    if (const auto text = variable("TOVRIN_TEST_TIME_LIMIT")) {
        char* end = nullptr;
        const long seconds = std::strtol(text->c_str(), &end, 10);
        if (end != text->c_str() && *end == '\0' && seconds > 0) {
            return std::chrono::seconds(seconds);
        }
    }
    return kDefaultTimeLimit;
}

// Waits for the test, stopping it at the time limit, and reaps every orphan the moment it
// ends (a zombie would still answer kill(pid, 0), and tests look for processes to be gone). A
// quit asked of the launcher goes on to the test, whose own clean-up then runs as usual.
// Returns the test's wait status.
int waitForTest(pid_t test, pid_t& bus, int signals, std::chrono::seconds limit) {
    const auto deadline = Clock::now() + limit;
    std::optional<Clock::time_point> killAt;
    while (true) {
        int status = 0;
        pid_t done = 0;
        while ((done = ::waitpid(-1, &status, WNOHANG)) > 0) {
            if (done == bus) {
                bus = -1;
            }
            if (done == test) {
                return status;
            }
        }
        if (done < 0 && errno == ECHILD) {
            return 0;
        }
        const auto now = Clock::now();
        if (!killAt && now >= deadline) {
            say("the test ran past its time limit of " + std::to_string(limit.count()) +
                " s; stopping it");
            ::kill(test, SIGABRT);
            killAt = now + std::chrono::seconds(2);
        } else if (killAt && now >= *killAt) {
            ::kill(test, SIGKILL);
        }
        const auto until = killAt.value_or(deadline);
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(until - now).count();
        pollfd entry{signals, POLLIN, 0};
        if (::poll(&entry, 1, static_cast<int>(std::clamp<long>(left, 0, 60'000))) > 0) {
            signalfd_siginfo info{};
            while (::read(signals, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
                if (info.ssi_signo != SIGCHLD) {
                    ::kill(test, static_cast<int>(info.ssi_signo));
                }
            }
        }
    }
}

} // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        say("usage: ambrel_test_env PROGRAM [ARGUMENT...]");
        return 2;
    }
    std::vector<std::string> arguments(argv + 1, argv + argc);
    if (std::getenv(kMarker) != nullptr) {
        // Already inside: nothing to make twice.
        auto args = pointers(arguments);
        ::execv(args[0], args.data());
        say("could not start " + arguments[0] + ": " + std::strerror(errno));
        return 127;
    }

    ::prctl(PR_SET_CHILD_SUBREAPER, 1);
    const sigset_t taken = launcherSignals();
    ::sigprocmask(SIG_BLOCK, &taken, nullptr);
    const int signals = ::signalfd(-1, &taken, SFD_CLOEXEC | SFD_NONBLOCK);
    const auto root = makeRoot();
    if (!root || signals < 0) {
        say("could not make a temporary folder under /tmp");
        return 2;
    }
    auto environment = environmentFor(*root);
    pid_t bus = startBus(*root, environment);
    if (bus < 0) {
        say("could not start a session bus (is dbus-daemon installed?)");
        removeRoot(root->top);
        return 2;
    }

    const pid_t test = ::fork();
    if (test == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        unblockSignals();
        auto args = pointers(arguments);
        auto envp = pointers(environment);
        ::execve(args[0], args.data(), envp.data());
        say("could not start " + arguments[0] + ": " + std::strerror(errno));
        ::_exit(127);
    }
    int status = 127 << 8;
    if (test > 0) {
        status = waitForTest(test, bus, signals, timeLimit());
    } else {
        say(std::string("could not start the test: ") + std::strerror(errno));
    }

    if (bus > 0) {
        ::kill(bus, SIGTERM);
        ::waitpid(bus, nullptr, 0);
    }
    const auto leftovers = stopLeftovers();
    if (!leftovers.empty()) {
        std::string list;
        for (const auto& name : leftovers) {
            list += " " + name;
        }
        say("stopped what the test left running:" + list);
        if (const auto log = variable("TOVRIN_TEST_LEFTOVER_LOG")) {
            std::ofstream out(*log, std::ios::app);
            std::string command;
            for (const auto& argument : arguments) {
                command += argument + " ";
            }
            out << command << "->" << list << "\n";
        }
    }
    removeRoot(root->top);

    if (WIFSIGNALED(status)) {
        const int signal = WTERMSIG(status);
        unblockSignals();
        std::signal(signal, SIG_DFL);
        ::raise(signal);
        return 128 + signal;
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 1;
}
