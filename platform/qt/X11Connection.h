#pragma once

#include <xcb/xcb.h>

namespace ambrel::X11Connection {

// The X server connection of the running Qt application; null off X11 or before the
// application exists.
xcb_connection_t* current();

// The atom of `name`, made when the server has none yet; XCB_ATOM_NONE when it cannot answer.
xcb_atom_t atom(xcb_connection_t* connection, const char* name);

// Whether an XEmbed tray (the owner of _NET_SYSTEM_TRAY_S0) is running. False off X11.
bool hasXEmbedTray();

} // namespace ambrel::X11Connection
