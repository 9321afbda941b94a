// What scripts/run.sh builds is everything the running program uses: the targets it names
// bring in the program, its phone settings helper and the files it points to, and the program
// of that build finds its tools and helper (the connection check's first link passes).

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "tests/install/CommandResult.h"

namespace ambrel::installtest {
namespace {

namespace fs = std::filesystem;

const fs::path kSource = TOVRIN_SOURCE_DIR;
const fs::path kBuild = TOVRIN_BINARY_DIR;

std::string readText(const fs::path& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

// The targets run.sh hands to its build step (its line "build_preset default <target>...").
std::vector<std::string> runCommandTargets() {
    std::istringstream script(readText(kSource / "scripts" / "run.sh"));
    const std::string step = "build_preset default ";
    for (std::string line; std::getline(script, line);) {
        if (line.rfind(step, 0) == 0) {
            std::istringstream words(line.substr(step.size(), line.find('#') - step.size()));
            return {std::istream_iterator<std::string>(words),
                    std::istream_iterator<std::string>()};
        }
    }
    return {};
}

// Every node of the build graph that building `targets` reaches, found by asking ninja for the
// inputs of each node in turn; empty when ninja cannot be asked.
std::set<std::string> everythingBuiltFor(const fs::path& ninja,
                                         const std::vector<std::string>& targets) {
    std::set<std::string> reached(targets.begin(), targets.end());
    std::vector<std::string> frontier = targets;
    while (!frontier.empty()) {
        std::vector<std::string> arguments{"-C", kBuild.string(), "-t", "query"};
        arguments.insert(arguments.end(), frontier.begin(), frontier.end());
        const auto answer = runCommand(ninja.string(), arguments);
        if (!answer.succeeded()) {
            ADD_FAILURE() << answer.describe();
            return {};
        }
        frontier.clear();
        // Each node's "  input: <rule>" is followed by its inputs, indented by four spaces and
        // marked "| " when implicit or "|| " when only ordered before it.
        bool inInputs = false;
        std::istringstream lines(answer.standardOutput);
        for (std::string line; std::getline(lines, line);) {
            if (line.rfind("  input:", 0) == 0) {
                inInputs = true;
            } else if (line.rfind("  outputs:", 0) == 0 || line.rfind("  ", 0) != 0) {
                inInputs = false;
            } else if (inInputs && line.rfind("    ", 0) == 0) {
                std::string node = line.substr(4);
                if (node.rfind("|| ", 0) == 0) {
                    node.erase(0, 3);
                } else if (node.rfind("| ", 0) == 0) {
                    node.erase(0, 2);
                }
                if (reached.insert(node).second && node.front() != '/') {
                    frontier.push_back(node);
                }
            }
        }
    }
    return reached;
}

TEST(RunCommandBuild, BuildsTheProgramItsHelperAndTheFilesItPointsTo) {
    const fs::path ninja = TOVRIN_MAKE_PROGRAM;
    if (ninja.filename() != "ninja") {
        GTEST_SKIP() << "the build's dependency graph is read with ninja; this build uses "
                     << ninja;
    }
    const auto targets = runCommandTargets();
    ASSERT_FALSE(targets.empty()) << "scripts/run.sh names no targets to build";

    const auto inputs = everythingBuiltFor(ninja, targets);
    ASSERT_FALSE(inputs.empty());
    for (const char* needed : {"bin/tovrin", "share/tovrin/Runtime/bin/tovrin-lockdown",
                               "share/tovrin/OpenSourceNotices.txt", "share/man/man1/tovrin.1.gz",
                               "share/applications/com.quenby.Tovrin.desktop"}) {
        EXPECT_TRUE(inputs.count(needed) == 1)
            << "building " << targets.front() << " does not build " << needed;
    }
    // The tool links come from configuring, before any build.
    for (const char* tool : {"idevice_id", "ideviceinfo", "idevicepair", "idevicediagnostics"}) {
        const auto link = kBuild / "share" / "tovrin" / "Runtime" / "bin" / tool;
        EXPECT_TRUE(fs::is_symlink(link)) << link;
    }
}

TEST(RunCommandBuild, DiagnoseFindsTheToolsAndTheHelper) {
    const auto result = runCommand((kBuild / "bin" / "tovrin").string(), {"--diagnose"});
    ASSERT_TRUE(result.started) << result.describe();
    const auto report = nlohmann::json::parse(result.standardOutput, nullptr, false);
    ASSERT_TRUE(report.is_object()) << result.describe();
    ASSERT_FALSE(report["checks"].empty()) << result.standardOutput;
    const auto& tools = report["checks"][0];
    EXPECT_EQ(tools.value("name", ""), "tools");
    EXPECT_EQ(tools.value("status", ""), "passed") << tools.dump();
}

} // namespace
} // namespace ambrel::installtest
