// The tree that `cmake --install` lays out: the bundle, the desktop integration files checked
// with the desktop's own validators, the icons, the manual page and the notices.

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <memory>
#include <regex>
#include <set>
#include <string>

#include <QColor>
#include <QImage>
#include <QImageReader>
#include <QString>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/install/CommandResult.h"
#include "tests/install/InstalledTree.h"

namespace ambrel::installtest {
namespace {

namespace fs = std::filesystem;

constexpr std::array kIconSizes{16, 22, 24, 32, 48, 64, 128, 256};
constexpr const char* kAppId = "com.quenby.Tovrin";

class InstallTreeTest : public ::testing::Test {
protected:
    static void SetUpTestSuite() { s_tree = std::make_unique<InstalledTree>(); }
    static void TearDownTestSuite() { s_tree.reset(); }

    void SetUp() override {
        ASSERT_TRUE(s_tree->installation().succeeded()) << s_tree->installation().describe();
    }

    static const InstalledTree& tree() { return *s_tree; }
    static fs::path share() { return tree().prefix() / "share"; }

    // Runs one of the desktop's validators, which must be installed for these tests.
    static CommandResult validate(const std::string& tool, std::vector<std::string> arguments) {
        const auto path = findOnPath(tool);
        if (!path) {
            ADD_FAILURE() << tool << " is missing (Debian: desktop-file-utils, appstream)";
            return {};
        }
        return runCommand(path->string(), arguments);
    }

