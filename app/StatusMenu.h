#pragma once

#include <functional>

#include <QMenu>
#include <QObject>
#include <QString>
#include <QSystemTrayIcon>

#include "platform/LoginItemService.h"

class QAction;

namespace ambrel {

// The tray item and its menu: show the widget, refresh both batteries, start at login, About,
// quit. "Start at Login" is re-read from the login-item service every time the menu opens.
// Works without a tray host: the item then simply is not shown. Main thread only.
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
    void showTrayItem();

    void updateLoginItem();
    void toggleLogin();
    void showAbout();

    QMenu& menuForTesting() { return m_menu; }
    QAction* loginActionForTesting() const { return m_loginAction; }
    QSystemTrayIcon& trayForTesting() { return m_tray; }
    void setAlertPresenterForTesting(AlertPresenter presenter) {
        m_presentAlert = std::move(presenter);
    }

private:
    void presentAlert(const QString& message, const QString& informative);

    QString m_displayName;
    LoginItemService& m_loginItems;
    Actions m_actions;
    AlertPresenter m_presentAlert;
    QMenu m_menu;
    QAction* m_loginAction = nullptr;
    QSystemTrayIcon m_tray;
};

} // namespace ambrel
