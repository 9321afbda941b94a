#include "app/AmbrelDelegate.h"

#include <chrono>
#include <cstdio>

#include <QAction>
#include <QCoreApplication>
#include <QDBusConnection>
#include <QGuiApplication>
#include <QMenu>
#include <QPointer>
#include <QScreen>
#include <QTimer>

#include "app/ArrivalRelay.h"
#include "app/HistoryFeed.h"
#include "app/SystemServices.h"
#include "history/HistoryRecorder.h"
#include "monitor/BarState.h"
#include "monitor/BarStatePublisher.h"
#include "monitor/BatteryMonitor.h"
#include "monitor/PhoneArrivalReads.h"
#include "monitor/PhoneHealthCheck.h"
#include "phone/PhoneHealthReader.h"
#include "platform/linux/SpawnProcessLauncher.h"
#include "platform/linux/SystemClock.h"
#include "platform/linux/ThreadWorker.h"
#include "platform/qt/ColorSchemeWatcher.h"
#include "platform/qt/DeadlineTimer.h"
#include "platform/qt/DesktopNotifications.h"
#include "platform/qt/QtMainScheduler.h"
#include "platform/qt/ScreenLockObserver.h"
#include "platform/qt/WakeObserver.h"
#include "presentation/WidgetBrand.h"
#include "shell/AutostartSettings.h"
#include "shell/DesktopPanel.h"
#include "shell/FirstPaintProbe.h"
#include "shell/LowBatteryAlertsController.h"
#include "shell/PanelFrameStore.h"
#include "shell/PanelPlacement.h"
#include "shell/PreviewCapture.h"
#include "shell/ShellTexts.h"
#include "shell/StatusMenu.h"
#include "views/AmbrelView.h"
#include "views/Appearance.h"
#include "views/BatteryHistoryWindow.h"
#include "views/ConnectionWindow.h"

