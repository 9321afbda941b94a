#include "commands/HistoryCommand.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include <nlohmann/json.hpp>

#include "commands/CommandLine.h"
#include "history/HistoryStore.h"
#include "monitor/PhoneHealthCheck.h"
#include "presentation/HistorySummary.h"
#include "presentation/HistoryTexts.h"

namespace ambrel {

namespace {

struct Device {
    const char* id;
    const char* name;
};
constexpr Device kDevices[] = {{"mac", "This computer"}, {"iphone", "iPhone"}};

std::optional<std::string> valueAfter(const std::vector<std::string>& arguments,
                                      const char* option) {
    const auto found = std::find(arguments.begin() + std::min<std::size_t>(1, arguments.size()),
                                 arguments.end(), option);
    if (found == arguments.end() || found + 1 == arguments.end()) {
        return std::nullopt;
    }
    return *(found + 1);
}

nlohmann::json rowJson(const HistoryRow& row) {
    nlohmann::json json = {{"device", row.device},
                           {"time", row.time.secondsSinceReferenceDate()},
                           {"percentage", row.percentage},
                           {"isCharging", row.isCharging},
                           {"isPluggedIn", row.isPluggedIn}};
    if (!row.link.empty()) {
        json["link"] = row.link;
    }
    return json;
}

std::string deviceText(const Device& device, const std::string& span, const HistorySummary& summary,
                       const BatteryHealth& health) {
    std::string text = std::string(device.name) + " \u00b7 " + span + "\n";
    if (summary.isEmpty()) {
        text += "  No readings\n";
    } else {
        text += "  Lowest " + std::to_string(*summary.lowest) + " % \u00b7 highest " +
                std::to_string(*summary.highest) + " % \u00b7 ";
        const int minutes = static_cast<int>(summary.secondsOnCharge / 60.0 + 0.5);
        text += minutes == 0 ? std::string("not on charge")
                             : HistoryTexts::durationText(minutes) + " on charge";
        text += "\n";
    }
    if (const auto line = HistoryTexts::healthLine(health); !line.empty()) {
        text += "  " + line + "\n";
    }
    return text;
}

} // namespace

HistoryCommand::HistoryCommand(Sources sources) : m_sources(std::move(sources)) {}

bool HistoryCommand::isRequested(const std::vector<std::string>& arguments) const {
    return CommandLine::hasArgument(arguments, "--history");
}

std::optional<double> HistoryCommand::parseSpan(const std::string& text) {
    if (text.size() < 2) {
        return std::nullopt;
    }
    const char unit = text.back();
    int count = 0;
    const char* end = text.data() + text.size() - 1;
    const auto [rest, error] = std::from_chars(text.data(), end, count);
    if (error != std::errc() || rest != end || count < 1 || (unit != 'h' && unit != 'd')) {
        return std::nullopt;
    }
    const double seconds = count * (unit == 'h' ? 3600.0 : 86400.0);
    if (seconds > HistoryStore::kKeepSeconds) {
        return std::nullopt;
    }
    return seconds;
}

std::string HistoryCommand::spanName(double seconds) {
    const auto hours = static_cast<long>(seconds / 3600.0 + 0.5);
    if (hours % 24 == 0 && hours > 24) {
        return "last " + std::to_string(hours / 24) + " days";
    }
    if (hours == 24) {
        return "last 24 hours";
    }
    return hours == 1 ? std::string("last hour") : "last " + std::to_string(hours) + " hours";
}

int HistoryCommand::run(const Invocation& invocation) {
    double span = kDefaultSpanSeconds;
    if (CommandLine::hasArgument(invocation.arguments, "--since")) {
        const auto text = valueAfter(invocation.arguments, "--since");
        const auto parsed = text ? parseSpan(*text) : std::nullopt;
        if (!parsed) {
            invocation.err(usageError("--since takes a span such as 24h or 10d, at most 30 days."));
            return kUsageExitCode;
        }
        span = *parsed;
    }
    const bool json = CommandLine::hasArgument(invocation.arguments, "--json");

    HistoryStore store(m_sources.historyFile);
    if (!store.openToRead()) {
        invocation.err("tovrin: " + store.status() + "\n");
        return 1;
    }
    const Date now = m_sources.now();
    const Date since = now.addingSeconds(-span);
    const BatteryHealth computerHealth =
        m_sources.computerHealth ? m_sources.computerHealth() : BatteryHealth{};
    const auto phoneRecord =
        PhoneHealthFile::choose(PhoneHealthFile::load(m_sources.phoneHealthFile), {});
    const BatteryHealth phoneHealth = phoneRecord ? phoneRecord->health : BatteryHealth{};

    if (json) {
        std::vector<HistoryRow> rows;
        for (const auto& device : kDevices) {
            auto found = store.rows(device.id, since);
            rows.insert(rows.end(), found.begin(), found.end());
        }
        std::stable_sort(rows.begin(), rows.end(),
                         [](const HistoryRow& a, const HistoryRow& b) { return a.time < b.time; });
        nlohmann::json list = nlohmann::json::array();
        for (const auto& row : rows) {
            list.push_back(rowJson(row));
        }
        const nlohmann::json report = {{"since", since.secondsSinceReferenceDate()},
                                       {"rows", std::move(list)},
                                       {"health",
                                        {{"mac", PhoneHealthFile::healthJson(computerHealth)},
                                         {"iphone", PhoneHealthFile::healthJson(phoneHealth)}}}};
        invocation.out(report.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) +
                       "\n");
        return 0;
    }

    std::string text;
    for (const auto& device : kDevices) {
        const auto summary = HistorySummaries::summarize(
            store.rows(device.id, since), HistorySummaries::gapSecondsFor(device.id));
        text += deviceText(device, spanName(span), summary,
                           std::string(device.id) == "mac" ? computerHealth : phoneHealth);
    }
    invocation.out(text);
    return 0;
}

} // namespace ambrel
