#include "platform/linux/XdgAutostartService.h"

#include <map>

#include <gtest/gtest.h>

#include "platform/linux/DesktopEntry.h"
#include "tests/app/ProcessHarness.h"
#include "tests/fakes/FakeEnvironment.h"

namespace ambrel {
namespace {

using testing::readText;
using testing::TemporaryFolder;
using testing::writeText;

class XdgAutostartServiceTest : public ::testing::Test {
protected:
    XdgAutostartServiceTest() {
        environment["HOME"] = (folder.path() / "home").string();
        environment["XDG_CONFIG_HOME"] = (folder.path() / "config").string();
        environment["TMPDIR"] = (folder.path() / "tmp").string();
        installed = folder.path() / "opt" / "tovrin";
        std::filesystem::create_directories(installed / "bin");
        std::filesystem::create_directories(installed / "share" / "tovrin");
        writeText(installed / "bin" / "tovrin", "");
    }

    XdgAutostartService service(std::filesystem::path executable = {}) const {
        AutostartProgram program;
        program.identifier = "com.quenby.Tovrin";
        program.name = "Tovrin";
        program.executable = executable.empty() ? installed / "bin" / "tovrin" : executable;
        program.resourceFolder =
            program.executable.parent_path().parent_path() / "share" / "tovrin";
        if (!std::filesystem::exists(*program.resourceFolder)) {
            program.resourceFolder.reset();
        }
        auto variables = std::make_shared<testing::FakeEnvironment>();
        for (const auto& [name, value] : environment) {
            variables->set(name, value);
        }
        return XdgAutostartService(program, variables);
    }

    std::filesystem::path entry() const {
        return folder.path() / "config" / "autostart" / "com.quenby.Tovrin.desktop";
    }

