#include "tests/app/XServerHarness.h"

#include <regex>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include "tests/fakes/ChildProcess.h"

namespace ambrel::testing {

XServer::XServer(std::vector<std::string> arguments, const std::string& hostDisplay) {
    int ready[2];
    if (arguments.empty() || ::pipe2(ready, O_CLOEXEC) != 0) {
        return;
    }
    // -noreset: by default the server resets whenever its last client leaves, and a client that
    // connects during that reset is turned away. The tests' short-lived xprop and xwininfo
    // calls would make every program started beside them race such resets.
    arguments.insert(arguments.begin() + 1, {"-displayfd", "3", "-noreset"});
    ProcessOptions options;
    options.arguments = std::move(arguments);
    if (!hostDisplay.empty()) {
        options.environment = environmentWith({{"DISPLAY", hostDisplay}});
    }
    options.output = OutputTo::discard;
    options.error = OutputTo::discard;
    options.descriptorThree = ready[1];
    m_process = std::make_unique<ChildProcess>(std::move(options));
    ::close(ready[1]);
    std::string number;
    pollfd wait{ready[0], POLLIN, 0};
    while (m_process->isStarted() && ::poll(&wait, 1, 10000) > 0) {
        char c = 0;
        if (::read(ready[0], &c, 1) != 1 || c == '\n') {
            break;
        }
        number += c;
    }
    ::close(ready[0]);
    if (!number.empty()) {
        m_display = ":" + number;
    }
}

XServer::~XServer() = default;

XvfbServer::XvfbServer()
    : XServer({"/usr/bin/Xvfb", "-screen", "0", "1440x900x24", "-nolisten", "tcp"}) {}

XephyrServer::XephyrServer(const std::string& host, int width, int height)
    : XServer({"/usr/bin/Xephyr", "-screen", std::to_string(width) + "x" + std::to_string(height),
               "-resizeable", "-nolisten", "tcp"},
              host) {}
std::string windowProperty(const std::string& display, const std::string& window,
                           const char* name) {
    std::vector<std::string> command{"/usr/bin/xprop", "-display", display};
    if (window == "root") {
        command.emplace_back("-root");
    } else {
        command.insert(command.end(), {"-id", window});
    }
    command.emplace_back(name);
    return runProcess(command, EnvironmentChanges{}).out;
}

std::vector<unsigned long> rootWindowList(const std::string& display, const char* name) {
    const auto text = windowProperty(display, "root", name);
    std::vector<unsigned long> windows;
    const std::regex id("0x[0-9a-f]+");
    for (auto it = std::sregex_iterator(text.begin(), text.end(), id); it != std::sregex_iterator();
         ++it) {
        windows.push_back(std::stoul(it->str(), nullptr, 16));
    }
    return windows;
}

std::optional<WindowGeometry> windowGeometry(const std::string& display, unsigned long window) {
    const auto text =
        runProcess({"/usr/bin/xwininfo", "-display", display, "-id", std::to_string(window)},
                   EnvironmentChanges{})
            .out;
    const auto field = [&text](const char* name) -> std::optional<int> {
        const std::regex pattern(std::string(name) + R"(:\s+(-?\d+))");
        std::smatch match;
        if (!std::regex_search(text, match, pattern)) {
            return std::nullopt;
        }
        return std::stoi(match[1]);
    };
    const auto x = field("Absolute upper-left X");
    const auto y = field("Absolute upper-left Y");
    const auto width = field("Width");
    const auto height = field("Height");
    if (!x || !y || !width || !height) {
        return std::nullopt;
    }
    return WindowGeometry{*x, *y, *width, *height};
}

std::optional<unsigned long> managedWindowTitled(const std::string& display,
                                                 const std::string& title) {
    for (const auto window : rootWindowList(display, "_NET_CLIENT_LIST")) {
        const auto name = windowProperty(display, std::to_string(window), "WM_NAME");
        if (name.find("= \"" + title + "\"") != std::string::npos) {
            return window;
        }
    }
    return std::nullopt;
}

bool xdotool(const std::string& display, const std::vector<std::string>& arguments) {
    std::vector<std::string> command{"/usr/bin/xdotool"};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return runProcess(command, EnvironmentChanges{{"DISPLAY", display}}).exitCode == 0;
}

} // namespace ambrel::testing
