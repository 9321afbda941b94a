#pragma once

#include <filesystem>
#include <memory>
#include <string>

#include "tests/app/ProcessHarness.h"

namespace ambrel::testing {

// GNOME's window manager, mutter, run headless on a virtual monitor of 1440 x 900, as a Wayland
// compositor with its Xwayland: an X display of its own for the programs under test, and a
// session bus of its own it serves on. Any program of this user may use the display. Ended,
// with everything it started, when this goes.
class MutterSession {
public:
    explicit MutterSession(const std::filesystem::path& folder);
    ~MutterSession();
    MutterSession(const MutterSession&) = delete;
    MutterSession& operator=(const MutterSession&) = delete;

    // Empty when mutter or its Xwayland did not start; errorOutput() then says why.
    const std::string& display() const { return m_display; }
    std::string busAddress() const { return m_bus.address(); }
    std::string errorOutput() const;

private:
    PrivateBus m_bus;
    std::unique_ptr<ChildProcess> m_process;
    std::string m_display;
};

// Mutter's pointer, moved and pressed through mutter itself (XTest input under Xwayland never
// reaches the compositor, so it can neither focus a window nor carry a window move).
class MutterPointer {
public:
    MutterPointer(const MutterSession& session, const std::filesystem::path& folder);
    ~MutterPointer();
    MutterPointer(const MutterPointer&) = delete;
    MutterPointer& operator=(const MutterPointer&) = delete;

    // Each true once mutter has taken the step.
    bool moveTo(int x, int y);
    bool press();
    bool release();

    // Why the last step failed.
    const std::string& lastAnswer() const { return m_lastAnswer; }

private:
    bool step(const std::string& line);

    std::filesystem::path m_steps;
    int m_stepsFd = -1;
    std::unique_ptr<ChildProcess> m_process;
    std::string m_lastAnswer;
};

} // namespace ambrel::testing
