#pragma once

#include <QWindow>

namespace ambrel::X11WindowHints {

// Asks the window manager to keep an unmapped top-level window below other windows, on every
// workspace (_NET_WM_DESKTOP 0xFFFFFFFF, _NET_WM_STATE_STICKY) and out of taskbars and pagers.
// Call it right before each map: window managers drop _NET_WM_STATE when a window is hidden.
// Qt merges its own states into the list when it maps the window. Does nothing off X11.
void markAsDesktopPanel(WId window);

// Sends the requests Qt has queued for the X server now. A restack (raise) is only queued, and
// with no input pending the event loop may not send it until something else happens.
void flush();

} // namespace ambrel::X11WindowHints
