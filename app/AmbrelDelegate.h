#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <QList>
#include <QMetaObject>
#include <QObject>
#include <QString>

#include "commands/CommandLine.h"
#include "diagnosis/SystemConnectionProbe.h"
#include "platform/Environment.h"
#include "presentation/UserLocale.h"
#include "views/Appearance.h"
#include "views/ViewStyle.h"

class QAction;
class QScreen;
class QWidget;

namespace ambrel {

class BarStatePublisher;
class BatteryMonitor;
class Bundle;
class ColorSchemeWatcher;
class DesktopNotifications;
class DeadlineTimer;
class DesktopPanel;
class LoginItemService;
class LowBatteryAlertsController;
class PanelFrameStore;
class QtMainScheduler;
class SpawnProcessLauncher;
class StatusMenu;
class ScreenLockObserver;
class WakeObserver;
class ArrivalRelay;
class HistoryFeed;
class HistoryRecorder;
class PhoneHealthCheck;
class BatteryHistoryWindow;
class ThreadWorker;
struct HistoryWindowData;
class PhoneArrivalReads;

// A normal run: builds the monitor, the desktop panel with the card and the tray item, keeps
// the panel on screen and remembers where it is, refreshes on wake, and captures a preview when
// asked. Owns all of them for the life of the process. Main thread only.
class AmbrelDelegate final : public QObject {
public:
    // How long after the panel is first shown the preview is captured, so that the first
    // readings have arrived and the card has been laid out. Never earlier.
    static constexpr std::chrono::milliseconds kCaptureDelay{4000};
    // A move that ends (see DesktopPanel) is written at once. Steps of a drag whose end is not
    // seen are written this long after the last one, so that a drag does not wait for the disk
    // at every step. Quitting writes the frame at once.
    static constexpr std::chrono::milliseconds kFrameSaveDelay{1000};
    // A window manager moving the panel by itself (from the keyboard, or by Alt and a drag)
    // ends a move at every step: the first is written at once, the ones after it at most this
    // often, the last one this long after the one before it at the latest.
    static constexpr std::chrono::milliseconds kSettledWriteGap{500};

    // The system's parts a run uses, made by the entry.
    struct Setup {
        // Shared with nothing else and kept.
        std::unique_ptr<LoginItemService> loginItems;
        // Starts the phone tools (with the program's muxer in their environment); shut down at
        // quit so that none outlives the program.
        std::shared_ptr<SpawnProcessLauncher> launcher;
        // Where the connection window (opened by the setup sheet's "Open Finder") looks.
        SystemConnectionProbe::Setup connection;
        // The muxer's news of phones that appear; the widget reads them (none: no such reads).
        std::shared_ptr<ArrivalRelay> arrivals;
    };

    // `arguments` as the process got them (the program path first); `environment` as it
    // started.
    AmbrelDelegate(std::vector<std::string> arguments, std::shared_ptr<Bundle> bundle,
                   std::shared_ptr<const Environment> environment, Setup setup,
                   QObject* parent = nullptr);
    ~AmbrelDelegate() override;

    // The launch sequence; called once the application object exists.
    void applicationDidFinishLaunching();
    // A later launch, or "Show …" in the tray menu: the panel comes back where it was.
    void showPanel();
    // A later launch handed its `arguments` over (the program name first): the panel comes
    // forward and, when the launch asked for a preview capture, it is taken as the launch
    // sequence takes it, in the look that launch asked for.
    void laterLaunch(const std::vector<std::string>& arguments);

    // Saves the frame and stops watching wake and screens; runs as the event loop ends.
    void applicationWillTerminate();

    // The card's window; none before launch.
    DesktopPanel* panel() const { return m_panel.get(); }

private:
    void configurePanel();
    void constrainPanelToScreen();
    void watchScreens();
    void watchScreen(QScreen* screen);
    void savePanelFrame();
    // Writes the frame to disk now, at the end of a move.
    void writeSettledFrame();
    void hidePanel();
    void trayHostChanged(bool present);
    void startHistory();
    void openHistory();
    void showHistory(HistoryWindowData data);
    void capturePreview();
    void scheduleCapture(std::string path, std::optional<CommandLine::PreviewLook> look);
    void captureInLook(const std::string& path, std::optional<CommandLine::PreviewLook> look);

    std::vector<std::string> m_arguments;
    std::shared_ptr<Bundle> m_bundle;
    std::shared_ptr<const Environment> m_environment;
    UserLocale m_locale;
    std::unique_ptr<LoginItemService> m_loginItems;
    QString m_displayName;
    std::optional<CommandLine::PreviewLook> m_forcedLook;
    // What the views draw with: made before any of them, gone after the last.
    Appearance m_appearance;
    ViewStyle m_style;

    std::shared_ptr<SpawnProcessLauncher> m_launcher;
    std::function<void(QWidget*)> m_openConnectionWindow;
    std::shared_ptr<QtMainScheduler> m_scheduler;
    std::unique_ptr<BatteryMonitor> m_monitor;
    // Made before the monitor starts and gone after it, so every new reading is recorded.
    std::unique_ptr<HistoryRecorder> m_history;
    std::unique_ptr<HistoryFeed> m_historyFeed;
    std::unique_ptr<PhoneHealthCheck> m_phoneHealth;
    std::shared_ptr<ThreadWorker> m_historyReader;
    std::unique_ptr<BatteryHistoryWindow> m_historyWindow;
    std::unique_ptr<PanelFrameStore> m_frameStore;
    std::unique_ptr<DesktopPanel> m_panel;
    std::unique_ptr<StatusMenu> m_statusMenu;
    std::unique_ptr<WakeObserver> m_wakeObserver;
    std::shared_ptr<ArrivalRelay> m_arrivals;
    std::unique_ptr<PhoneArrivalReads> m_arrivalReads;
    std::unique_ptr<ScreenLockObserver> m_screenLockObserver;
    std::unique_ptr<BarStatePublisher> m_barState;
    std::unique_ptr<LowBatteryAlertsController> m_lowBatteryAlerts;
    // Tells how to bring a hidden card back on a desktop without a tray.
    std::unique_ptr<DesktopNotifications> m_notes;
    // The tray menu's settings, also at the end of the card's menu while there is no tray.
    QList<QAction*> m_cardSettings;
    bool m_hasTrayHost = false;
    std::unique_ptr<ColorSchemeWatcher> m_colorSchemeWatcher;
    std::unique_ptr<DeadlineTimer> m_captureTimer;
    std::unique_ptr<DeadlineTimer> m_frameSaveTimer;
    // Runs for kSettledWriteGap after each written end of a move; an end within it waits for it.
    std::unique_ptr<DeadlineTimer> m_settledWriteTimer;
    bool m_settledWritePending = false;
    // Captures asked for by later launches, each on its own timer.
    std::vector<std::unique_ptr<DeadlineTimer>> m_requestedCaptures;
    QList<QMetaObject::Connection> m_screenConnections;
    bool m_terminated = false;
};

} // namespace ambrel
