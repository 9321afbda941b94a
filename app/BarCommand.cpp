#include "app/BarCommand.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>

#include <QCoreApplication>
#include <QFileSystemWatcher>
#include <QString>
#include <QTimer>

#include "app/SystemServices.h"
#include "model/BatteryRefreshPolicy.h"
#include "monitor/ReadingCache.h"
#include "platform/linux/ExecutableBundle.h"
#include "platform/qt/QtMainScheduler.h"
#include "views/BarLine.h"
#include "views/UserLocale.h"

namespace ambrel::BarCommand {

namespace {

void print(const std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    std::fflush(stdout);
}

std::optional<BarFormat> requestedFormat(const std::vector<std::string>& arguments) {
    const auto found = std::find(arguments.begin() + std::min<std::size_t>(1, arguments.size()),
                                 arguments.end(), "--bar");
    if (found == arguments.end() || found + 1 == arguments.end()) {
        return std::nullopt;
    }
    return barFormatFromName(*(found + 1));
}

// Prints the bar's line whenever it changes: on every change of the widget's state file, when
// a reading turns stale by age, and (without a widget) on the computer's own 60 s reading.
class Follower {
public:
    Follower(BarFormat format, BatteryMonitor& monitor, std::filesystem::path stateFile)
        : m_format(format), m_monitor(monitor), m_stateFile(std::move(stateFile)) {
        // The folder is watched, not the file: the widget replaces the file by renaming, and
        // the file may not exist until a widget starts.
        BarStateFile::prepareFolder(m_stateFile);
        m_watcher.addPath(QString::fromStdString(m_stateFile.parent_path().string()));
        QObject::connect(&m_watcher, &QFileSystemWatcher::directoryChanged, [this] { update(); });

        m_ageTimer.setSingleShot(true);
        m_ageTimer.setTimerType(Qt::PreciseTimer);
        QObject::connect(&m_ageTimer, &QTimer::timeout, [this] { update(); });

        m_macTimer.setTimerType(Qt::PreciseTimer);
        m_macTimer.setInterval(static_cast<int>(BatteryRefreshPolicy::macInterval * 1000));
        QObject::connect(&m_macTimer, &QTimer::timeout, [this] {
            // A widget that ended without removing its file is noticed here too.
            if (!BarStateFile::loadFromRunningWidget(m_stateFile)) {
                m_monitor.refreshMac();
            }
            update();
        });
        m_macTimer.start();
    }

    void update() {
        const auto state = currentState(m_monitor);
        const Date now = m_monitor.clock().now();
        auto output = BarLine::format(m_format, state, now, UserLocale::system());
        if (m_format == BarFormat::i3blocks) {
            output.text = output.text.substr(0, output.text.find('\n') + 1);
        }
        if (output.text != m_lastLine) {
            m_lastLine = output.text;
            print(output.text);
        }
        // The reading is still fresh at the moment nextAgeChange names and stale just after it,
        // so the timer aims a millisecond past it; one that fires early simply aims again.
        if (const auto next = BarLine::nextAgeChange(state, now)) {
            const double seconds = next->secondsSince(now) + 0.001;
            m_ageTimer.start(static_cast<int>(std::ceil(std::max(seconds, 0.0) * 1000)));
        } else {
            m_ageTimer.stop();
        }
    }

private:
    BarFormat m_format;
    BatteryMonitor& m_monitor;
    std::filesystem::path m_stateFile;
    QFileSystemWatcher m_watcher;
    QTimer m_ageTimer;
    QTimer m_macTimer;
    std::string m_lastLine;
};

} // namespace

bool isRequested(const std::vector<std::string>& arguments) {
    return arguments.size() > 1 &&
           std::find(arguments.begin() + 1, arguments.end(), "--bar") != arguments.end();
}

BarState currentState(const BatteryMonitor& monitor) {
    if (auto state = BarStateFile::loadFromRunningWidget(BarStateFile::location())) {
        return *state;
    }
    BarState state;
    state.mac = monitor.mac();
    // Read again each time: a widget that ran meanwhile may have saved a newer reading.
    state.phone = ReadingCache::load(monitor.cacheURL(), monitor.clock().now());
    return state;
}

int run(int argc, char** argv, const std::vector<std::string>& arguments) {
    const auto format = requestedFormat(arguments);
    if (!format) {
        const std::string hint = "tovrin: --bar needs one of waybar, polybar, i3blocks\n";
        std::fwrite(hint.data(), 1, hint.size(), stderr);
        return kUsageExitCode;
    }
    QCoreApplication application(argc, argv);
    auto scheduler = std::make_shared<QtMainScheduler>();
    // The bar never reads the phone, so it gets no launcher: only the saved reading or the
    // widget's is shown.
    auto services = systemMonitorServices(scheduler, std::make_shared<ExecutableBundle>(), nullptr);
    BatteryMonitor monitor(std::move(services), std::nullopt, std::nullopt);

    const auto stateFile = BarStateFile::location();
    if (!BarStateFile::loadFromRunningWidget(stateFile)) {
        monitor.refreshMac();
    }
    if (std::find(arguments.begin() + 1, arguments.end(), "--follow") == arguments.end()) {
        const auto output = BarLine::format(*format, currentState(monitor), monitor.clock().now(),
                                            UserLocale::system());
        print(output.text);
        return output.exitCode;
    }
    Follower follower(*format, monitor, stateFile);
    follower.update();
    return QCoreApplication::exec();
}

} // namespace ambrel::BarCommand
