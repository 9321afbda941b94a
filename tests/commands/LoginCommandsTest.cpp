#include "commands/EnableLoginCommand.h"
#include "commands/LoginReport.h"
#include "commands/LoginStatusCommand.h"

#include <gtest/gtest.h>

#include "tests/app/FakeLoginItemService.h"

namespace ambrel {
namespace {

using testing::FakeLoginItemService;

const std::string kIdentifier = "com.quenby.Tovrin";
const std::string kPath = "/opt/tovrin/bin/tovrin";

struct Outcome {
    int exitCode = 0;
    std::string output;
};

// Runs the start-at-login command the arguments ask for, asked in the entry's order; nothing
// when neither is asked for and the program would run.
std::optional<Outcome> run(std::vector<std::string> arguments, FakeLoginItemService& service,
                           const std::string& path = kPath) {
    arguments.insert(arguments.begin(), "/opt/tovrin/bin/tovrin");
    EnableLoginCommand enable(service, {kIdentifier, path});
    LoginStatusCommand status(service, {kIdentifier, path});
    for (Command* command : std::initializer_list<Command*>{&enable, &status}) {
        if (command->isRequested(arguments)) {
            Outcome outcome;
            const Invocation invocation{arguments, 0, nullptr,
                                        [&](const std::string& text) { outcome.output += text; },
                                        [](const std::string&) {}};
            outcome.exitCode = command->run(invocation);
            return outcome;
        }
    }
    return std::nullopt;
}

// Runs "--enable-login" against `service`: it ends with `exitCode`, and what it printed goes to
// `output` when given.
void enableLogin(FakeLoginItemService& service, int exitCode, std::string* output = nullptr) {
    const auto outcome = run({"--enable-login"}, service);
    ASSERT_TRUE(outcome);
    EXPECT_EQ(outcome->exitCode, exitCode);
    if (output != nullptr) {
        *output = outcome->output;
    }
}

TEST(LoginCommandTest, StatusNamesAreExact) {
    EXPECT_EQ(LoginReport::statusName(LoginItemStatus::notRegistered), "notRegistered");
    EXPECT_EQ(LoginReport::statusName(LoginItemStatus::enabled), "enabled");
    EXPECT_EQ(LoginReport::statusName(LoginItemStatus::requiresApproval), "requiresApproval");
    EXPECT_EQ(LoginReport::statusName(LoginItemStatus::notFound), "notFound");
    EXPECT_EQ(LoginReport::statusName(static_cast<LoginItemStatus>(42)), "unknown");
}

TEST(LoginCommandTest, EnabledReportIsSortedCompactAndEscapesSlashes) {
    EXPECT_EQ(LoginReport::report(LoginItemStatus::enabled, true, kIdentifier, kPath, {}),
              "{\"appPath\":\"\\/opt\\/tovrin\\/bin\\/tovrin\",\"bundleIdentifier\":"
              "\"com.quenby.Tovrin\",\"enabled\":true,\"status\":\"enabled\"}");
}

TEST(LoginCommandTest, FailedRegistrationAddsTheErrorKeys) {
    const LoginItemError failure{"Couldn’t write a/b", "POSIXErrorDomain", 13};
    EXPECT_EQ(LoginReport::report(LoginItemStatus::notFound, false, "", "/x", failure),
              "{\"appPath\":\"\\/x\",\"bundleIdentifier\":\"\",\"enabled\":false,"
              "\"error\":\"Couldn’t write a\\/b\",\"errorCode\":13,"
              "\"errorDomain\":\"POSIXErrorDomain\",\"status\":\"notFound\"}");
}

TEST(LoginCommandTest, QuotesAndBackslashesInThePathStayValidJson) {
    const auto line =
        LoginReport::report(LoginItemStatus::notRegistered, false, kIdentifier, "/a \"b\"\\c", {});
    EXPECT_NE(line.find("\"appPath\":\"\\/a \\\"b\\\"\\\\c\""), std::string::npos) << line;
}

TEST(LoginCommandTest, TextThatIsNotUtf8PrintsNothing) {
    EXPECT_EQ(LoginReport::report(LoginItemStatus::enabled, true, kIdentifier, "/bad\xff", {}), "");
}

TEST(LoginCommandTest, NoSwitchMeansRunTheWidget) {
    FakeLoginItemService service;
    EXPECT_FALSE(run({}, service).has_value());
    EXPECT_FALSE(run({"--preview-dark", "--capture-preview", "x.png"}, service).has_value());
    EXPECT_EQ(service.statusReads, 0);
}

TEST(LoginCommandTest, SwitchesAreMatchedExactly) {
    FakeLoginItemService service;
    EXPECT_FALSE(run({"--Enable-Login"}, service).has_value());
    EXPECT_FALSE(run({"--enable-login=1"}, service).has_value());
    EXPECT_FALSE(run({"--LOGIN-STATUS"}, service).has_value());
    EXPECT_FALSE(run({"--login-status=yes"}, service).has_value());
    EXPECT_FALSE(run({"-login-status"}, service).has_value());
}

TEST(LoginCommandTest, TheProgramPathIsNotASwitch) {
    FakeLoginItemService service;
    const std::vector<std::string> arguments{"--login-status"};
    EXPECT_FALSE(LoginStatusCommand(service, {kIdentifier, kPath}).isRequested(arguments));
    EXPECT_FALSE(EnableLoginCommand(service, {kIdentifier, kPath}).isRequested({"--enable-login"}));
}

TEST(LoginCommandTest, StatusNotRegisteredExitsZero) {
    FakeLoginItemService service;
    const auto outcome = run({"--login-status"}, service);
    ASSERT_TRUE(outcome);
    EXPECT_EQ(outcome->exitCode, 0);
    EXPECT_NE(outcome->output.find("\"enabled\":false"), std::string::npos);
    EXPECT_NE(outcome->output.find("\"status\":\"notRegistered\""), std::string::npos);
    EXPECT_EQ(outcome->output.back(), '\n');
    EXPECT_EQ(service.registerCalls, 0);
}

TEST(LoginCommandTest, StatusAloneExitsZeroWhateverTheStatus) {
    for (auto status :
         {LoginItemStatus::enabled, LoginItemStatus::requiresApproval, LoginItemStatus::notFound}) {
        FakeLoginItemService service;
        service.current = status;
        const auto outcome = run({"--login-status"}, service);
        ASSERT_TRUE(outcome);
        EXPECT_EQ(outcome->exitCode, 0);
        EXPECT_NE(outcome->output.find(LoginReport::statusName(status)), std::string::npos);
    }
}

TEST(LoginCommandTest, EnableRegistersAndExitsZero) {
    FakeLoginItemService service;
    std::string output;
    ASSERT_NO_FATAL_FAILURE(enableLogin(service, 0, &output));
    EXPECT_EQ(service.registerCalls, 1);
    EXPECT_NE(output.find("\"enabled\":true"), std::string::npos);
    EXPECT_EQ(output.find("error"), std::string::npos);
}

TEST(LoginCommandTest, EnableWhenEnabledMakesNoRegistrationCall) {
    FakeLoginItemService service;
    service.current = LoginItemStatus::enabled;
    ASSERT_NO_FATAL_FAILURE(enableLogin(service, 0));
    EXPECT_EQ(service.registerCalls, 0);
}

TEST(LoginCommandTest, EnableNeedingApprovalExitsTwoWithTheError) {
    FakeLoginItemService service;
    service.current = LoginItemStatus::requiresApproval;
    service.registerFailure = LoginItemError{"Turn it on there.", "AmbrelLoginItemErrorDomain", 2};
    std::string output;
    ASSERT_NO_FATAL_FAILURE(enableLogin(service, 2, &output));
    EXPECT_NE(output.find("\"status\":\"requiresApproval\""), std::string::npos);
    EXPECT_NE(output.find("\"error\":\"Turn it on there.\""), std::string::npos);
    EXPECT_NE(output.find("\"errorCode\":2"), std::string::npos);
}

TEST(LoginCommandTest, EnableThatEndsNeedingApprovalExitsTwo) {
    FakeLoginItemService service;
    service.afterRegister = LoginItemStatus::requiresApproval;
    ASSERT_NO_FATAL_FAILURE(enableLogin(service, 2));
}

TEST(LoginCommandTest, EnableNotFoundExitsOne) {
    FakeLoginItemService service;
    service.current = LoginItemStatus::notFound;
    service.registerFailure = LoginItemError{"Install it first.", "AmbrelLoginItemErrorDomain", 1};
    std::string output;
    ASSERT_NO_FATAL_FAILURE(enableLogin(service, 1, &output));
    EXPECT_NE(output.find("\"errorDomain\":\"AmbrelLoginItemErrorDomain\""), std::string::npos);
}

TEST(LoginCommandTest, EnableThatLeavesItNotRegisteredExitsOne) {
    FakeLoginItemService service;
    service.afterRegister = LoginItemStatus::notRegistered;
    std::string output;
    ASSERT_NO_FATAL_FAILURE(enableLogin(service, 1, &output));
    EXPECT_EQ(output.find("error"), std::string::npos);
}

TEST(LoginCommandTest, BothSwitchesBehaveAsEnable) {
    FakeLoginItemService service;
    const auto outcome = run({"--login-status", "--enable-login"}, service);
    ASSERT_TRUE(outcome);
    EXPECT_EQ(service.registerCalls, 1);
    EXPECT_EQ(outcome->exitCode, 0);

    FakeLoginItemService failing;
    failing.current = LoginItemStatus::notFound;
    failing.registerFailure = LoginItemError{"no", "d", 1};
    const auto failed = run({"--enable-login", "--login-status"}, failing);
    ASSERT_TRUE(failed);
    EXPECT_EQ(failed->exitCode, 1) << "--login-status alone would have exited 0";
}

} // namespace
} // namespace ambrel
