// The main of every test program. Run by hand or by CTest, a test program first moves into the
// suite's own environment (ambrel_test_env: its own HOME, XDG folders, session bus and locale)
// by running itself again there, so that no test sees its caller's desktop, bus or locale.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>
#include <vector>

#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace {

// Listing the tests (CTest does it at build time) runs none, so it needs no environment.
bool onlyListsTests(int argc, char** argv) {
    for (int index = 1; index < argc; ++index) {
        if (std::string_view(argv[index]) == "--gtest_list_tests") {
            return true;
        }
    }
    return false;
}

void enterTestEnvironment(int argc, char** argv) {
    if (std::getenv("TOVRIN_TEST_ENV") != nullptr || onlyListsTests(argc, argv)) {
        return;
    }
    std::vector<char*> arguments{const_cast<char*>(TOVRIN_TEST_ENV_PROGRAM),
                                 const_cast<char*>("/proc/self/exe")};
    // /proc/self/exe would name the launcher once it runs; the program's own path is fixed now.
    char self[4096] = {};
    const ssize_t length = ::readlink("/proc/self/exe", self, sizeof self - 1);
    if (length > 0) {
        arguments[1] = self;
    }
    for (int index = 1; index < argc; ++index) {
        arguments.push_back(argv[index]);
    }
    arguments.push_back(nullptr);
    ::execv(TOVRIN_TEST_ENV_PROGRAM, arguments.data());
    std::fprintf(stderr, "could not start %s: %s\n", TOVRIN_TEST_ENV_PROGRAM, std::strerror(errno));
    std::exit(2);
}

} // namespace

int main(int argc, char** argv) {
    enterTestEnvironment(argc, argv);
    ::testing::InitGoogleMock(&argc, argv);
    return RUN_ALL_TESTS();
}
