// One QApplication for every test of this program, on an X server of its own (Xvfb): the
// connection window is a real top-level window, drawn and shown as on a desktop.
#include <cstdlib>
#include <memory>

#include <QApplication>
#include <gtest/gtest.h>

#include "tests/app/XServerHarness.h"

namespace {

class XvfbApplication final : public ::testing::Environment {
public:
    void SetUp() override {
        m_server = std::make_unique<ambrel::testing::XvfbServer>();
        ASSERT_FALSE(m_server->display().empty()) << "Xvfb did not start";
        ::setenv("DISPLAY", m_server->display().c_str(), 1);
        ::setenv("QT_QPA_PLATFORM", "xcb", 1);
        m_application = std::make_unique<QApplication>(m_argc, m_argv);
        ASSERT_EQ(QGuiApplication::platformName(), QStringLiteral("xcb"));
    }
    void TearDown() override {
        m_application.reset();
        m_server.reset();
    }

private:
    int m_argc = 1;
    char m_name[40] = "ambrel_connection_window_tests";
    char* m_argv[2] = {m_name, nullptr};
    std::unique_ptr<ambrel::testing::XvfbServer> m_server;
    std::unique_ptr<QApplication> m_application;
};

[[maybe_unused]] ::testing::Environment* const environment =
    ::testing::AddGlobalTestEnvironment(new XvfbApplication);

} // namespace
