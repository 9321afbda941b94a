// The battery history's costs: adding a row, the file for 30 days of both batteries, and the
// Battery History window's first paint with that file. Prints the figures; with "--png
// <folder>", also saves the window in both looks as history-light.png and history-dark.png.
// Runs on the offscreen platform unless QT_QPA_PLATFORM names another.
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <QApplication>
#include <QElapsedTimer>
#include <QEvent>

#include "history/HistoryStore.h"
#include "views/Appearance.h"
#include "views/BatteryHistoryWindow.h"
#include "views/HistoryChart.h"
#include "views/ViewStyle.h"

namespace {

using namespace ambrel;
using Clock = std::chrono::steady_clock;

constexpr double kDay = 24 * 3600.0;

// A day's level of a battery that charges overnight and runs down by day, with a second charge
// in the afternoon; `phase` offsets the two batteries.
int levelAt(double secondsIntoDay, double phase, bool* charging) {
    const double hour = std::fmod(secondsIntoDay / 3600.0 + phase + 24.0, 24.0);
    if (hour < 7.0) {
        *charging = hour < 2.5;
        return std::min(100, 35 + static_cast<int>(hour * 26));
    }
    if (hour >= 15.0 && hour < 16.0) {
        *charging = true;
        return 45 + static_cast<int>((hour - 15.0) * 40);
    }
    *charging = false;
    const double since = hour < 15.0 ? hour - 7.0 : hour - 16.0;
    return std::max(5, (hour < 15.0 ? 100 : 85) - static_cast<int>(since * 7));
}

double percentile(std::vector<double> values, double share) {
    std::sort(values.begin(), values.end());
    return values[static_cast<std::size_t>(share * (values.size() - 1))];
}

// Notes the first paint of the watched window.
class FirstPaint final : public QObject {
public:
    bool painted = false;

protected:
    bool eventFilter(QObject* watched, QEvent* event) override {
        if (event->type() == QEvent::Paint) {
            painted = true;
        }
        return QObject::eventFilter(watched, event);
    }
};

} // namespace

int main(int argc, char** argv) {
    if (std::getenv("QT_QPA_PLATFORM") == nullptr) {
        ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
    }
    QApplication application(argc, argv);
    std::string pngFolder;
    for (int index = 1; index + 1 < argc; ++index) {
        if (std::string(argv[index]) == "--png") {
            pngFolder = argv[index + 1];
        }
    }

    const auto folder = std::filesystem::temp_directory_path() /
                        ("tovrin-history-bench-" + std::to_string(::getpid()));
    std::filesystem::create_directories(folder);
    const auto file = folder / HistoryStore::kFileName;
    const Date now = Date::fromSecondsSince1970(
        std::floor(
            std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch())
                .count() /
            60.0) *
        60.0);

    // 30 days: the computer every minute, the phone every five.
    HistoryStore store(file);
    if (!store.open(now)) {
        std::fprintf(stderr, "cannot open %s: %s\n", file.c_str(), store.status().c_str());
        return 1;
    }
    std::vector<double> appendMicros;
    appendMicros.reserve(52000);
    const Date start = now.addingSeconds(-30 * kDay);
    for (double offset = 60.0; offset <= 30 * kDay; offset += 60.0) {
        const Date when = start.addingSeconds(offset);
        const double intoDay = std::fmod(when.secondsSince1970(), kDay);
        for (const bool phone : {false, true}) {
            if (phone && std::fmod(offset, 300.0) != 0.0) {
                continue;
            }
            bool charging = false;
            const int level = levelAt(intoDay, phone ? 3.0 : 0.0, &charging);
            const HistoryRow row{when,     phone ? "iphone" : "mac", level, charging,
                                 charging, phone ? "Wi-Fi" : ""};
            const auto before = Clock::now();
            if (!store.append(row)) {
                std::fprintf(stderr, "append failed: %s\n", store.status().c_str());
                return 1;
            }
            appendMicros.push_back(
                std::chrono::duration<double, std::micro>(Clock::now() - before).count());
        }
    }
    const auto macRows = store.rows("mac", start).size();
    const auto phoneRows = store.rows("iphone", start).size();
    store = HistoryStore(file);
    std::uintmax_t bytes = 0;
    for (const char* suffix : {"", "-wal", "-shm"}) {
        std::error_code error;
        const auto size = std::filesystem::file_size(file.string() + suffix, error);
        bytes += error ? 0 : size;
    }
    std::printf("rows: %zu computer, %zu phone\n", macRows, phoneRows);
    std::printf("append: median %.3f ms, 95th percentile %.3f ms, %zu appends\n",
                percentile(appendMicros, 0.5) / 1000.0, percentile(appendMicros, 0.95) / 1000.0,
                appendMicros.size());
    std::printf("file for 30 days: %.2f MiB (with its journal files)\n",
                static_cast<double>(bytes) / (1024.0 * 1024.0));

    Appearance appearance(application);
    const ViewStyle style{appearance, ViewFonts(), "Tovrin"};
    std::vector<double> paintMillis;
    for (int round = 0; round < 11; ++round) {
        QElapsedTimer timer;
        timer.start();
        HistoryStore reader(file);
        HistoryWindowData data;
        data.now = now;
        if (!reader.openToRead()) {
            std::fprintf(stderr, "cannot read: %s\n", reader.status().c_str());
            return 1;
        }
        data.mac = reader.rows("mac", now.addingSeconds(-10 * kDay));
        data.phone = reader.rows("iphone", now.addingSeconds(-10 * kDay));
        data.macHealth = BatteryHealth{87, 412, std::nullopt};
        data.phoneHealth = BatteryHealth{91, 318, 29.5};
        BatteryHistoryWindow window(style);
        FirstPaint probe;
        window.installEventFilter(&probe);
        window.setData(std::move(data));
        if (round % 2 == 1) {
            window.setSpan(BatteryHistoryWindow::Span::tenDays);
        }
        window.show();
        while (!probe.painted) {
            QApplication::processEvents(QEventLoop::AllEvents, 5);
        }
        // The first round pays for fonts and the platform; it is left out.
        if (round > 0) {
            paintMillis.push_back(static_cast<double>(timer.nsecsElapsed()) / 1e6);
        }
        if (!pngFolder.empty() && round < 2) {
            for (const Look look : {Look::light, Look::dark}) {
                appearance.setForcedLook(look);
                window.setSpan(BatteryHistoryWindow::Span::day);
                QApplication::processEvents();
                const auto path = std::filesystem::path(pngFolder) /
                                  (look == Look::light ? "history-light.png" : "history-dark.png");
                window.grab().save(QString::fromStdString(path.string()));
            }
            appearance.setForcedLook(std::nullopt);
            pngFolder.clear();
        }
    }
    std::printf("window, open to first paint (reading 10 days from the file, %zu rounds): median "
                "%.1f ms, slowest %.1f ms\n",
                paintMillis.size(), percentile(paintMillis, 0.5), percentile(paintMillis, 1.0));
    std::filesystem::remove_all(folder);
    return 0;
}
