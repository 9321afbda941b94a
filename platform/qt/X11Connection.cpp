#include "platform/qt/X11Connection.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include <QGuiApplication>
#include <QtGui/qguiapplication_platform.h>

namespace ambrel::X11Connection {

xcb_connection_t* current() {
    auto* x11 = qGuiApp == nullptr ? nullptr
                                   : qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    return x11 == nullptr ? nullptr : x11->connection();
}

xcb_atom_t atom(xcb_connection_t* connection, const char* name) {
    const auto cookie =
        xcb_intern_atom(connection, 0, static_cast<std::uint16_t>(std::strlen(name)), name);
    std::unique_ptr<xcb_intern_atom_reply_t, decltype(&std::free)> reply(
        xcb_intern_atom_reply(connection, cookie, nullptr), &std::free);
    if (!reply) {
        return XCB_ATOM_NONE;
    }
    return reply->atom;
}

void cancelMoveResize(xcb_window_t window) {
    xcb_connection_t* connection = current();
    if (connection == nullptr) {
        return;
    }
    const xcb_screen_t* screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    const xcb_atom_t moveResize = atom(connection, "_NET_WM_MOVERESIZE");
    if (screen == nullptr || moveResize == XCB_ATOM_NONE) {
        return;
    }
    constexpr std::uint32_t kCancel = 11;
    constexpr std::uint32_t kFromAnApplication = 1;
    xcb_client_message_event_t message{};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = window;
    message.type = moveResize;
    message.data.data32[2] = kCancel;
    message.data.data32[4] = kFromAnApplication;
    xcb_send_event(connection, 0, screen->root,
                   XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char*>(&message));
    xcb_flush(connection);
}

bool hasXEmbedTray() {
    xcb_connection_t* connection = current();
    if (connection == nullptr) {
        return false;
    }
    const xcb_atom_t selection = atom(connection, "_NET_SYSTEM_TRAY_S0");
    if (selection == XCB_ATOM_NONE) {
        return false;
    }
    std::unique_ptr<xcb_get_selection_owner_reply_t, decltype(&std::free)> reply(
        xcb_get_selection_owner_reply(connection, xcb_get_selection_owner(connection, selection),
                                      nullptr),
        &std::free);
    return reply && reply->owner != XCB_WINDOW_NONE;
}

} // namespace ambrel::X11Connection
