// Says whether a program holds the keyboard of the X display in DISPLAY: exits 0 when it does
// (a grab of our own is refused as already taken), 1 when nobody does, 2 when the display
// cannot be opened. An open menu holds the keyboard; keys typed before it does go elsewhere.

#include <xcb/xcb.h>

#include <cstdio>
#include <cstdlib>
#include <memory>

int main() {
    xcb_connection_t* connection = xcb_connect(nullptr, nullptr);
    if (xcb_connection_has_error(connection)) {
        std::fprintf(stderr, "cannot open the display\n");
        xcb_disconnect(connection);
        return 2;
    }
    xcb_window_t root = xcb_setup_roots_iterator(xcb_get_setup(connection)).data->root;
    const std::unique_ptr<xcb_grab_keyboard_reply_t, decltype(&std::free)> reply(
        xcb_grab_keyboard_reply(connection,
                                xcb_grab_keyboard(connection, 0, root, XCB_CURRENT_TIME,
                                                  XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC),
                                nullptr),
        &std::free);
    const bool held = reply && reply->status == XCB_GRAB_STATUS_ALREADY_GRABBED;
    if (reply && reply->status == XCB_GRAB_STATUS_SUCCESS) {
        xcb_ungrab_keyboard(connection, XCB_CURRENT_TIME);
        xcb_flush(connection);
    }
    xcb_disconnect(connection);
    return held ? 0 : 1;
}
