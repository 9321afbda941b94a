#include "tests/app/OffscreenApplication.h"

#include <QApplication>

namespace ambrel::testing {

void ensureOffscreenApplication() {
    if (QApplication::instance() != nullptr) {
        return;
    }
    qputenv("QT_QPA_PLATFORM", "offscreen");
    // Nothing on any bus is asked, whatever the machine running the tests has.
    qputenv("DBUS_SESSION_BUS_ADDRESS", "unix:path=/nonexistent/tovrin-test-bus");
    static int argc = 1;
    static char name[] = "ambrel_app_tests";
    static char* argv[] = {name, nullptr};
    new QApplication(argc, argv);
}

} // namespace ambrel::testing

// Fontconfig keeps a little of its configuration (288 bytes in two blocks) in memory it never
// frees once text has been drawn; that is the library's, not ours, so leak checks in sanitizer
// builds leave it out. Debian ships the library without symbols and its reports end inside it,
// so the library's name is the narrowest match there is.
extern "C" const char* __lsan_default_suppressions() {
    return "leak:libfontconfig.so\n";
}