    static std::unique_ptr<InstalledTree> s_tree;
};

std::unique_ptr<InstalledTree> InstallTreeTest::s_tree;

std::set<std::string> switchesIn(const std::string& text) {
    static const std::regex pattern(R"(--[a-z][a-z-]*[a-z])");
    std::set<std::string> found;
    for (auto it = std::sregex_iterator(text.begin(), text.end(), pattern);
         it != std::sregex_iterator(); ++it) {
        found.insert(it->str());
    }
    return found;
}

// The value of `key` in a desktop entry's main group; absent keys give an empty text.
std::string desktopValue(const std::string& text, const std::string& key) {
    const std::regex line("(^|\n)" + key + "=([^\n]*)");
    std::smatch match;
    return std::regex_search(text, match, line) ? match[2].str() : std::string();
}

TEST_F(InstallTreeTest, ProgramAndItsResourceFolderAreSiblings) {
    const auto status = fs::status(tree().program());
    ASSERT_TRUE(fs::is_regular_file(status)) << tree().program();
    EXPECT_NE(status.permissions() & fs::perms::others_exec, fs::perms::none);

    const auto info = nlohmann::json::parse(readText(tree().resources() / "Info"), nullptr, false);
    ASSERT_TRUE(info.is_object());
    EXPECT_EQ(info.value("CFBundleDisplayName", ""), "Tovrin");
    EXPECT_EQ(info.value("CFBundleIdentifier", ""), kAppId);
    EXPECT_EQ(info.value("CFBundleShortVersionString", ""), "1.1");
}

TEST_F(InstallTreeTest, RuntimeLinksPointAtTheToolsFoundForTheBuild) {
    // idevicepair is what the connection window's "Trust" runs.
    for (const auto* tool : {"idevice_id", "ideviceinfo", "idevicepair", "idevicediagnostics"}) {
        SCOPED_TRACE(tool);
        const auto link = tree().resources() / "Runtime" / "bin" / tool;
        ASSERT_TRUE(fs::is_symlink(fs::symlink_status(link))) << link;
        const auto target = fs::read_symlink(link);
        EXPECT_TRUE(target.is_absolute()) << target;
        // The build tree's bundle links the tools the build was configured with; an install
        // outside /usr keeps exactly those.
        EXPECT_EQ(target, fs::read_symlink(fs::path(TOVRIN_BINARY_DIR) / "share" / "tovrin" /
                                           "Runtime" / "bin" / tool));
        std::error_code error;
        const auto resolved = fs::canonical(link, error);
        ASSERT_FALSE(error) << "the link does not resolve: " << error.message();
        EXPECT_TRUE(fs::is_regular_file(resolved));
        EXPECT_NE(fs::status(resolved).permissions() & fs::perms::owner_exec, fs::perms::none);
    }
}

// The phone settings helper is the program's own, installed beside the tools it is run with.
TEST_F(InstallTreeTest, PhoneSettingsHelperIsInstalledBesideTheTools) {
    const auto helper = tree().resources() / "Runtime" / "bin" / "tovrin-lockdown";
    const auto status = fs::symlink_status(helper);
    ASSERT_TRUE(fs::is_regular_file(status)) << helper;
    EXPECT_NE(status.permissions() & fs::perms::others_exec, fs::perms::none);

    // With no muxer to ask, listing ends with the helper's own code for that (3) and one line.
    const CommandOptions noMuxer{
        .environment = {{"USBMUXD_SOCKET_ADDRESS",
                         "UNIX:" + (tree().root() / "no-usbmuxd").string()}},
        .unset = {},
        .workingDirectory = tree().root(),
        .timeLimit = std::chrono::seconds(30)};
    const auto listed = runCommand(helper.string(), {"list"}, noMuxer);
    ASSERT_TRUE(listed.started && listed.finished) << listed.describe();
    EXPECT_EQ(listed.exitCode, 3) << listed.describe();
    EXPECT_EQ(listed.standardOutput, "{\"error\":\"MuxerUnavailable\"}\n");

    // Anything else it does not know prints its usage and ends with 1.
    const auto usage = runCommand(helper.string(), {"--help"}, noMuxer);
    ASSERT_TRUE(usage.started && usage.finished) << usage.describe();
    EXPECT_EQ(usage.exitCode, 1);
    EXPECT_NE(usage.standardError.find("tovrin-lockdown list"), std::string::npos)
        << usage.describe();
}

TEST_F(InstallTreeTest, DesktopEntryPassesDesktopFileValidate) {
    const auto entry = share() / "applications" / (std::string(kAppId) + ".desktop");
    ASSERT_TRUE(fs::is_regular_file(entry));
    const auto result = validate("desktop-file-validate", {entry.string()});
    EXPECT_TRUE(result.succeeded()) << result.describe();
    // Warnings and hints are printed too, with exit code 0: a clean entry prints nothing.
    EXPECT_EQ(result.standardOutput + result.standardError, "");

    const auto text = readText(entry);
    EXPECT_EQ(desktopValue(text, "Type"), "Application");
    EXPECT_EQ(desktopValue(text, "Name"), "Tovrin");
    EXPECT_EQ(desktopValue(text, "Exec"), "tovrin");
    EXPECT_EQ(desktopValue(text, "Icon"), kAppId);
    EXPECT_EQ(desktopValue(text, "Categories"), "Utility;");
    EXPECT_EQ(desktopValue(text, "Terminal"), "false");
    EXPECT_EQ(desktopValue(text, "NoDisplay"), "");
    // The icon it names is installed in the theme every desktop searches.
    EXPECT_TRUE(fs::is_regular_file(share() / "icons" / "hicolor" / "scalable" / "apps" /
                                    (desktopValue(text, "Icon") + ".svg")));
}

TEST_F(InstallTreeTest, MetainfoPassesAppstreamValidation) {
    const auto metainfo = share() / "metainfo" / (std::string(kAppId) + ".metainfo.xml");
    ASSERT_TRUE(fs::is_regular_file(metainfo));
    const auto result = validate("appstreamcli", {"validate", "--no-net", metainfo.string()});
    EXPECT_TRUE(result.succeeded()) << result.describe();

    const auto text = readText(metainfo);
    EXPECT_NE(text.find("<id>com.quenby.Tovrin</id>"), std::string::npos);
    EXPECT_NE(text.find("<project_license>MIT</project_license>"), std::string::npos);
    EXPECT_NE(text.find("<release version=\"1.1\""), std::string::npos);
    EXPECT_NE(text.find("card-light.png</image>"), std::string::npos);
    EXPECT_NE(text.find("<binary>tovrin</binary>"), std::string::npos);
    // The launchable is the desktop entry installed beside it.
    const std::regex launchable(R"(<launchable type="desktop-id">([^<]+)</launchable>)");
    std::smatch match;
    ASSERT_TRUE(std::regex_search(text, match, launchable));
    EXPECT_TRUE(fs::is_regular_file(share() / "applications" / match[1].str()));
}

TEST_F(InstallTreeTest, TheTrayMarksSymbolicIconIsInstalledInOneColour) {
    const auto symbolic = share() / "icons" / "hicolor" / "symbolic" / "apps" /
                          (std::string(kAppId) + "-symbolic.svg");
    ASSERT_TRUE(fs::is_regular_file(symbolic));
    EXPECT_EQ(readText(symbolic), readText(fs::path(TOVRIN_SOURCE_DIR) / "packaging" /
                                           (std::string(kAppId) + "-symbolic.svg")));
    // Panels tint a symbolic icon by its one colour. Drawn large, the two cells show: the right
    // one full, the left one an outline with an empty middle.
    QImageReader reader(QString::fromStdString(symbolic.string()));
    reader.setScaledSize(QSize(180, 180));
    const QImage image = reader.read();
    ASSERT_FALSE(image.isNull()) << reader.errorString().toStdString();
    std::set<QRgb> colours;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            if (qAlpha(image.pixel(x, y)) == 255) {
                colours.insert(image.pixel(x, y) & 0xffffffu);
            }
        }
    }
    EXPECT_EQ(colours, (std::set<QRgb>{0x2e3436u}));
    EXPECT_EQ(qAlpha(image.pixel(0, 0)), 0);
    EXPECT_EQ(qAlpha(image.pixel(117, 106)), 255) << "the full cell";
    EXPECT_EQ(qAlpha(image.pixel(63, 74)), 0) << "the outlined cell's middle";
}

