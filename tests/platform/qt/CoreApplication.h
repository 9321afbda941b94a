#pragma once

#include <QCoreApplication>

namespace ambrel::testing {

// The test program's one QCoreApplication, made on first use: Qt allows one per process, and the
// timer and scheduler tests share the program.
inline QCoreApplication& coreApplication() {
    static int argc = 1;
    static char name[] = "ambrel_platform_qt_tests";
    static char* argv[] = {name, nullptr};
    static QCoreApplication instance(argc, argv);
    return instance;
}

} // namespace ambrel::testing
