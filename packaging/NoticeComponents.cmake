# The components whose notices Tovrin ships: what each is used for, its licence, the Debian
# package whose copyright file holds its notices, and where it comes from.

set(TOVRIN_NOTICE_COMPONENTS libimobiledevice libplist avahi qt qtsvg icu nlohmann_json
                              bootstrap_icons sqlite)

set(libimobiledevice_NAME "libimobiledevice")
set(libimobiledevice_USE "idevice_id, ideviceinfo, idevicepair and idevicediagnostics, run as separate programs; linked dynamically into the tovrin-lockdown helper")
set(libimobiledevice_LICENSE "GNU Lesser General Public License 2.1 or later (LGPL-2.1+)")
set(libimobiledevice_PACKAGE "libimobiledevice-utils")
set(libimobiledevice_URL "https://libimobiledevice.org/")

set(libplist_NAME "libplist")
set(libplist_USE "reads the property lists that ideviceinfo prints")
set(libplist_LICENSE "GNU Lesser General Public License 2.1 or later (LGPL-2.1+)")
set(libplist_PACKAGE "libplist3")
set(libplist_URL "https://libimobiledevice.org/")

set(avahi_NAME "Avahi client library")
set(avahi_USE "finds iPhones on the local network through avahi-daemon")
set(avahi_LICENSE "GNU Lesser General Public License 2.1 or later (LGPL-2.1+)")
set(avahi_PACKAGE "libavahi-client3")
set(avahi_URL "https://avahi.org/")

set(qt_NAME "Qt 6 (Core, Gui, Widgets, D-Bus)")
set(qt_USE "windows, drawing, tray item, event loop, settings, D-Bus")
set(qt_LICENSE "GNU Lesser General Public License 3 (LGPL-3), dynamically linked")
set(qt_PACKAGE "libqt6core6")
set(qt_URL "https://www.qt.io/")

set(qtsvg_NAME "Qt 6 SVG")
set(qtsvg_USE "draws the widget's icons")
set(qtsvg_LICENSE "GNU Lesser General Public License 3 (LGPL-3), dynamically linked")
set(qtsvg_PACKAGE "libqt6svg6")
set(qtsvg_URL "https://www.qt.io/")

set(icu_NAME "ICU (International Components for Unicode)")
set(icu_USE "localized dates and times")
set(icu_LICENSE "Unicode License (the ICU licence, MIT-style)")
set(icu_PACKAGE "libicu72")
set(icu_URL "https://icu.unicode.org/")

set(nlohmann_json_NAME "JSON for Modern C++ (nlohmann/json)")
set(nlohmann_json_USE "the reading cache and the command-line reports; compiled in")
set(nlohmann_json_LICENSE "MIT License")
set(nlohmann_json_PACKAGE "nlohmann-json3-dev")
set(nlohmann_json_URL "https://github.com/nlohmann/json")

set(bootstrap_icons_NAME "Bootstrap Icons")
set(bootstrap_icons_USE "the symbols drawn on the card; embedded in the program")
set(bootstrap_icons_LICENSE "MIT License")
set(bootstrap_icons_PACKAGE "bootstrap-icons")
set(bootstrap_icons_URL "https://icons.getbootstrap.com/")

set(sqlite_NAME "SQLite")
set(sqlite_USE "the battery history file; dynamically linked")
set(sqlite_LICENSE "Public domain")
set(sqlite_PACKAGE "libsqlite3-0")
set(sqlite_URL "https://sqlite.org/")

# Full texts of the licences that the copyright files above refer to by name.
set(TOVRIN_NOTICE_LICENSE_TEXTS LGPL-2.1 LGPL-3 GPL-3)
