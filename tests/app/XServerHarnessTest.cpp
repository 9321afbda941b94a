// The tests' own X servers keep what their clients leave on them: they do not reset when the last
// client goes, so a program that connects just then is never turned away.

#include <gtest/gtest.h>

#include "tests/app/XServerHarness.h"
#include "tests/fakes/ChildProcess.h"

namespace ambrel {
namespace {

using testing::EnvironmentChanges;
using testing::runProcess;

// A reset clears the root window's properties; one set by a client that has since left is still
// there only if the server did not reset.
void expectRootPropertyOutlivesItsClient(const std::string& display) {
    const auto set = runProcess({"/usr/bin/xprop", "-display", display, "-root", "-f",
                                 "_TOVRIN_TEST_MARK", "8s", "-set", "_TOVRIN_TEST_MARK", "kept"},
                                EnvironmentChanges{});
    ASSERT_EQ(set.exitCode, 0) << set.err;
    const auto read = testing::windowProperty(display, "root", "_TOVRIN_TEST_MARK");
    EXPECT_NE(read.find("\"kept\""), std::string::npos) << read;
}

TEST(XServerHarnessTest, XvfbDoesNotResetWhenItsLastClientLeaves) {
    const testing::XvfbServer server;
    ASSERT_FALSE(server.display().empty()) << "Xvfb did not start";
    expectRootPropertyOutlivesItsClient(server.display());
}

TEST(XServerHarnessTest, XephyrDoesNotResetWhenItsLastClientLeaves) {
    const testing::XvfbServer host;
    ASSERT_FALSE(host.display().empty()) << "Xvfb did not start";
    const testing::XephyrServer nested(host.display(), 800, 600);
    ASSERT_FALSE(nested.display().empty()) << "Xephyr did not start";
    expectRootPropertyOutlivesItsClient(nested.display());
}

} // namespace
} // namespace ambrel
