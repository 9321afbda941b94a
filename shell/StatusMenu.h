#pragma once

#include <functional>
#include <memory>

#include <QMenu>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QSystemTrayIcon>

#include "platform/LoginItemService.h"

class QAction;

namespace ambrel {

class TrayHostWatcher;

// The tray item and its menu: show the widget, refresh both batteries, start at login, About,
// quit. "Start at Login" is re-read from the login-item service every time the menu opens.
// Works without a tray host: the item is then made when a host shows up. "Refresh Batteries"
// and "Quit" take Ctrl+R and Ctrl+Q, shown beside them (tray hosts get them with the menu) and
// working while the menu is open. Main thread only.
class StatusMenu final : public QObject {
public:
    // Shows a modal alert with `message`, `informative` text and one "OK" button.
    using AlertPresenter = std::function<void(const QString& message, const QString& informative)>;

    struct Actions {
        std::function<void()> showPanel;
        std::function<void()> refresh;
        std::function<void()> quit;
        // Opens the Battery History window; without it the menu has no such item.
        std::function<void()> openHistory;
        // Opens the desktop's startup settings, where the user approves start at login.
        std::function<void()> openAutostartSettings;
        // Shows the menu's alerts; a modal message box titled with the display name unless set.
        AlertPresenter presentAlert;
    };

    StatusMenu(const QString& displayName, LoginItemService& loginItems, Actions actions,
               QObject* parent = nullptr);
    ~StatusMenu() override;

    // Redraws the tray mark for the look in force.
    void setDark(bool dark);
    // The mark's symbolic icon in the icon theme ("com.quenby.Tovrin-symbolic"): given to
    // StatusNotifier hosts, which tint it for their panel, when the theme has it. The drawn mark
    // stays for trays that take pixmaps only.
    void setSymbolicIconName(QString name) { m_symbolicIconName = std::move(name); }
    // Shows the tray item now when the desktop has a tray host, else once one shows up;
    // `hostChanged` hears whether there is one, at once and whenever that changes.
    void showTrayItem(std::function<void(bool present)> hostChanged = {});

    // Puts "Start at Login", "Low Battery Alerts" and "About" at the end of `menu`, after a
    // separator, for a desktop without a tray; they work as the tray menu's own, and their marks
    // follow each other. Returns the separator and the three, for the caller to show or hide.
    QList<QAction*> addSettingsTo(QMenu& menu);
    bool hasTrayItem() const { return m_tray != nullptr; }

    // "Low Battery Alerts" shows `enabled` and calls `changed` when the user flips it.
    void setLowBatteryAlerts(bool enabled, std::function<void(bool)> changed);

    void updateLoginItem();
    void toggleLogin();
    void showAbout();

    QMenu& menu() { return m_menu; }
    QAction* loginAction() const { return m_loginAction; }
    QAction* alertsAction() const { return m_alertsAction; }
    // The tray item, made if it is not there yet (without showing it).
    QSystemTrayIcon& tray();

protected:
    bool eventFilter(QObject* watched, QEvent* event) override;

private:
    void presentAlert(const QString& message, const QString& informative);

    QString m_displayName;
    LoginItemService& m_loginItems;
    Actions m_actions;
    QMenu m_menu;
    QAction* m_refreshAction = nullptr;
    QAction* m_quitAction = nullptr;
    QAction* m_loginAction = nullptr;
    QAction* m_alertsAction = nullptr;
    // The same two in another menu (see addSettingsTo); none until then.
    QPointer<QAction> m_otherLoginAction;
    QPointer<QAction> m_otherAlertsAction;
    std::function<void(bool)> m_alertsChanged;
    bool m_dark = false;
    QString m_symbolicIconName;
    // The tray item carries the theme's symbolic icon's name beside the drawn mark.
    bool m_symbolic = false;
    // Made only once a tray host is there: see TrayHostWatcher.
    std::unique_ptr<QSystemTrayIcon> m_tray;
    std::unique_ptr<TrayHostWatcher> m_hostWatcher;
};

} // namespace ambrel
