#include "app/AmbrelMain.h"

#include <algorithm>
#include <cstdio>
#include <string_view>

#include "app/ReadingsCommand.h"

namespace ambrel::AmbrelMain {

namespace {

bool hasArgument(int argc, char** argv, std::string_view wanted) {
    return std::any_of(argv + std::min(argc, 1), argv + argc,
                       [wanted](const char* argument) { return wanted == argument; });
}

} // namespace

int main(int argc, char** argv) {
    if (hasArgument(argc, argv, "--readings")) {
        return ReadingsCommand::run(argc, argv);
    }
    std::fputs("tovrin: the desktop widget is not built yet; try --readings\n", stderr);
    return 1;
}

} // namespace ambrel::AmbrelMain
