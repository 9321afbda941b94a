#include "commands/BarCommand.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <memory>
#include <utility>

#include <QCoreApplication>
#include <QFileSystemWatcher>
#include <QString>
#include <QTimer>

#include "model/BatteryRefreshPolicy.h"
#include "monitor/ReadingCache.h"
#include "platform/qt/QtMainScheduler.h"
#include "presentation/BarLine.h"
#include "presentation/UserLocale.h"

namespace ambrel {

namespace {

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
    Follower(BarFormat format, BatteryMonitor& monitor, const UserLocale& locale,
             std::filesystem::path stateFile, std::function<void(const std::string&)> print)
        : m_format(format), m_monitor(monitor), m_locale(locale), m_stateFile(std::move(stateFile)),
          m_print(std::move(print)) {
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
        const auto state = BarCommand::currentState(m_monitor, m_stateFile);
        const Date now = m_monitor.clock().now();
        const auto line = BarLine::followLine(m_format, state, now, m_locale);
        if (line != m_lastLine) {
            m_lastLine = line;
            m_print(line);
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
    const UserLocale& m_locale;
    std::filesystem::path m_stateFile;
    QFileSystemWatcher m_watcher;
    QTimer m_ageTimer;
    QTimer m_macTimer;
    std::function<void(const std::string&)> m_print;
    std::string m_lastLine;
};

} // namespace

BarCommand::BarCommand(MonitorServicesFactory services,
                       std::shared_ptr<const Environment> environment,
                       std::filesystem::path stateFile)
    : m_services(std::move(services)), m_environment(std::move(environment)),
      m_stateFile(std::move(stateFile)) {}

bool BarCommand::isRequested(const std::vector<std::string>& arguments) const {
    return arguments.size() > 1 &&
           std::find(arguments.begin() + 1, arguments.end(), "--bar") != arguments.end();
}

BarState BarCommand::currentState(const BatteryMonitor& monitor,
                                  const std::filesystem::path& stateFile) {
    if (auto state = BarStateFile::loadFromRunningWidget(stateFile)) {
        return *state;
    }
    BarState state;
    state.mac = monitor.mac();
    // Read again each time: a widget that ran meanwhile may have saved a newer reading.
    state.phone = ReadingCache::load(monitor.cacheURL(), monitor.clock().now());
    return state;
}

int BarCommand::run(const Invocation& invocation) {
    const auto& arguments = invocation.arguments;
    const auto format = requestedFormat(arguments);
    if (!format) {
        invocation.err(usageError("--bar needs one of waybar, polybar, i3blocks"));
        return kUsageExitCode;
    }
    int argc = invocation.argc;
    QCoreApplication application(argc, invocation.argv);
    BatteryMonitor monitor(m_services(std::make_shared<QtMainScheduler>()), std::nullopt,
                           std::nullopt);

    const auto& stateFile = m_stateFile;
    const auto locale = UserLocale::forUser(*m_environment);
    if (!BarStateFile::loadFromRunningWidget(stateFile)) {
        monitor.refreshMac();
    }
    if (std::find(arguments.begin() + 1, arguments.end(), "--follow") == arguments.end()) {
        const auto output = BarLine::format(*format, currentState(monitor, stateFile),
                                            monitor.clock().now(), locale);
        invocation.out(output.text);
        return output.exitCode;
    }
    Follower follower(*format, monitor, locale, stateFile, invocation.out);
    follower.update();
    return QCoreApplication::exec();
}

} // namespace ambrel
