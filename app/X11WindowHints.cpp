#include "app/X11WindowHints.h"

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include <QGuiApplication>
#include <QtGui/qguiapplication_platform.h>

#include <xcb/xcb.h>

namespace ambrel::X11WindowHints {

namespace {

xcb_atom_t internAtom(xcb_connection_t* connection, const char* name) {
    const auto cookie =
        xcb_intern_atom(connection, 0, static_cast<std::uint16_t>(std::strlen(name)), name);
    std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> reply(
        xcb_intern_atom_reply(connection, cookie, nullptr), &std::free);
    if (!reply) {
        return XCB_ATOM_NONE;
    }
    return reply->atom;
}

std::vector<xcb_atom_t> currentStates(xcb_connection_t* connection, xcb_window_t window,
                                      xcb_atom_t stateAtom) {
    const auto cookie = xcb_get_property(connection, 0, window, stateAtom, XCB_ATOM_ATOM, 0, 1024);
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

xcb_connection_t* x11Connection() {
    auto* x11 = qGuiApp == nullptr ? nullptr
                                   : qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    return x11 == nullptr ? nullptr : x11->connection();
}

} // namespace

void flush() {
    if (xcb_connection_t* connection = x11Connection()) {
        xcb_flush(connection);
    }
}

bool hasXEmbedTray() {
    xcb_connection_t* connection = x11Connection();
    if (connection == nullptr) {
        return false;
    }
    const xcb_atom_t selection = internAtom(connection, "_NET_SYSTEM_TRAY_S0");
    if (selection == XCB_ATOM_NONE) {
        return false;
    }
    std::unique_ptr<xcb_get_selection_owner_reply_t, decltype(&std::free)> reply(
        xcb_get_selection_owner_reply(connection, xcb_get_selection_owner(connection, selection),
                                      nullptr),
        &std::free);
    return reply && reply->owner != XCB_WINDOW_NONE;
}

void markAsDesktopPanel(WId windowId) {
    xcb_connection_t* connection = x11Connection();
    if (connection == nullptr || windowId == 0) {
        return;
    }
    const auto window = static_cast<xcb_window_t>(windowId);

    const xcb_atom_t stateAtom = internAtom(connection, "_NET_WM_STATE");
    const xcb_atom_t desktopAtom = internAtom(connection, "_NET_WM_DESKTOP");
    if (stateAtom == XCB_ATOM_NONE || desktopAtom == XCB_ATOM_NONE) {
        return;
    }
    auto states = currentStates(connection, window, stateAtom);
    for (const char* name : {"_NET_WM_STATE_BELOW", "_NET_WM_STATE_STICKY",
                             "_NET_WM_STATE_SKIP_TASKBAR", "_NET_WM_STATE_SKIP_PAGER"}) {
        const xcb_atom_t state = internAtom(connection, name);
        if (state != XCB_ATOM_NONE &&
            std::find(states.begin(), states.end(), state) == states.end()) {
            states.push_back(state);
        }
    }
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, stateAtom, XCB_ATOM_ATOM, 32,
                        static_cast<std::uint32_t>(states.size()), states.data());

    // 0xFFFFFFFF is "all desktops" in the window-manager hints.
    const std::uint32_t allDesktops = 0xFFFFFFFFu;
    xcb_change_property(connection, XCB_PROP_MODE_REPLACE, window, desktopAtom, XCB_ATOM_CARDINAL,
                        32, 1, &allDesktops);
    xcb_flush(connection);
}

} // namespace ambrel::X11WindowHints
