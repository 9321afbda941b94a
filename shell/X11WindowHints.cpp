#include "shell/X11WindowHints.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include <xcb/xcb.h>

#include "platform/qt/X11Connection.h"

namespace ambrel::X11WindowHints {

namespace {

std::vector<xcb_atom_t> currentAtoms(xcb_connection_t* connection, xcb_window_t window,
                                     xcb_atom_t property) {
    const auto cookie = xcb_get_property(connection, 0, window, property, XCB_ATOM_ATOM, 0, 1024);
    std::unique_ptr<xcb_get_property_reply_t, decltype(&std::free)> reply(
        xcb_get_property_reply(connection, cookie, nullptr), &std::free);
    if (!reply || reply->format != 32 || reply->type != XCB_ATOM_ATOM) {
        return {};
    }
    const auto* atoms = static_cast<const xcb_atom_t*>(xcb_get_property_value(reply.get()));
    const auto count =
        static_cast<std::size_t>(xcb_get_property_value_length(reply.get())) / sizeof(xcb_atom_t);
    return {atoms, atoms + count};
}

} // namespace

void flush() {
    if (xcb_connection_t* connection = X11Connection::current()) {
        xcb_flush(connection);
    }
}

void markAsDesktopPanel(WId windowId) {
    xcb_connection_t* connection = X11Connection::current();
    if (connection == nullptr || windowId == 0) {
        return;
    }
    const auto window = static_cast<xcb_window_t>(windowId);

    const xcb_atom_t stateAtom = X11Connection::atom(connection, "_NET_WM_STATE");
    const xcb_atom_t desktopAtom = X11Connection::atom(connection, "_NET_WM_DESKTOP");
    if (stateAtom == XCB_ATOM_NONE || desktopAtom == XCB_ATOM_NONE) {
        return;
    }
    auto states = currentAtoms(connection, window, stateAtom);
    for (const char* name : {"_NET_WM_STATE_BELOW", "_NET_WM_STATE_STICKY",
                             "_NET_WM_STATE_SKIP_TASKBAR", "_NET_WM_STATE_SKIP_PAGER"}) {
        const xcb_atom_t state = X11Connection::atom(connection, name);
        if (state != XCB_ATOM_NONE &&
            std::find(states.begin(), states.end(), state) == states.end()) {
            states.push_back(state);
        }
    }
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, stateAtom, XCB_ATOM_ATOM, 32,
                        static_cast<std::uint32_t>(states.size()), states.data());

    // The panel takes no focus (WM_HINTS input is false); offering WM_TAKE_FOCUS as well would
    // still let a window manager hand it the keyboard.
    const xcb_atom_t protocolsAtom = X11Connection::atom(connection, "WM_PROTOCOLS");
    const xcb_atom_t takeFocusAtom = X11Connection::atom(connection, "WM_TAKE_FOCUS");
    if (protocolsAtom != XCB_ATOM_NONE && takeFocusAtom != XCB_ATOM_NONE) {
        auto protocols = currentAtoms(connection, window, protocolsAtom);
        if (std::erase(protocols, takeFocusAtom) > 0) {
            xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, protocolsAtom,
                                XCB_ATOM_ATOM, 32, static_cast<std::uint32_t>(protocols.size()),
                                protocols.data());
        }
    }

    // 0xFFFFFFFF is "all desktops" in the window-manager hints.
    const std::uint32_t allDesktops = 0xFFFFFFFFu;
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, desktopAtom, XCB_ATOM_CARDINAL,
                        32, 1, &allDesktops);
    xcb_flush(connection);
}

} // namespace ambrel::X11WindowHints
