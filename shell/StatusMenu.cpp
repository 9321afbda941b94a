#include "shell/StatusMenu.h"

#include <QAction>
#include <QCursor>
#include <QDir>
#include <QFileInfo>
#include <QIcon>
#include <QIconEngine>
#include <QKeyEvent>
#include <QKeySequence>
#include <QMessageBox>
#include <QPushButton>

#include "platform/qt/TrayHostWatcher.h"
#include "presentation/HistoryTexts.h"
#include "shell/PairedCellIcon.h"
#include "shell/ShellTexts.h"

namespace ambrel {

namespace {

QString text(const std::string& utf8) {
    return QString::fromStdString(utf8);
}

// A menu item's title as Qt wants it: a single "&" in the display name would otherwise mark
// the next letter as a mnemonic and not be shown.
QString menuTitle(const std::string& utf8) {
    return text(utf8).replace(QLatin1Char('&'), QStringLiteral("&&"));
}

// The drawn mark under a theme icon's name: a StatusNotifier host is given the name (Qt passes
// an icon's name on) and the drawn pixmaps both.
class NamedMarkEngine final : public QIconEngine {
public:
    NamedMarkEngine(QIcon drawn, QString name)
        : m_drawn(std::move(drawn)), m_name(std::move(name)) {}

    void paint(QPainter* painter, const QRect& rect, QIcon::Mode mode,
               QIcon::State state) override {
        m_drawn.paint(painter, rect, Qt::AlignCenter, mode, state);
    }
    QPixmap pixmap(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
        return m_drawn.pixmap(size, mode, state);
    }
    QPixmap scaledPixmap(const QSize& size, QIcon::Mode mode, QIcon::State state,
                         qreal scale) override {
        return m_drawn.pixmap(size, scale, mode, state);
    }
    QSize actualSize(const QSize& size, QIcon::Mode mode, QIcon::State state) override {
        return m_drawn.actualSize(size, mode, state);
    }
    QList<QSize> availableSizes(QIcon::Mode mode, QIcon::State state) override {
        return m_drawn.availableSizes(mode, state);
    }
    QString iconName() override { return m_name; }
    QString key() const override { return QStringLiteral("TovrinMark"); }
    QIconEngine* clone() const override { return new NamedMarkEngine(m_drawn, m_name); }

private:
    QIcon m_drawn;
    QString m_name;
};

// Whether the icon theme has `name` where tray hosts look for it: hicolor's symbolic folder in
// the user's or the system's data folders (a copy run from its build folder has none there).
bool symbolicIconInstalled(const QString& name) {
    QStringList folders;
    const QString dataHome = qEnvironmentVariable("XDG_DATA_HOME");
    folders << (dataHome.isEmpty() ? QDir::homePath() + QStringLiteral("/.local/share") : dataHome);
    const QString dataDirs = qEnvironmentVariable("XDG_DATA_DIRS");
    folders << (dataDirs.isEmpty() ? QStringLiteral("/usr/local/share:/usr/share") : dataDirs)
                   .split(QLatin1Char(':'), Qt::SkipEmptyParts);
    for (const QString& folder : std::as_const(folders)) {
        if (QFileInfo::exists(folder + QStringLiteral("/icons/hicolor/symbolic/apps/") + name +
                              QStringLiteral(".svg"))) {
            return true;
        }
    }
    return false;
}

void showModalAlert(const QString& title, const QString& message, const QString& informative) {
    QMessageBox box;
    box.setWindowTitle(title);
    box.setText(message);
    box.setInformativeText(informative);
    box.addButton(QString::fromUtf8(ShellTexts::kOkButton), QMessageBox::AcceptRole);
    // The program has no window of its own in front, so the alert brings itself forward.
    box.show();
    box.raise();
    box.activateWindow();
    box.exec();
}

} // namespace

StatusMenu::StatusMenu(const QString& displayName, LoginItemService& loginItems, Actions actions,
                       QObject* parent)
    : QObject(parent), m_displayName(displayName), m_loginItems(loginItems),
      m_actions(std::move(actions)) {
    const auto name = displayName.toStdString();
    if (!m_actions.presentAlert) {
        m_actions.presentAlert = [title = displayName](const QString& message,
                                                       const QString& informative) {
            showModalAlert(title, message, informative);
        };
    }

    QAction* show = m_menu.addAction(menuTitle(ShellTexts::showTitle(name)));
    connect(show, &QAction::triggered, this, [this] { m_actions.showPanel(); });

    m_refreshAction = m_menu.addAction(QString::fromUtf8(ShellTexts::kRefreshTitle));
    m_refreshAction->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_R));
    connect(m_refreshAction, &QAction::triggered, this, [this] { m_actions.refresh(); });
    if (m_actions.openHistory) {
        QAction* history = m_menu.addAction(QString::fromUtf8(HistoryTexts::kMenuItem));
        history->setObjectName(QStringLiteral("historyAction"));
        connect(history, &QAction::triggered, this, [this] { m_actions.openHistory(); });
    }

    m_menu.addSeparator();
    m_loginAction = m_menu.addAction(QString::fromUtf8(ShellTexts::kStartAtLoginTitle));
    m_loginAction->setCheckable(true);
    connect(m_loginAction, &QAction::triggered, this, [this] { toggleLogin(); });
    m_alertsAction = m_menu.addAction(QString::fromUtf8(ShellTexts::kLowBatteryAlertsTitle));
    m_alertsAction->setCheckable(true);
    m_alertsAction->setChecked(true);
    connect(m_alertsAction, &QAction::triggered, this, [this](bool checked) {
        if (m_alertsChanged) {
            m_alertsChanged(checked);
        }
    });

    m_menu.addSeparator();
    QAction* about = m_menu.addAction(menuTitle(ShellTexts::aboutTitle(name)));
    connect(about, &QAction::triggered, this, [this] { showAbout(); });

    m_quitAction = m_menu.addAction(menuTitle(ShellTexts::quitTitle(name)));
    m_quitAction->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    connect(m_quitAction, &QAction::triggered, this, [this] { m_actions.quit(); });

    m_menu.setAccessibleName(displayName);
    m_menu.installEventFilter(this);
    connect(&m_menu, &QMenu::aboutToShow, this, [this] { updateLoginItem(); });
}

