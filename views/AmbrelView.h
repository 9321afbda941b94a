#pragma once

#include <chrono>
#include <functional>
#include <optional>

#include <QImage>
#include <QPointer>
#include <QWidget>

#include "monitor/BatteryMonitor.h"
#include "platform/qt/DeadlineTimer.h"
#include "views/Appearance.h"
#include "views/IPhoneSetupView.h"

class QMenu;

namespace ambrel {

class DeviceBatteryGauge;
class IconButton;
class TextLine;
class TitleArea;
class UserLocale;
struct ViewStyle;

// The whole widget card, 360 x 170: a header (the title that moves the window, a refresh button
// and an options menu), this computer's and the phone's gauges, and a footer with the refresh
// cadence and the connection help button. It paints its own glass and is transparent outside
// it. It reads the monitor, redraws on every published change and, while shown, on a 30-second
// clock (for the time stamps), and calls only refreshAll(); the monitor must outlive it. Main
// thread only.
class AmbrelView final : public QWidget {
    Q_OBJECT

public:
    static constexpr int kWidth = 360;
    static constexpr int kHeight = 170;
    static constexpr std::chrono::seconds kClockInterval{30};

    // `openConnectionWindow` is what the setup sheet's "Open Finder" calls, with the sheet;
    // time stamps are written in `locale`; the view draws with `style`. Both must outlive it.
    AmbrelView(const ViewStyle& style, BatteryMonitor& monitor, const UserLocale& locale,
               std::function<void()> onHide, std::function<void()> onQuit,
               std::function<void(QWidget* parent)> openConnectionWindow,
               QWidget* parent = nullptr);
    ~AmbrelView() override;

    // Opens the phone setup sheet over the card (or raises it when it is open).
    void showSetup();
    // Adds "Battery History…" to the card's menu, after the setup item; it calls `open`.
    void setOpenHistory(std::function<void()> open);
    bool isShowingSetup() const { return m_setup != nullptr; }
    IPhoneSetupView* setupView() const { return m_setup; }

    TitleArea* titleArea() const { return m_title; }
    IconButton* refreshButton() const { return m_refresh; }
    IconButton* menuButton() const { return m_menuButton; }
    QMenu* optionsMenu() const { return m_menu; }
    DeviceBatteryGauge* macGauge() const { return m_macGauge; }
    DeviceBatteryGauge* phoneGauge() const { return m_phoneGauge; }
    TextLine* cadenceLine() const { return m_cadence; }
    IconButton* helpButton() const { return m_help; }
    const DeadlineTimer& clock() const { return m_clock; }

    // Copies the monitor's state into the child views, each of which repaints only if what it
    // shows has changed; the 30-second clock calls it to keep the time stamps (today or another
    // day) current.
    void syncFromMonitor();
    // While the screen is locked or blank, nobody sees the card: its clock waits, and the card
    // catches up at once when the screen comes back.
    void setScreenLocked(bool locked);

protected:
    void paintEvent(QPaintEvent* event) override;
    void resizeEvent(QResizeEvent* event) override;
    // The clock runs only while the card is on screen.
    void showEvent(QShowEvent* event) override;
    void hideEvent(QHideEvent* event) override;

private:
    // Runs the clock exactly while the card can be seen; started, it brings the card up to date.
    void updateClock();
    void buildMenu();
    void applyLook();
    // Gives the menu's items their icons in the look in force, unless they have them already.
    void drawMenuIcons();

    const ViewStyle& m_style;
    BatteryMonitor& m_monitor;
    std::function<void()> m_onHide;
    std::function<void()> m_onQuit;
    std::function<void(QWidget*)> m_openConnectionWindow;
    BatteryMonitor::ObserverId m_observer = 0;
    const UserLocale& m_locale;
    DeadlineTimer m_clock;
    bool m_screenLocked = false;
    // The glass, drawn once per size, look and pixel ratio: a large translucent fill is the
    // costliest part of a frame.
    QImage m_glass;
    double m_glassRatio = 0.0;
    Look m_glassLook = Look::light;

    TitleArea* m_title = nullptr;
    IconButton* m_refresh = nullptr;
    IconButton* m_menuButton = nullptr;
    QMenu* m_menu = nullptr;
    std::optional<Look> m_menuIconsLook;
    DeviceBatteryGauge* m_macGauge = nullptr;
    DeviceBatteryGauge* m_phoneGauge = nullptr;
    TextLine* m_cadence = nullptr;
    IconButton* m_help = nullptr;
    QPointer<IPhoneSetupView> m_setup;
};

} // namespace ambrel
