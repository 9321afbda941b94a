#pragma once

#include <functional>
#include <memory>

#include <QMenu>
#include <QObject>
#include <QString>
#include <QSystemTrayIcon>

#include "platform/LoginItemService.h"

class QAction;

namespace ambrel {

class TrayHostWatcher;

// The tray item and its menu: show the widget, refresh both batteries, start at login, About,
// quit. "Start at Login" is re-read from the login-item service every time the menu opens.
// Works without a tray host: the item is then made when a host shows up. The items claim no
// keyboard shortcuts: the tray host draws the menu and keeps the keys. Main thread only.
class StatusMenu final : public QObject {
public:
    struct Actions {
        std::function<void()> showPanel;
        std::function<void()> refresh;
        std::function<void()> quit;
        // Opens the desktop's startup settings, where the user approves start at login.
        std::function<void()> openAutostartSettings;
    };
    // Shows a modal alert with `message`, `informative` text and one "OK" button.
    using AlertPresenter = std::function<void(const QString& message, const QString& informative)>;

    StatusMenu(const QString& displayName, LoginItemService& loginItems, Actions actions,
               QObject* parent = nullptr);
    ~StatusMenu() override;

    // Redraws the tray mark for the look in force.
    void setDark(bool dark);
    // Shows the tray item now when the desktop has a tray host, else once one shows up.
    void showTrayItem();
    bool hasTrayItem() const { return m_tray != nullptr; }

    // "Low Battery Alerts" shows `enabled` and calls `changed` when the user flips it.
    void setLowBatteryAlerts(bool enabled, std::function<void(bool)> changed);

    void updateLoginItem();
    void toggleLogin();
    void showAbout();

    QMenu& menuForTesting() { return m_menu; }
    QAction* loginActionForTesting() const { return m_loginAction; }
    QAction* alertsActionForTesting() const { return m_alertsAction; }
    // Makes the tray item if it is not there yet (without showing it).
    QSystemTrayIcon& trayForTesting() { return tray(); }
    void setAlertPresenterForTesting(AlertPresenter presenter) {
        m_presentAlert = std::move(presenter);
    }

private:
    void presentAlert(const QString& message, const QString& informative);
    QSystemTrayIcon& tray();

    QString m_displayName;
    LoginItemService& m_loginItems;
    Actions m_actions;
    AlertPresenter m_presentAlert;
    QMenu m_menu;
    QAction* m_loginAction = nullptr;
    QAction* m_alertsAction = nullptr;
    std::function<void(bool)> m_alertsChanged;
    bool m_dark = false;
    // Made only once a tray host is there: see TrayHostWatcher.
    std::unique_ptr<QSystemTrayIcon> m_tray;
    std::unique_ptr<TrayHostWatcher> m_hostWatcher;
};

} // namespace ambrel