TEST_F(InstallTreeTest, IconIsRenderedAtEveryThemeSize) {
    const auto scalable =
        share() / "icons" / "hicolor" / "scalable" / "apps" / (std::string(kAppId) + ".svg");
    EXPECT_EQ(readText(scalable),
              readText(fs::path(TOVRIN_SOURCE_DIR) / "packaging" / (std::string(kAppId) + ".svg")));

    for (const int size : kIconSizes) {
        SCOPED_TRACE(size);
        const auto path = share() / "icons" / "hicolor" /
                          (std::to_string(size) + "x" + std::to_string(size)) / "apps" /
                          (std::string(kAppId) + ".png");
        const QImage image(QString::fromStdString(path.string()));
        ASSERT_FALSE(image.isNull()) << path;
        EXPECT_EQ(image.width(), size);
        EXPECT_EQ(image.height(), size);
        ASSERT_TRUE(image.hasAlphaChannel());
        // The rounded tile leaves the corners clear and covers the middle.
        EXPECT_EQ(qAlpha(image.pixel(0, 0)), 0);
        EXPECT_EQ(qAlpha(image.pixel(size - 1, size - 1)), 0);
        EXPECT_EQ(qAlpha(image.pixel(size / 2, size / 2)), 255);
    }

    // At the largest size the two cells are told apart: the right one is filled, the left one
    // is an outline whose middle shows the tile.
    const QImage large(QString::fromStdString(
        (share() / "icons" / "hicolor" / "256x256" / "apps" / (std::string(kAppId) + ".png"))
            .string()));
    ASSERT_FALSE(large.isNull());
    const QColor filledCell = large.pixelColor(166, 139);
    const QColor outlinedMiddle = large.pixelColor(90, 117);
    EXPECT_GT(filledCell.lightness(), 240);
    EXPECT_LT(outlinedMiddle.lightness(), 200);
    EXPECT_GT(outlinedMiddle.blue(), outlinedMiddle.red());
}

