#include "commands/CommandLine.h"
#include "commands/EnableWifiCommand.h"
#include "commands/HelpCommand.h"
#include "commands/VersionCommand.h"

#include <gtest/gtest.h>

#include "shell/ShellTexts.h"
#include "tests/fakes/FakeSystem.h"

namespace ambrel {
namespace {

using CommandLine::PreviewLook;

std::vector<std::string> args(std::vector<std::string> rest) {
    rest.insert(rest.begin(), "tovrin");
    return rest;
}

TEST(CommandLineTest, NoLookSwitchFollowsTheDesktop) {
    EXPECT_FALSE(CommandLine::previewLook(args({})).has_value());
    EXPECT_FALSE(CommandLine::previewLook(args({"--preview-Dark", "--preview-light=1"})));
}

TEST(CommandLineTest, EachLookSwitchForcesItsLook) {
    EXPECT_EQ(CommandLine::previewLook(args({"--preview-light"})), PreviewLook::light);
    EXPECT_EQ(CommandLine::previewLook(args({"--preview-dark"})), PreviewLook::dark);
}

TEST(CommandLineTest, DarkWinsWhenBothAreGiven) {
    EXPECT_EQ(CommandLine::previewLook(args({"--preview-dark", "--preview-light"})),
              PreviewLook::dark);
    EXPECT_EQ(CommandLine::previewLook(args({"--preview-light", "--preview-dark"})),
              PreviewLook::dark);
}

TEST(CommandLineTest, CapturePathIsTheNextArgument) {
    EXPECT_EQ(CommandLine::capturePreviewPath(args({"--capture-preview", "out.png"})), "out.png");
    EXPECT_EQ(CommandLine::capturePreviewPath(
                  args({"--preview-dark", "--capture-preview", "a b.png", "--preview-light"})),
              "a b.png");
}

TEST(CommandLineTest, CaptureAsTheLastArgumentIsIgnored) {
    EXPECT_FALSE(CommandLine::capturePreviewPath(args({"--capture-preview"})).has_value());
    EXPECT_FALSE(CommandLine::capturePreviewPath(args({})).has_value());
    EXPECT_FALSE(CommandLine::capturePreviewPath({}).has_value());
}

TEST(CommandLineTest, OnlyTheFirstCaptureSwitchCounts) {
    EXPECT_EQ(CommandLine::capturePreviewPath(
                  args({"--capture-preview", "first.png", "--capture-preview", "second.png"})),
              "first.png");
    // The path may itself look like a switch: it is the next argument, whatever it says.
    EXPECT_EQ(
        CommandLine::capturePreviewPath(args({"--capture-preview", "--capture-preview", "x.png"})),
        "--capture-preview");
}

TEST(CommandLineTest, CaptureSwitchIsMatchedExactly) {
    EXPECT_FALSE(CommandLine::capturePreviewPath(args({"--capture-preview=x.png", "y.png"})));
}

TEST(CommandLineTest, ArgumentsKeepTheProgramPathFirst) {
    char program[] = "/opt/tovrin/bin/tovrin";
    char first[] = "--help";
    char* argv[] = {program, first, nullptr};
    EXPECT_EQ(CommandLine::arguments(2, argv),
              (std::vector<std::string>{"/opt/tovrin/bin/tovrin", "--help"}));
    EXPECT_FALSE(CommandLine::hasArgument({"--help"}, "--help"));
}

TEST(CommandLineTest, HelpNamesEverySwitch) {
    const auto help = HelpCommand::text("Tovrin");
    for (const char* option :
         {"--login-status", "--enable-login", "--preview-light", "--preview-dark",
          "--capture-preview", "--readings", "--help", "--version"}) {
        EXPECT_NE(help.find(option), std::string::npos) << option;
    }
}

TEST(CommandLineTest, VersionLine) {
    EXPECT_EQ(VersionCommand::text("Tovrin", "1.1"), "Tovrin 1.1\n");
}

TEST(ShellTextsTest, DisplayNameFallsBackToTovrin) {
    testing::FakeBundle bundle;
    EXPECT_EQ(ShellTexts::displayName(bundle), "Tovrin");
    bundle.info["CFBundleDisplayName"] = "";
    EXPECT_EQ(ShellTexts::displayName(bundle), "Tovrin");
    bundle.info["CFBundleDisplayName"] = "Ambrel Beta";
    EXPECT_EQ(ShellTexts::displayName(bundle), "Ambrel Beta");
}

TEST(ShellTextsTest, MenuTitlesAndToolTipUseTheName) {
    EXPECT_EQ(ShellTexts::showTitle("Tovrin"), "Show Tovrin");
    EXPECT_EQ(ShellTexts::aboutTitle("Tovrin"), "About Tovrin");
    EXPECT_EQ(ShellTexts::quitTitle("Tovrin"), "Quit Tovrin");
    EXPECT_EQ(ShellTexts::toolTip("Tovrin"), "Tovrin \u2014 Mac and iPhone batteries");
    EXPECT_STREQ(ShellTexts::kLoginChangeFailedTitle, "Couldn\u2019t change Start at Login");
}

TEST(ShellTextsTest, AboutTextIsExact) {
    EXPECT_EQ(
        ShellTexts::aboutText("Zed"),
        "By Quenby \u00b7 Version 1.1\n\nMac battery: checked every minute.\niPhone battery: "
        "checked every 5 minutes, while this Mac is awake.\n\nDrag the Zed heading to move the "
        "widget. It stays on your desktop wallpaper beneath application windows. Its native "
        "glass appearance follows your Mac\u2019s light or dark theme.\n\nPair your iPhone by "
        "cable once, choose Trust, then keep both devices on the same Wi-Fi network. Use the "
        "setup button in the panel for details.\n\nReadings stay on this Mac. No account or "
        "cloud service is used.\n\nIncludes libimobiledevice. Open Source Notices are included "
        "inside the app\u2019s Resources folder.");
}

TEST(EnableWifiCommandTest, AUdidIsTakenAsThePhoneGivesIt) {
    EXPECT_EQ(EnableWifiCommand::canonicalUdid("00008110001a2b3c4d5e6f70"),
              "00008110-001A2B3C4D5E6F70");
    EXPECT_EQ(EnableWifiCommand::canonicalUdid("00008110-001a2B3c4D5E6F70"),
              "00008110-001A2B3C4D5E6F70");
    EXPECT_EQ(EnableWifiCommand::canonicalUdid("0123456789ABCDEF0123456789abcdef01234567"),
              "0123456789abcdef0123456789abcdef01234567");
}

TEST(EnableWifiCommandTest, TellsAUdidByItsForm) {
    for (const char* udid :
         {"00008110-001A2B3C4D5E6F70", "00008110001A2B3C4D5E6F70", "00008110-001a2b3c4d5e6f70",
          "0123456789abcdef0123456789ABCDEF01234567"}) {
        EXPECT_TRUE(EnableWifiCommand::looksLikeUdid(udid)) << udid;
    }
    for (const char* text : {"", "bogus", "00008110-001A2B3C4D5E6F7", "00008110-001A2B3C4D5E6F700",
                             "0000811-0001A2B3C4D5E6F70", "00008110-001A2B3C4D5E6F7G",
                             "0123456789abcdef0123456789ABCDEF0123456", "../../etc/passwd"}) {
        EXPECT_FALSE(EnableWifiCommand::looksLikeUdid(text)) << text;
    }
}

} // namespace
} // namespace ambrel
