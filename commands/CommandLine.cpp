#include "commands/CommandLine.h"

#include <algorithm>

namespace ambrel::CommandLine {

std::vector<std::string> arguments(int argc, char** argv) {
    std::vector<std::string> list;
    for (int i = 0; i < argc; ++i) {
        list.emplace_back(argv[i] == nullptr ? "" : argv[i]);
    }
    return list;
}

bool hasArgument(const std::vector<std::string>& arguments, std::string_view wanted) {
    if (arguments.empty()) {
        return false;
    }
    return std::any_of(arguments.begin() + 1, arguments.end(),
                       [wanted](const std::string& argument) { return argument == wanted; });
}

std::optional<PreviewLook> previewLook(const std::vector<std::string>& arguments) {
    std::optional<PreviewLook> look;
    if (hasArgument(arguments, "--preview-light")) {
        look = PreviewLook::light;
    }
    if (hasArgument(arguments, "--preview-dark")) {
        look = PreviewLook::dark;
    }
    return look;
}

std::optional<std::string> capturePreviewPath(const std::vector<std::string>& arguments) {
    if (arguments.empty()) {
        return std::nullopt;
    }
    const auto found = std::find(arguments.begin() + 1, arguments.end(), "--capture-preview");
    if (found == arguments.end() || found + 1 == arguments.end()) {
        return std::nullopt;
    }
    return *(found + 1);
}

} // namespace ambrel::CommandLine
