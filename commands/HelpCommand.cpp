#include "commands/HelpCommand.h"

#include <utility>

#include "commands/CommandLine.h"

namespace ambrel {

HelpCommand::HelpCommand(std::string displayName) : m_displayName(std::move(displayName)) {}

bool HelpCommand::isRequested(const std::vector<std::string>& arguments) const {
    return CommandLine::hasArgument(arguments, "--help") ||
           CommandLine::hasArgument(arguments, "-h");
}

int HelpCommand::run(const Invocation& invocation) {
    invocation.out(text(m_displayName));
    return 0;
}

std::string HelpCommand::text(const std::string& name) {
    return "Usage: tovrin [option…]\n"
           "\n" +
           name +
           " keeps a card with this computer\u2019s and your iPhone\u2019s battery on the "
           "desktop.\n"
           "\n"
           "Options:\n"
           "  --login-status            print whether it starts at login (one JSON line)\n"
           "  --enable-login            make it start at login and print the result\n"
           "                            (exit 0: enabled, 2: needs approval in the desktop\u2019s\n"
           "                            startup settings, 1: not possible)\n"
           "  --preview-light           show the light look\n"
           "  --preview-dark            show the dark look (wins over --preview-light)\n"
           "  --capture-preview PATH    write a PNG of the card to PATH four seconds after\n"
           "                            start; the program keeps running\n"
           "  --readings                print both batteries once (one JSON line) and exit\n"
           "  --history [--json] [--since 24h|10d]\n"
           "                            print the recorded battery history (a summary, or\n"
           "                            every reading as one JSON line) and exit\n"
           "  --bar FORMAT [--follow]   print one line for a status bar (waybar, polybar or\n"
           "                            i3blocks) at once and exit; with --follow, a new line\n"
           "                            on every change\n"
           "  --enable-wifi [UDID]      turn on Wi-Fi connections of the iPhone on USB and\n"
           "                            print the result (one JSON line; exit 0: on)\n"
           "  --diagnose [--text]       check the connection to the iPhone link by link and\n"
           "                            print the result (one JSON line, or text with --text;\n"
           "                            exit 0: the iPhone can be read over USB or Wi-Fi)\n"
           "  -h, --help                print this help and exit\n"
           "  --version                 print the version and exit\n"
           "\n"
           "Launching it again while it runs brings the card to the front.\n";
}

} // namespace ambrel