bool StatusMenu::eventFilter(QObject* watched, QEvent* event) {
    // An open menu has the keyboard, and a context menu's shortcuts belong to no window, so
    // the two keys are taken here.
    if (watched != &m_menu || event->type() != QEvent::KeyPress) {
        return false;
    }
    const auto* press = static_cast<QKeyEvent*>(event);
    const QKeySequence pressed(press->keyCombination());
    for (QAction* action : {m_refreshAction, m_quitAction}) {
        if (action->isEnabled() && action->shortcut() == pressed) {
            m_menu.close();
            action->trigger();
            return true;
        }
    }
    return false;
}

StatusMenu::~StatusMenu() {
    if (m_tray) {
        m_tray->hide();
    }
}

QSystemTrayIcon& StatusMenu::tray() {
    if (!m_tray) {
        // The mark is drawn here, once there is a tray to show it, not at start.
        QIcon mark = PairedCellIcon::icon(PairedCellIcon::labelColor(m_dark));
        if (!m_symbolicIconName.isEmpty() && symbolicIconInstalled(m_symbolicIconName) &&
            m_hostWatcher && m_hostWatcher->statusNotifierHost()) {
            // The host draws it from its theme in its panel's colour; the drawn mark goes along
            // as the pixmap for hosts that take pixmaps.
            mark = QIcon(new NamedMarkEngine(mark, m_symbolicIconName));
            m_symbolic = true;
        }
        m_tray = std::make_unique<QSystemTrayIcon>(mark);
        m_tray->setToolTip(text(ShellTexts::toolTip(m_displayName.toStdString())));
        m_tray->setContextMenu(&m_menu);
        // A click on the item opens the menu, as the context click does.
        connect(m_tray.get(), &QSystemTrayIcon::activated, this,
                [this](QSystemTrayIcon::ActivationReason reason) {
                    if (reason == QSystemTrayIcon::Trigger) {
                        m_menu.popup(QCursor::pos());
                    }
                });
    }
    return *m_tray;
}

