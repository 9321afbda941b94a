#include "app/StatusMenu.h"

#include <QAction>
#include <QCursor>
#include <QKeySequence>
#include <QMessageBox>
#include <QPushButton>

#include "app/PairedCellIcon.h"
#include "app/ShellTexts.h"

namespace ambrel {

namespace {

QString text(const std::string& utf8) {
    return QString::fromStdString(utf8);
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
    m_presentAlert = [title = displayName](const QString& message, const QString& informative) {
        showModalAlert(title, message, informative);
    };

    QAction* show = m_menu.addAction(text(ShellTexts::showTitle(name)));
    connect(show, &QAction::triggered, this, [this] { m_actions.showPanel(); });

    QAction* refresh = m_menu.addAction(QString::fromUtf8(ShellTexts::kRefreshTitle));
    refresh->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_R));
    connect(refresh, &QAction::triggered, this, [this] { m_actions.refresh(); });

    m_menu.addSeparator();
    m_loginAction = m_menu.addAction(QString::fromUtf8(ShellTexts::kStartAtLoginTitle));
    m_loginAction->setCheckable(true);
    connect(m_loginAction, &QAction::triggered, this, [this] { toggleLogin(); });

    m_menu.addSeparator();
    QAction* about = m_menu.addAction(text(ShellTexts::aboutTitle(name)));
    connect(about, &QAction::triggered, this, [this] { showAbout(); });

    QAction* quit = m_menu.addAction(text(ShellTexts::quitTitle(name)));
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    connect(quit, &QAction::triggered, this, [this] { m_actions.quit(); });

    connect(&m_menu, &QMenu::aboutToShow, this, [this] { updateLoginItem(); });

    m_tray.setToolTip(text(ShellTexts::toolTip(name)));
    m_tray.setContextMenu(&m_menu);
    // A click on the item opens the menu, as the context click does.
    connect(&m_tray, &QSystemTrayIcon::activated, this,
            [this](QSystemTrayIcon::ActivationReason reason) {
                if (reason == QSystemTrayIcon::Trigger) {
                    m_menu.popup(QCursor::pos());
                }
            });
    setDark(false);
}

StatusMenu::~StatusMenu() {
    m_tray.hide();
}

void StatusMenu::setDark(bool dark) {
    m_tray.setIcon(PairedCellIcon::icon(PairedCellIcon::labelColor(dark)));
}

void StatusMenu::showTrayItem() {
    m_tray.show();
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
    m_presentAlert(message, informative);
}

} // namespace ambrel
