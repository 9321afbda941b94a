#include "shell/StatusMenu.h"

#include <QAction>
#include <QCursor>
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

    QAction* refresh = m_menu.addAction(QString::fromUtf8(ShellTexts::kRefreshTitle));
    connect(refresh, &QAction::triggered, this, [this] { m_actions.refresh(); });
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

    QAction* quit = m_menu.addAction(menuTitle(ShellTexts::quitTitle(name)));
    connect(quit, &QAction::triggered, this, [this] { m_actions.quit(); });

    connect(&m_menu, &QMenu::aboutToShow, this, [this] { updateLoginItem(); });
}

StatusMenu::~StatusMenu() {
    if (m_tray) {
        m_tray->hide();
    }
}

QSystemTrayIcon& StatusMenu::tray() {
    if (!m_tray) {
        // The mark is drawn here, once there is a tray to show it, not at start.
        m_tray = std::make_unique<QSystemTrayIcon>(
            PairedCellIcon::icon(PairedCellIcon::labelColor(m_dark)));
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
        m_tray->setIcon(PairedCellIcon::icon(PairedCellIcon::labelColor(dark)));
    }
    m_dark = dark;
}

void StatusMenu::showTrayItem() {
    m_hostWatcher = std::make_unique<TrayHostWatcher>();
    m_hostWatcher->whenHostPresent([this] { tray().show(); });
}

void StatusMenu::setLowBatteryAlerts(bool enabled, std::function<void(bool)> changed) {
    m_alertsAction->setChecked(enabled);
    m_alertsChanged = std::move(changed);
}

void StatusMenu::updateLoginItem() {
    const auto status = m_loginItems.status();
    m_loginAction->setChecked(status == LoginItemStatus::enabled);
    m_loginAction->setText(QString::fromUtf8(status == LoginItemStatus::requiresApproval
                                                 ? ShellTexts::kStartAtLoginNeedsApprovalTitle
                                                 : ShellTexts::kStartAtLoginTitle));
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
