#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace ambrel::testing {

// An X server of its own for each test, on a display it picks; it tells its display number
// once it is ready. Killed and reaped when this goes.
class ChildProcess;

class XServer {
public:
    // `arguments`: the server and its options, without -displayfd or -noreset; `hostDisplay` for a
    // nested server.
    explicit XServer(std::vector<std::string> arguments, const std::string& hostDisplay = {});
    ~XServer();
    XServer(const XServer&) = delete;
    XServer& operator=(const XServer&) = delete;

    // Empty when the server did not start.
    const std::string& display() const { return m_display; }

private:
    std::unique_ptr<ChildProcess> m_process;
    std::string m_display;
};

// Xvfb, 1440 x 900.
class XvfbServer : public XServer {
public:
    XvfbServer();
};

// Xephyr of `width` x `height` in a window on `host`'s display; unlike Xvfb its screen can be
// resized with xrandr (to any size it lists).
class XephyrServer : public XServer {
public:
    XephyrServer(const std::string& host, int width, int height);
};

// xprop's answer for one property of a window ("root" for the root window).
std::string windowProperty(const std::string& display, const std::string& window, const char* name);

// The window ids a root property lists (_NET_CLIENT_LIST_STACKING, bottom to top).
std::vector<unsigned long> rootWindowList(const std::string& display, const char* name);

struct WindowGeometry {
    int x = 0;
    int y = 0;
    int width = 0;
    int height = 0;
};

// Where a window is on the screen, whatever frame a window manager put around it.
std::optional<WindowGeometry> windowGeometry(const std::string& display, unsigned long window);

// The first managed window whose title is exactly `title`.
std::optional<unsigned long> managedWindowTitled(const std::string& display,
                                                 const std::string& title);

// Runs xdotool on `display` with `arguments`; true when it succeeded.
bool xdotool(const std::string& display, const std::vector<std::string>& arguments);

} // namespace ambrel::testing
