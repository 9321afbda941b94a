#include "shell/ShellTexts.h"

namespace ambrel::ShellTexts {

std::string displayName(const Bundle& bundle) {
    auto name = bundle.infoString("CFBundleDisplayName");
    if (!name || name->empty()) {
        return kFallbackName;
    }
    return *name;
}

std::string showTitle(const std::string& name) {
    return "Show " + name;
}

std::string aboutTitle(const std::string& name) {
    return "About " + name;
}

std::string quitTitle(const std::string& name) {
    return "Quit " + name;
}

std::string hiddenNoteSummary(const std::string& name) {
    return name + " is hidden";
}

std::string hiddenNoteBody(const std::string& name) {
    return "To bring the card back, open " + name + " once more (or run tovrin).";
}

std::string toolTip(const std::string& name) {
    return name + " \u2014 Mac and iPhone batteries";
}

std::string aboutText(const std::string& name) {
    static constexpr const char* kBeforeName =
        "By Quenby \u00b7 Version 1.1\n"
        "\n"
        "Mac battery: checked every minute.\n"
        "iPhone battery: checked every 5 minutes, while this Mac is awake.\n"
        "\n"
        "Drag the ";
    static constexpr const char* kAfterName =
        " heading to move the widget. It stays on your desktop wallpaper beneath application "
        "windows. Its native glass appearance follows your Mac\u2019s light or dark theme.\n"
        "\n"
        "Pair your iPhone by cable once, choose Trust, then keep both devices on the same Wi-Fi "
        "network. Use the setup button in the panel for details.\n"
        "\n"
        "Readings stay on this Mac. No account or cloud service is used.\n"
        "\n"
        "Includes libimobiledevice. Open Source Notices are included inside the app\u2019s "
        "Resources folder.";
    return kBeforeName + name + kAfterName;
}

} // namespace ambrel::ShellTexts