void StatusMenu::setDark(bool dark) {
    if (m_tray && dark != m_dark) {
        const QIcon drawn = PairedCellIcon::icon(PairedCellIcon::labelColor(dark));
        // A host that takes the pixmap rather than the theme's icon gets the new look too.
        m_tray->setIcon(m_symbolic ? QIcon(new NamedMarkEngine(drawn, m_symbolicIconName)) : drawn);
    }
    m_dark = dark;
}

void StatusMenu::showTrayItem(std::function<void(bool present)> hostChanged) {
    m_hostWatcher = std::make_unique<TrayHostWatcher>();
    m_hostWatcher->watchHost([this, hostChanged = std::move(hostChanged)](bool present) {
        if (present) {
            tray().show();
        }
        if (hostChanged) {
            hostChanged(present);
        }
    });
}

QList<QAction*> StatusMenu::addSettingsTo(QMenu& menu) {
    const auto name = m_displayName.toStdString();
    QList<QAction*> added;
    added << menu.addSeparator();
    m_otherLoginAction = menu.addAction(QString::fromUtf8(ShellTexts::kStartAtLoginTitle));
    m_otherLoginAction->setObjectName(QStringLiteral("startAtLoginAction"));
    m_otherLoginAction->setCheckable(true);
    connect(m_otherLoginAction, &QAction::triggered, this, [this] { toggleLogin(); });
    added << m_otherLoginAction;

    m_otherAlertsAction = menu.addAction(QString::fromUtf8(ShellTexts::kLowBatteryAlertsTitle));
    m_otherAlertsAction->setObjectName(QStringLiteral("lowBatteryAlertsAction"));
    m_otherAlertsAction->setCheckable(true);
    m_otherAlertsAction->setChecked(m_alertsAction->isChecked());
    // Either mark moves the other; the change itself is made once, by the tray menu's entry.
    connect(m_otherAlertsAction, &QAction::triggered, m_alertsAction, &QAction::trigger);
    connect(m_alertsAction, &QAction::toggled, m_otherAlertsAction, &QAction::setChecked);
    added << m_otherAlertsAction;

    QAction* about = menu.addAction(menuTitle(ShellTexts::aboutTitle(name)));
    about->setObjectName(QStringLiteral("aboutAction"));
    connect(about, &QAction::triggered, this, [this] { showAbout(); });
    added << about;

    connect(&menu, &QMenu::aboutToShow, this, [this] { updateLoginItem(); });
    updateLoginItem();
    return added;
}

void StatusMenu::setLowBatteryAlerts(bool enabled, std::function<void(bool)> changed) {
    m_alertsAction->setChecked(enabled);
    m_alertsChanged = std::move(changed);
}

void StatusMenu::updateLoginItem() {
    const auto status = m_loginItems.status();
    for (QAction* action : {m_loginAction, m_otherLoginAction.data()}) {
        if (action == nullptr) {
            continue;
        }
        action->setChecked(status == LoginItemStatus::enabled);
        action->setText(QString::fromUtf8(status == LoginItemStatus::requiresApproval
                                              ? ShellTexts::kStartAtLoginNeedsApprovalTitle
                                              : ShellTexts::kStartAtLoginTitle));
    }
}

void StatusMenu::toggleLogin() {
    LoginItemResult result = std::monostate{};
    switch (m_loginItems.status()) {
    case LoginItemStatus::enabled:
        result = m_loginItems.unregisterItem();
        break;
    case LoginItemStatus::requiresApproval:
        m_actions.openAutostartSettings();
        return;
    case LoginItemStatus::notRegistered:
    case LoginItemStatus::notFound:
        result = m_loginItems.registerItem();
        break;
    }
    // The checkable action flipped its own mark when chosen; the truth is the service's.
    updateLoginItem();
    if (!result) {
        presentAlert(QString::fromUtf8(ShellTexts::kLoginChangeFailedTitle),
                     QString::fromStdString(result.error().description));
    }
}

void StatusMenu::showAbout() {
    presentAlert(m_displayName, text(ShellTexts::aboutText(m_displayName.toStdString())));
}

void StatusMenu::presentAlert(const QString& message, const QString& informative) {
    m_actions.presentAlert(message, informative);
}

} // namespace ambrel
