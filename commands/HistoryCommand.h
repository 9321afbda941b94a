#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "commands/Command.h"
#include "model/BatteryHealth.h"
#include "model/Date.h"

namespace ambrel {

// "--history [--json] [--since 24h|10d]": prints the battery history the widget recorded and
// exits. As text, a short summary per device (lowest, highest, time on charge, health); with
// "--json", one compact line with every stored row of the span and both healths. The span is
// 24 hours unless "--since" gives hours or days (at most the 30 days kept). Reads the file
// only; a missing or unreadable file is said in words, exit 1.
class HistoryCommand final : public Command {
public:
    static constexpr double kDefaultSpanSeconds = 24 * 3600.0;

    struct Sources {
        std::filesystem::path historyFile;
        std::filesystem::path phoneHealthFile;
        std::function<BatteryHealth()> computerHealth;
        std::function<Date()> now;
    };

    explicit HistoryCommand(Sources sources);

    bool isRequested(const std::vector<std::string>& arguments) const override;
    int run(const Invocation& invocation) override;

    // The span "--since" asks for, in seconds: "<n>h" or "<n>d", from one hour to 30 days.
    // Absent for anything else.
    static std::optional<double> parseSpan(const std::string& text);
    // "last 24 hours", "last 10 days", "last hour", "last day".
    static std::string spanName(double seconds);

private:
    Sources m_sources;
};

} // namespace ambrel
