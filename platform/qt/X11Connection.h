#pragma once

#include <xcb/xcb.h>

namespace ambrel::X11Connection {

// The X server connection of the running Qt application; null off X11 or before the
// application exists.
xcb_connection_t* current();

// The atom of `name`, made when the server has none yet; XCB_ATOM_NONE when it cannot answer.
xcb_atom_t atom(xcb_connection_t* connection, const char* name);

// Ends an interactive move or resize of `window` that the window manager was asked for
// (_NET_WM_MOVERESIZE_CANCEL). For a press released before the window manager took the pointer:
// it would otherwise go on moving the window until the next release. Nothing off X11.
void cancelMoveResize(xcb_window_t window);

// Whether an XEmbed tray (the owner of _NET_SYSTEM_TRAY_S0) is running. False off X11.
bool hasXEmbedTray();

} // namespace ambrel::X11Connection