TEST_F(InstallTreeTest, ManualPageRendersCleanlyAndDocumentsEverySwitch) {
    const auto page = share() / "man" / "man1" / "tovrin.1.gz";
    ASSERT_TRUE(fs::is_regular_file(page));
    const auto unpacked = runCommand("gzip", {"-dc", page.string()});
    ASSERT_TRUE(unpacked.succeeded()) << unpacked.describe();
    const auto& source = unpacked.standardOutput;
    EXPECT_NE(source.find(".TH TOVRIN 1"), std::string::npos);

    const auto groff = findOnPath("groff");
    if (groff) {
        const auto plain = tree().root() / "tovrin.1";
        std::ofstream(plain, std::ios::binary) << source;
        const auto rendered =
            runCommand(groff->string(), {"-man", "-ww", "-z", "-Tutf8", plain.string()});
        EXPECT_TRUE(rendered.succeeded()) << rendered.describe();
        EXPECT_EQ(rendered.standardError, "");
    }

    // Every switch the program's own help names is in the manual page, and the manual names
    // no switch the program does not know.
    const auto help = tree().runProgram({"--help"});
    ASSERT_TRUE(help.succeeded()) << help.describe();
    const auto helpSwitches = switchesIn(help.standardOutput);
    EXPECT_GE(helpSwitches.size(), 8u) << help.standardOutput;
    const auto manualSwitches = switchesIn(std::regex_replace(source, std::regex(R"(\\-)"), "-"));
    for (const auto& name : helpSwitches) {
        EXPECT_TRUE(manualSwitches.count(name)) << name << " is missing from the manual page";
    }
    for (const auto& name : manualSwitches) {
        EXPECT_TRUE(helpSwitches.count(name)) << name << " is in the manual but not in --help";
    }
}

TEST_F(InstallTreeTest, NoticesCarryOurLicenceAndEveryComponentsNotices) {
    const auto notices = readText(tree().resources() / "OpenSourceNotices.txt");
    ASSERT_FALSE(notices.empty());
    EXPECT_NE(notices.find("MIT License"), std::string::npos);
    EXPECT_NE(notices.find("Copyright (c) 2026 Quenby"), std::string::npos);
    EXPECT_NE(notices.find(readText(fs::path(TOVRIN_SOURCE_DIR) / "LICENSE")), std::string::npos);

    struct Component {
        const char* name;
        const char* licence;
        const char* package;
    };
    const std::array components{
        Component{"libimobiledevice", "LGPL-2.1", "libimobiledevice-utils"},
        Component{"libplist", "LGPL-2.1", "libplist3"},
        Component{"Avahi", "LGPL-2.1", "libavahi-client3"},
        Component{"Qt 6", "LGPL-3", "libqt6core6"},
        Component{"Qt 6 SVG", "LGPL-3", "libqt6svg6"},
        Component{"ICU", "Unicode License", "libicu72"},
        Component{"nlohmann/json", "MIT License", "nlohmann-json3-dev"},
        Component{"Bootstrap Icons", "MIT License", "bootstrap-icons"},
        Component{"SQLite", "Public domain", "libsqlite3-0"},
    };
    for (const auto& component : components) {
        SCOPED_TRACE(component.name);
        EXPECT_NE(notices.find(component.name), std::string::npos);
        EXPECT_NE(notices.find(component.licence), std::string::npos);
        EXPECT_NE(notices.find(component.package), std::string::npos);
        // Where the system has the package's copyright file, its whole text is carried.
        const auto copyright = fs::path("/usr/share/doc") / component.package / "copyright";
        if (fs::exists(copyright)) {
            EXPECT_NE(notices.find(readText(copyright)), std::string::npos) << copyright;
        }
    }
    for (const auto* licence : {"LGPL-2.1", "LGPL-3", "GPL-3"}) {
        const auto text = fs::path("/usr/share/common-licenses") / licence;
        if (fs::exists(text)) {
            EXPECT_NE(notices.find(readText(text)), std::string::npos) << text;
        }
    }

    const auto debianCopyright = readText(share() / "doc" / "tovrin" / "copyright");
    EXPECT_NE(debianCopyright.find("Copyright: 2026 Quenby"), std::string::npos);
    EXPECT_NE(debianCopyright.find("License: Expat"), std::string::npos);
}

} // namespace
} // namespace ambrel::installtest