    TemporaryFolder folder;
    std::map<std::string, std::string> environment;
    std::filesystem::path installed;
};

TEST_F(XdgAutostartServiceTest, NoEntryIsNotRegistered) {
    EXPECT_EQ(service().status(), LoginItemStatus::notRegistered);
}

TEST_F(XdgAutostartServiceTest, EntryLivesInTheConfigHomesAutostartFolder) {
    EXPECT_EQ(service().entryPath(), entry());
}

TEST_F(XdgAutostartServiceTest, WithoutConfigHomeTheHomeConfigFolderIsUsed) {
    environment.erase("XDG_CONFIG_HOME");
    EXPECT_EQ(service().entryPath(),
              folder.path() / "home" / ".config" / "autostart" / "com.quenby.Tovrin.desktop");
    environment["XDG_CONFIG_HOME"] = "relative/config";
    EXPECT_EQ(service().entryPath(),
              folder.path() / "home" / ".config" / "autostart" / "com.quenby.Tovrin.desktop");
}

TEST_F(XdgAutostartServiceTest, RegisteringWritesAnEnabledEntry) {
    auto login = service();
    ASSERT_TRUE(login.registerItem().hasValue());
    EXPECT_EQ(login.status(), LoginItemStatus::enabled);
    const auto fields = DesktopEntry::parseMainGroup(readText(entry()));
    EXPECT_EQ(fields.at("Type"), "Application");
    EXPECT_EQ(fields.at("Name"), "Tovrin");
    EXPECT_EQ(fields.at("Exec"), DesktopEntry::execValue(installed / "bin" / "tovrin"));
    EXPECT_EQ(fields.at("X-GNOME-Autostart-enabled"), "true");
}

TEST_F(XdgAutostartServiceTest, UnregisteringRemovesTheEntry) {
    auto login = service();
    ASSERT_TRUE(login.registerItem().hasValue());
    ASSERT_TRUE(login.unregisterItem().hasValue());
    EXPECT_FALSE(std::filesystem::exists(entry()));
    EXPECT_EQ(login.status(), LoginItemStatus::notRegistered);
    EXPECT_TRUE(login.unregisterItem().hasValue()) << "nothing to remove is not a failure";
}

TEST_F(XdgAutostartServiceTest, HiddenEntryRequiresApproval) {
    writeText(entry(), "[Desktop Entry]\nType=Application\nExec=" +
                           DesktopEntry::execValue(installed / "bin" / "tovrin") +
                           "\nHidden=true\n");
    EXPECT_EQ(service().status(), LoginItemStatus::requiresApproval);
}

TEST_F(XdgAutostartServiceTest, GnomeDisabledEntryRequiresApproval) {
    writeText(entry(),
              "[Desktop Entry]\nExec=/elsewhere/tovrin\nX-GNOME-Autostart-enabled=false\n");
    EXPECT_EQ(service().status(), LoginItemStatus::requiresApproval);
}

TEST_F(XdgAutostartServiceTest, RegisteringNeverOverridesTheDesktopsSwitch) {
    const std::string text = "[Desktop Entry]\nExec=/x\nHidden=true\n";
    writeText(entry(), text);
    auto result = service().registerItem();
    ASSERT_FALSE(result.hasValue());
    EXPECT_EQ(result.error().domain, XdgAutostartService::kErrorDomain);
    EXPECT_EQ(result.error().code, XdgAutostartService::turnedOffByDesktop);
    EXPECT_NE(result.error().description.find("startup settings"), std::string::npos);
    EXPECT_EQ(readText(entry()), text);
}

TEST_F(XdgAutostartServiceTest, EntryForAnotherCopyIsNotOurs) {
    writeText(entry(), "[Desktop Entry]\nExec=/usr/local/bin/tovrin\n");
    auto login = service();
    EXPECT_EQ(login.status(), LoginItemStatus::notRegistered);
    ASSERT_TRUE(login.registerItem().hasValue());
    EXPECT_EQ(login.status(), LoginItemStatus::enabled);
}

TEST_F(XdgAutostartServiceTest, CopyInTheTemporaryFolderIsNotFound) {
    const auto temporary = folder.path() / "tmp" / "unpacked";
    std::filesystem::create_directories(temporary / "bin");
    std::filesystem::create_directories(temporary / "share" / "tovrin");
    auto login = service(temporary / "bin" / "tovrin");
    EXPECT_EQ(login.status(), LoginItemStatus::notFound);
    auto result = login.registerItem();
    ASSERT_FALSE(result.hasValue());
    EXPECT_EQ(result.error().domain, XdgAutostartService::kErrorDomain);
    EXPECT_EQ(result.error().code, XdgAutostartService::notInstalled);
    EXPECT_NE(result.error().description.find("temporary folder"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(entry()));
}

TEST_F(XdgAutostartServiceTest, SlashTmpIsTemporaryWhenNoOtherFolderIsSet) {
    environment.erase("TMPDIR");
    auto login = service("/tmp/somewhere/bin/tovrin");
    ASSERT_TRUE(login.installationProblem().has_value());
    EXPECT_NE(login.installationProblem()->find("/tmp"), std::string::npos);
}

TEST_F(XdgAutostartServiceTest, CopyInsideABuildTreeIsNotFound) {
    writeText(folder.path() / "build" / "CMakeCache.txt", "");
    std::filesystem::create_directories(folder.path() / "build" / "share" / "tovrin");
    auto login = service(folder.path() / "build" / "bin" / "tovrin");
    EXPECT_EQ(login.status(), LoginItemStatus::notFound);
    ASSERT_TRUE(login.installationProblem().has_value());
    EXPECT_NE(login.installationProblem()->find("build folder"), std::string::npos);
}

TEST_F(XdgAutostartServiceTest, CopyWithoutResourcesIsNotFound) {
    std::filesystem::create_directories(folder.path() / "bare" / "bin");
    auto login = service(folder.path() / "bare" / "bin" / "tovrin");
    EXPECT_EQ(login.status(), LoginItemStatus::notFound);
}

TEST_F(XdgAutostartServiceTest, NotFoundWinsOverAnExistingEntry) {
    writeText(entry(), "[Desktop Entry]\nExec=/x\n");
    environment["TMPDIR"] = folder.path().string();
    EXPECT_EQ(service().status(), LoginItemStatus::notFound);
}

TEST_F(XdgAutostartServiceTest, UnwritableAutostartFolderIsAPosixFailure) {
    // A file where the folder should be fails even for the superuser.
    writeText(folder.path() / "config" / "autostart", "not a folder");
    auto result = service().registerItem();
    ASSERT_FALSE(result.hasValue());
    EXPECT_EQ(result.error().domain, XdgAutostartService::kPosixErrorDomain);
    EXPECT_NE(result.error().code, 0);
}

TEST_F(XdgAutostartServiceTest, PathWithAwkwardCharactersRegistersAndReadsBack) {
    const auto awkward = folder.path() / "My \"Apps\" $HOME `x` 100% back\\slash";
    std::filesystem::create_directories(awkward / "bin");
    std::filesystem::create_directories(awkward / "share" / "tovrin");
    auto login = service(awkward / "bin" / "tovrin");
    ASSERT_TRUE(login.registerItem().hasValue());
    EXPECT_EQ(login.status(), LoginItemStatus::enabled);
    const auto text = readText(entry());
    EXPECT_NE(text.find("\\\\\\\\slash"), std::string::npos) << text;
    EXPECT_NE(text.find("100%%"), std::string::npos) << text;
}

} // namespace
} // namespace ambrel
