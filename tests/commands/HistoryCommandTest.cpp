#include "commands/HistoryCommand.h"

#include <fstream>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "history/HistoryStore.h"
#include "monitor/PhoneHealthCheck.h"
#include "tests/fakes/TemporaryFolder.h"

namespace ambrel {
namespace {

using testing::TemporaryFolder;

const Date kNow = Date::fromSecondsSinceReferenceDate(800000000.0);

HistoryRow row(const char* device, double secondsAgo, int percentage, bool charging,
               const char* link = "") {
    return HistoryRow{
        kNow.addingSeconds(-secondsAgo), device, percentage, charging, charging, link};
}

class HistoryCommandTest : public ::testing::Test {
protected:
    std::filesystem::path historyFile() const { return m_folder.path() / HistoryStore::kFileName; }
    std::filesystem::path healthFile() const {
        return m_folder.path() / PhoneHealthFile::kFileName;
    }

    void store(const std::vector<HistoryRow>& rows) {
        HistoryStore store(historyFile());
        ASSERT_TRUE(store.open(kNow)) << store.status();
        for (const auto& each : rows) {
            ASSERT_TRUE(store.append(each));
        }
    }

    int run(std::vector<std::string> options) {
        m_out.clear();
        m_err.clear();
        options.insert(options.begin(), {"tovrin", "--history"});
        HistoryCommand command({historyFile(), healthFile(), [this] { return m_computerHealth; },
                                [] { return kNow; }});
        EXPECT_TRUE(command.isRequested(options));
        Invocation invocation;
        invocation.arguments = options;
        invocation.out = [this](const std::string& text) { m_out += text; };
        invocation.err = [this](const std::string& text) { m_err += text; };
        return command.run(invocation);
    }

    TemporaryFolder m_folder;
    BatteryHealth m_computerHealth{87, 412, std::nullopt};
    std::string m_out;
    std::string m_err;
};

TEST_F(HistoryCommandTest, SummaryPerDeviceOverTheLastDay) {
    std::vector<HistoryRow> rows;
    // The computer: on charge for the first hour of the last two, then on battery.
    for (int minute = 0; minute <= 120; ++minute) {
        const bool charging = minute < 60;
        rows.push_back(row("mac", (120 - minute) * 60.0,
                           charging ? 40 + minute : 99 - (minute - 60) / 4, charging));
    }
    // Two days ago: outside the span.
    rows.push_back(row("mac", 2 * 86400.0, 5, false));
    store(rows);
    ASSERT_TRUE(PhoneHealthFile::save(
        healthFile(), {{"A", PhoneHealthRecord{kNow, BatteryHealth{91, std::nullopt, 30.0}}}}));

    EXPECT_EQ(run({}), 0) << m_err;
    EXPECT_EQ(m_out, "This computer \u00b7 last 24 hours\n"
                     "  Lowest 40 % \u00b7 highest 99 % \u00b7 1 h on charge\n"
                     "  Maximum capacity 87 % \u00b7 412 cycles\n"
                     "iPhone \u00b7 last 24 hours\n"
                     "  No readings\n"
                     "  Maximum capacity 91 %\n");
    EXPECT_EQ(run({"--since", "10d"}), 0) << m_err;
    EXPECT_NE(m_out.find("This computer \u00b7 last 10 days\n  Lowest 5 %"), std::string::npos)
        << m_out;
}

TEST_F(HistoryCommandTest, JsonHoldsEveryRowOfTheSpanOldestFirstAndBothHealths) {
    store({row("iphone", 600, 80, false, "Wi-Fi"), row("mac", 120, 50, true),
           row("mac", 60, 51, true), row("iphone", 300, 79, false, "USB"),
           row("mac", 3 * 3600.0, 60, false)});
    EXPECT_EQ(run({"--json", "--since", "1h"}), 0) << m_err;
    ASSERT_EQ(std::count(m_out.begin(), m_out.end(), '\n'), 1);
    const auto report = nlohmann::json::parse(m_out);
    EXPECT_EQ(report["since"], kNow.addingSeconds(-3600).secondsSinceReferenceDate());
    const auto& rows = report["rows"];
    ASSERT_EQ(rows.size(), 4u);
    EXPECT_EQ(rows[0],
              (nlohmann::json{{"device", "iphone"},
                              {"time", kNow.addingSeconds(-600).secondsSinceReferenceDate()},
                              {"percentage", 80},
                              {"isCharging", false},
                              {"isPluggedIn", false},
                              {"link", "Wi-Fi"}}));
    EXPECT_EQ(rows[1]["link"], "USB");
    EXPECT_EQ(rows[2]["device"], "mac");
    EXPECT_FALSE(rows[2].contains("link"));
    EXPECT_EQ(rows[3]["percentage"], 51);
    EXPECT_EQ(report["health"]["mac"],
              (nlohmann::json{{"maximumCapacity", 87}, {"cycleCount", 412}}));
    EXPECT_TRUE(report["health"]["iphone"].is_null());
}

TEST_F(HistoryCommandTest, ABadSpanIsAUsageErrorAndNoFileIsSaidInWords) {
    for (const auto& bad : {"", "24", "h", "0h", "31d", "721h", "2w", "-3d", "1.5d"}) {
        SCOPED_TRACE(bad);
        store({});
        EXPECT_EQ(run({"--since", bad}), Command::kUsageExitCode);
        EXPECT_EQ(m_err, "tovrin: --since takes a span such as 24h or 10d, at most 30 days.\n"
                         "Try 'tovrin --help'.\n");
    }
    EXPECT_EQ(run({"--since"}), Command::kUsageExitCode);
    EXPECT_EQ(HistoryCommand::parseSpan("30d"), 30 * 86400.0);
    EXPECT_EQ(HistoryCommand::parseSpan("720h"), 720 * 3600.0);
    EXPECT_EQ(HistoryCommand::spanName(3600), "last hour");
    EXPECT_EQ(HistoryCommand::spanName(48 * 3600), "last 2 days");
    EXPECT_EQ(HistoryCommand::spanName(30 * 3600), "last 30 hours");

    std::filesystem::remove(historyFile());
    EXPECT_EQ(run({}), 1);
    EXPECT_EQ(m_err, "tovrin: No battery history yet: Tovrin records it while the card runs.\n");
    EXPECT_FALSE(std::filesystem::exists(historyFile())) << "reading makes no file";
    std::ofstream(historyFile()) << "not a database, but long enough to have a header of sorts "
                                    "that SQLite reads and refuses as it is no database file";
    EXPECT_EQ(run({}), 1);
    EXPECT_EQ(m_err, "tovrin: The battery history file is damaged; Tovrin sets it aside and "
                     "starts a new one the next time it runs.\n");
}

} // namespace
} // namespace ambrel