namespace ambrel {

namespace {

std::vector<QRect> availableAreas() {
    std::vector<QRect> areas;
    for (const QScreen* screen : QGuiApplication::screens()) {
        areas.push_back(screen->availableGeometry());
    }
    return areas;
}

std::optional<QRect> mainScreenArea() {
    const QScreen* screen = QGuiApplication::primaryScreen();
    if (screen == nullptr) {
        return std::nullopt;
    }
    return screen->availableGeometry();
}

} // namespace

AmbrelDelegate::AmbrelDelegate(std::vector<std::string> arguments, std::shared_ptr<Bundle> bundle,
                               std::shared_ptr<const Environment> environment, Setup setup,
                               QObject* parent)
    : QObject(parent), m_arguments(std::move(arguments)), m_bundle(std::move(bundle)),
      m_environment(std::move(environment)), m_locale(UserLocale::forUser(*m_environment)),
      m_loginItems(std::move(setup.loginItems)),
      m_displayName(QString::fromStdString(ShellTexts::displayName(*m_bundle))),
      m_forcedLook(CommandLine::previewLook(m_arguments)),
      m_appearance(*QCoreApplication::instance()), m_style{m_appearance, ViewFonts(),
                                                           WidgetBrand::nameFrom(m_bundle.get())},
      m_launcher(std::move(setup.launcher)), m_arrivals(std::move(setup.arrivals)) {
    setup.connection.launcher = m_launcher;
    m_scheduler = std::make_shared<QtMainScheduler>();
    m_openConnectionWindow = connectionWindowOpener(
        m_style, std::move(setup.connection),
        ConnectionWindow::Background{std::make_shared<ThreadWorker>(), m_scheduler}, [this] {
            return m_monitor ? m_monitor->phoneID().value_or(std::string()) : std::string();
        });
}

AmbrelDelegate::~AmbrelDelegate() {
    applicationWillTerminate();
    // The card observes the monitor, so it goes first.
    m_lowBatteryAlerts.reset();
    m_barState.reset();
    m_statusMenu.reset();
    m_panel.reset();
    m_historyWindow.reset();
    m_historyFeed.reset();
    m_phoneHealth.reset();
    m_monitor.reset();
}

void AmbrelDelegate::applicationDidFinishLaunching() {
    // No taskbar entry: the panel asks to be left out of taskbars and pagers, and closing an
    // alert while the panel is hidden must not end the program.
    QGuiApplication::setQuitOnLastWindowClosed(false);

    auto& appearance = m_appearance;
    if (m_forcedLook) {
        appearance.setForcedLook(*m_forcedLook == CommandLine::PreviewLook::dark ? Look::dark
                                                                                 : Look::light);
    } else {
        m_colorSchemeWatcher =
            std::make_unique<ColorSchemeWatcher>([this](std::optional<bool> prefersDark) {
                m_appearance.setSystemLook(
                    prefersDark ? std::optional<Look>(*prefersDark ? Look::dark : Look::light)
                                : std::nullopt);
            });
    }

    auto services = systemMonitorServices(m_scheduler, m_bundle, m_environment, m_launcher);
    const auto toolDirectory = bundleToolDirectory(*m_bundle);
    m_monitor = std::make_unique<BatteryMonitor>(std::move(services), toolDirectory, std::nullopt);

    configurePanel();

    StatusMenu::Actions actions;
    actions.showPanel = [this] { showPanel(); };
    actions.refresh = [this] { m_monitor->refreshAll(); };
    actions.quit = [] { QCoreApplication::quit(); };
    actions.openHistory = [this] { openHistory(); };
    actions.openAutostartSettings = [this] {
        AutostartSettings::open(m_loginItems->settingsFolder().value_or(std::filesystem::path()),
                                *m_environment);
    };
    // Tray hosts show the application name as the item's title; the settings file is named
    // apart from it.
    QCoreApplication::setApplicationName(m_displayName);
    m_statusMenu = std::make_unique<StatusMenu>(m_displayName, *m_loginItems, std::move(actions));
    if (const auto identifier = m_bundle->infoString("CFBundleIdentifier")) {
        m_statusMenu->setSymbolicIconName(QString::fromStdString(*identifier + "-symbolic"));
    }
    m_statusMenu->setDark(appearance.look() == Look::dark);
    connect(&appearance, &Appearance::lookChanged, this,
            [this](Look look) { m_statusMenu->setDark(look == Look::dark); });
    // The desktop file is named after the bundle's identifier ("com.quenby.Tovrin.desktop").
    const QString desktopEntry =
        QString::fromStdString(m_bundle->infoString("CFBundleIdentifier").value_or(""));
    m_lowBatteryAlerts = std::make_unique<LowBatteryAlertsController>(*m_monitor, *m_scheduler,
                                                                      m_displayName, desktopEntry);
    m_notes = std::make_unique<DesktopNotifications>(QDBusConnection::sessionBus(), m_displayName,
                                                     desktopEntry);
    m_statusMenu->setLowBatteryAlerts(m_lowBatteryAlerts->isEnabled(), [this](bool enabled) {
        m_lowBatteryAlerts->setEnabled(enabled);
    });
    m_barState = std::make_unique<BarStatePublisher>(*m_monitor, *m_scheduler,
                                                     BarStateFile::location(*m_environment));
    if (auto* card = qobject_cast<AmbrelView*>(m_panel->content())) {
        m_cardSettings = m_statusMenu->addSettingsTo(*card->optionsMenu());
    }
    m_statusMenu->showTrayItem([this](bool present) { trayHostChanged(present); });

    startHistory();
    m_monitor->start();
    if (m_arrivals) {
        // A phone plugged in or back on the network is read at once when the card needs it.
        m_arrivalReads = std::make_unique<PhoneArrivalReads>(*m_monitor);
        QPointer<AmbrelDelegate> arriving(this);
        m_arrivals->connect(m_scheduler, [arriving](const PhoneArrival& arrival) {
            if (arriving != nullptr && arriving->m_arrivalReads) {
                arriving->m_arrivalReads->phoneArrived(arrival);
            }
        });
    }

    QPointer<AmbrelDelegate> self(this);
    m_wakeObserver = std::make_unique<WakeObserver>([self] {
        if (self != nullptr) {
            self->m_monitor->refreshAll();
        }
    });
    m_screenLockObserver = std::make_unique<ScreenLockObserver>([self](bool locked) {
        if (self != nullptr && self->m_panel) {
            if (auto* card = qobject_cast<AmbrelView*>(self->m_panel->content())) {
                card->setScreenLocked(locked);
            }
        }
    });
    watchScreens();

    m_panel->bringToFront();
    if (CommandLine::capturePreviewPath(m_arguments)) {
        m_captureTimer = std::make_unique<DeadlineTimer>([this] { capturePreview(); });
        m_captureTimer->start(kCaptureDelay, TimerRepeat::once);
    }
}

void AmbrelDelegate::configurePanel() {
    m_frameStore = std::make_unique<PanelFrameStore>();
    m_panel = std::make_unique<DesktopPanel>(m_displayName);

    QPointer<AmbrelDelegate> self(this);
    auto* card = new AmbrelView(
        m_style, *m_monitor, m_locale,
        [self] {
            if (self != nullptr) {
                self->hidePanel();
            }
        },
        [] { QCoreApplication::quit(); }, m_openConnectionWindow);
    card->setOpenHistory([self] {
        if (self != nullptr) {
            self->openHistory();
        }
    });
    m_panel->setContent(card);
    if (CommandLine::hasArgument(m_arguments, FirstPaintProbe::kSwitch)) {
        FirstPaintProbe::install(m_panel.get());
    }

    const auto saved = m_frameStore->load();
    const QRect frame = saved ? *saved
                              : QRect(PanelPlacement::firstPlacementOrigin(mainScreenArea()),
                                      PanelPlacement::kPanelSize);
    m_panel->move(PanelPlacement::withPanelSize(frame).topLeft());
    constrainPanelToScreen();
    m_frameSaveTimer = std::make_unique<DeadlineTimer>([this] { savePanelFrame(); });
    m_settledWriteTimer = std::make_unique<DeadlineTimer>([this] {
        if (m_settledWritePending) {
            writeSettledFrame();
        }
    });
    m_panel->setMovedHandler([this](bool settled) {
        if (!settled) {
            m_frameSaveTimer->start(kFrameSaveDelay, TimerRepeat::once);
        } else if (m_settledWriteTimer->isActive()) {
            m_settledWritePending = true;
        } else {
            // The move is over: written now, so that a kill or a log-out just after keeps it.
            writeSettledFrame();
        }
    });
}

void AmbrelDelegate::writeSettledFrame() {
    m_frameSaveTimer->stop();
    m_settledWritePending = false;
    savePanelFrame();
    m_frameStore->flush();
    m_settledWriteTimer->start(kSettledWriteGap, TimerRepeat::once);
}

void AmbrelDelegate::constrainPanelToScreen() {
    if (!m_panel) {
        return;
    }
    const QRect frame(m_panel->pos(), m_panel->size());
    if (const auto origin =
            PanelPlacement::constrainedOrigin(frame, availableAreas(), mainScreenArea())) {
        m_panel->move(*origin);
    }
}

void AmbrelDelegate::watchScreens() {
    const auto constrainLater = [this] {
        // Screen lists settle after the signal, so the check runs once the event loop is back.
        QTimer::singleShot(0, this, [this] { constrainPanelToScreen(); });
    };
    auto* application = qobject_cast<QGuiApplication*>(QCoreApplication::instance());
    if (application == nullptr) {
        return;
    }
    m_screenConnections << connect(application, &QGuiApplication::screenAdded, this,
                                   [this, constrainLater](QScreen* screen) {
                                       watchScreen(screen);
                                       constrainLater();
                                   });
    m_screenConnections << connect(application, &QGuiApplication::screenRemoved, this,
                                   constrainLater);
    m_screenConnections << connect(application, &QGuiApplication::primaryScreenChanged, this,
                                   constrainLater);
    for (QScreen* screen : QGuiApplication::screens()) {
        watchScreen(screen);
    }
}

void AmbrelDelegate::watchScreen(QScreen* screen) {
    m_screenConnections << connect(screen, &QScreen::availableGeometryChanged, this,
                                   [this] { constrainPanelToScreen(); });
    m_screenConnections << connect(screen, &QScreen::geometryChanged, this,
                                   [this] { constrainPanelToScreen(); });
}

void AmbrelDelegate::showPanel() {
    if (m_panel) {
        m_panel->bringToFront();
    }
    // The note that said how to bring the card back has done its work.
    if (m_notes) {
        m_notes->closeNote();
    }
}

void AmbrelDelegate::laterLaunch(const std::vector<std::string>& arguments) {
    showPanel();
    if (const auto path = CommandLine::capturePreviewPath(arguments)) {
        scheduleCapture(*path, CommandLine::previewLook(arguments));
    }
}

void AmbrelDelegate::scheduleCapture(std::string path,
                                     std::optional<CommandLine::PreviewLook> look) {
    // Timers of captures already taken go now, not from inside their own firing.
    std::erase_if(m_requestedCaptures, [](const auto& timer) { return !timer->isActive(); });
    // The same delay as at launch: the panel has just come forward, and a refresh the user
    // started may still be on its way.
    auto timer = std::make_unique<DeadlineTimer>(
        [this, path = std::move(path), look] { captureInLook(path, look); });
    timer->start(kCaptureDelay, TimerRepeat::once);
    m_requestedCaptures.push_back(std::move(timer));
}

void AmbrelDelegate::startHistory() {
    // Beside the reading cache; the file is opened by the recorder's thread with the first row.
    auto file = m_monitor->cacheURL().parent_path() / HistoryStore::kFileName;
    m_history = std::make_unique<HistoryRecorder>(
        std::move(file), [] { return SystemClock().now(); },
        [](const std::string& line) {
            const std::string text = "tovrin: " + line + "\n";
            std::fwrite(text.data(), 1, text.size(), stderr);
        });
    m_historyFeed = std::make_unique<HistoryFeed>(*m_monitor, *m_history);

    // The phone's battery health, read through its diagnostics relay once a day.
    m_phoneHealth = std::make_unique<PhoneHealthCheck>(
        *m_monitor, std::make_shared<ThreadWorker>(), m_scheduler,
        [launcher = m_launcher, tools = m_monitor->toolDirectory()](const std::string& udid,
                                                                    PhoneLink link) {
            return launcher ? PhoneHealthReader::read(tools, udid, link, *launcher)
                            : std::optional<BatteryHealth>();
        },
        m_monitor->cacheURL().parent_path() / PhoneHealthFile::kFileName);

    // An open history window takes each new reading as it comes, and a new health at once.
    m_historyFeed->setRowListener([this](const HistoryRow& row) {
        if (m_historyWindow && m_historyWindow->isVisible()) {
            m_historyWindow->addRow(row);
        }
    });
    m_phoneHealth->setChanged([this] {
        if (m_historyWindow && m_historyWindow->isVisible()) {
            openHistory();
        }
    });
}

void AmbrelDelegate::openHistory() {
    if (!m_historyReader) {
        m_historyReader = std::make_shared<ThreadWorker>();
    }
    // The rows are read off the main thread; the window shows once they are there.
    const auto file = m_monitor->cacheURL().parent_path() / HistoryStore::kFileName;
    const Date now = SystemClock().now();
    std::weak_ptr<QtMainScheduler> weakScheduler = m_scheduler;
    QPointer<AmbrelDelegate> self(this);
    m_historyReader->run([file, now, weakScheduler, self] {
        HistoryWindowData data;
        data.now = now;
        HistoryStore store(file);
        if (store.openToRead()) {
            const Date from = now.addingSeconds(-10 * 24 * 3600.0);
            data.mac = store.rows("mac", from);
            data.phone = store.rows("iphone", from);
        } else {
            data.status = store.status();
        }
        if (auto scheduler = weakScheduler.lock()) {
            scheduler->post([self, data = std::move(data)]() mutable {
                if (self != nullptr) {
                    self->showHistory(std::move(data));
                }
            });
        }
    });
}

void AmbrelDelegate::showHistory(HistoryWindowData data) {
    if (m_history) {
        if (const auto status = m_history->status(); !status.empty()) {
            data.status = status;
        }
    }
    data.macHealth = m_monitor->macHealth();
    data.macTimeLeft = m_monitor->macTimeLeft();
    if (const auto health = m_phoneHealth ? m_phoneHealth->health() : std::nullopt) {
        data.phoneHealth = health->health;
    }
    if (const auto& phone = m_monitor->phone()) {
        data.phoneName = phone->name();
    }
    if (!m_historyWindow) {
        m_historyWindow = std::make_unique<BatteryHistoryWindow>(m_style);
    }
    m_historyWindow->setData(std::move(data));
    m_historyWindow->show();
    m_historyWindow->raise();
    m_historyWindow->activateWindow();
}

void AmbrelDelegate::hidePanel() {
    if (!m_panel) {
        return;
    }
    m_panel->hide();
    if (!m_hasTrayHost && m_notes) {
        const auto name = m_displayName.toStdString();
        m_notes->showNote(QString::fromStdString(ShellTexts::hiddenNoteSummary(name)),
                          QString::fromStdString(ShellTexts::hiddenNoteBody(name)));
    }
}

void AmbrelDelegate::trayHostChanged(bool present) {
    m_hasTrayHost = present;
    // With a tray its menu holds the settings and the card's menu is as always.
    for (QAction* action : std::as_const(m_cardSettings)) {
        action->setVisible(!present);
    }
}

void AmbrelDelegate::savePanelFrame() {
    if (m_panel && m_frameStore) {
        m_frameStore->save(QRect(m_panel->pos(), m_panel->size()));
    }
}

void AmbrelDelegate::capturePreview() {
    if (const auto path = CommandLine::capturePreviewPath(m_arguments)) {
        captureInLook(*path, std::nullopt);
    }
}

void AmbrelDelegate::captureInLook(const std::string& path,
                                   std::optional<CommandLine::PreviewLook> look) {
    if (!m_panel) {
        return;
    }
    // The asked look holds for the picture only; the panel on screen keeps the one in force.
    auto& appearance = m_appearance;
    const auto lookInForce = appearance.forcedLook();
    if (look) {
        appearance.setForcedLook(*look == CommandLine::PreviewLook::dark ? Look::dark
                                                                         : Look::light);
    }
    const QScreen* screen = m_panel->screen();
    const qreal ratio = screen != nullptr ? screen->devicePixelRatio() : qApp->devicePixelRatio();
    PreviewCapture::capture(m_panel.get(), ratio, QString::fromStdString(path));
    if (look) {
        appearance.setForcedLook(lookInForce);
    }
}

void AmbrelDelegate::applicationWillTerminate() {
    if (m_terminated) {
        return;
    }
    m_terminated = true;
    if (m_frameSaveTimer) {
        m_frameSaveTimer->stop();
        m_settledWriteTimer->stop();
    }
    if (m_panel && m_frameStore) {
        savePanelFrame();
        m_frameStore->flush();
    }
    for (const auto& connection : std::as_const(m_screenConnections)) {
        disconnect(connection);
    }
    m_screenConnections.clear();
    m_wakeObserver.reset();
    if (m_arrivals) {
        m_arrivals->disconnect();
    }
    m_arrivalReads.reset();
    m_screenLockObserver.reset();
    m_colorSchemeWatcher.reset();
    // A phone tool still running would outlive the program otherwise, and a read on its way
    // must not start another one.
    m_launcher->shutDown();
}

} // namespace ambrel
