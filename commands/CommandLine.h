#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace ambrel::CommandLine {

enum class PreviewLook { light, dark };

// The process's arguments, the program path first.
std::vector<std::string> arguments(int argc, char** argv);

// Whether `wanted` is one of the arguments after the program path: exact, case-sensitive,
// whole-argument match ("--enable-login=1" or "--Enable-Login" are not it).
bool hasArgument(const std::vector<std::string>& arguments, std::string_view wanted);

// The look forced by "--preview-light" / "--preview-dark"; dark wins when both are given, as
// it is applied last. Absent: follow the desktop.
std::optional<PreviewLook> previewLook(const std::vector<std::string>& arguments);

// The argument right after the first "--capture-preview"; absent when there is no such switch
// or it is the last argument.
std::optional<std::string> capturePreviewPath(const std::vector<std::string>& arguments);

} // namespace ambrel::CommandLine
