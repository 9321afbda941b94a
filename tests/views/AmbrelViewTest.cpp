#include "views/AmbrelView.h"

#include <QMouseEvent>
#include <vector>

#include <QAction>
#include <QApplication>
#include <QMenu>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <QWindow>
#include <chrono>
#include <cmath>
#include <map>
#include <thread>

#include <QPainter>

#include <gtest/gtest.h>

#include "presentation/UserLocale.h"
#include "presentation/WidgetBrand.h"
#include "tests/views/CardHarness.h"
#include "tests/views/ViewTestSupport.h"
#include "views/Appearance.h"
#include "views/DeviceBatteryGauge.h"
#include "views/GaugeRing.h"
#include "views/IPhoneSetupView.h"
#include "views/IconButton.h"
#include "views/PairedCellMark.h"
#include "views/TextLine.h"
#include "views/TitleArea.h"
#include "views/WidgetDragRegion.h"

namespace ambrel {
namespace {

using testing::CardHarness;
using testing::q;
using testing::TestStyle;

// A menu item's title as the menu shows it.
QString shown(const QAction* action) {
    QString title = action->text();
    return title.replace(QStringLiteral("&&"), QStringLiteral("&"));
}

// Sends `widget` a mouse event of `type` at the screen point `global`.
void sendMouse(QWidget* widget, QEvent::Type type, QPoint global, Qt::MouseButton button,
               Qt::MouseButtons buttons) {
    QMouseEvent event(type, QPointF(widget->mapFromGlobal(global)), QPointF(global), button,
                      buttons, Qt::NoModifier);
    QApplication::sendEvent(widget, &event);
}

class AmbrelViewTest : public ::testing::Test {
protected:
    // Views made from now on show `displayName` as the product name, as read from a bundle.
    void useDisplayName(const std::string& displayName) {
        m_style = std::make_unique<TestStyle>(ViewFonts(), displayName);
    }

    std::unique_ptr<AmbrelView> makeView() {
        auto view = std::make_unique<AmbrelView>(
            *m_style, m_harness.monitor(), m_locale, [this] { ++m_hides; }, [this] { ++m_quits; },
            [this](QWidget* parent) { m_connectionWindowParents.push_back(parent); });
        return view;
    }
    // A view on screen with the setup sheet open over it.
    std::unique_ptr<AmbrelView> viewShowingSetup() {
        auto view = makeView();
        testing::showAndSettle(*view);
        view->showSetup();
        return view;
    }

    std::unique_ptr<TestStyle> m_style = std::make_unique<TestStyle>(ViewFonts(), " ");
    CardHarness m_harness;
    UserLocale m_locale{"en_US", "America/New_York"};
    int m_hides = 0;
    int m_quits = 0;
    std::vector<QWidget*> m_connectionWindowParents;
};

TEST_F(AmbrelViewTest, CardIsFixedAt360By170) {
    auto view = makeView();
    testing::showAndSettle(*view);
    EXPECT_EQ(view->size(), QSize(360, 170));
    EXPECT_EQ(view->minimumSize(), QSize(360, 170));
    EXPECT_EQ(view->maximumSize(), QSize(360, 170));
    const QImage twice = testing::renderWidget(*view, 2.0);
    EXPECT_EQ(twice.size(), QSize(720, 340));
}

// WCAG's relative luminance of an opaque colour.
double luminance(const QColor& colour) {
    const auto linear = [](int channel) {
        const double value = channel / 255.0;
        return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4);
    };
    return 0.2126 * linear(colour.red()) + 0.7152 * linear(colour.green()) +
           0.0722 * linear(colour.blue());
}

double contrast(const QColor& one, const QColor& other) {
    const double lighter = std::max(luminance(one), luminance(other));
    const double darker = std::min(luminance(one), luminance(other));
    return (lighter + 0.05) / (darker + 0.05);
}

// The card drawn over a desktop of `backdrop`: the glass lets it through.
QImage cardOver(AmbrelView& view, const QColor& backdrop) {
    const QImage card = testing::renderWidget(view, 1.0, testing::Background::none);
    QImage shown(card.size(), QImage::Format_RGB32);
    shown.fill(backdrop);
    QPainter painter(&shown);
    painter.drawImage(0, 0, card);
    return shown;
}

TEST_F(AmbrelViewTest, SecondaryTextKeepsFourAndAHalfToOneOverAnyDesktop) {
    m_harness.readMacBattery(54);
    for (const Look look : {Look::light, Look::dark}) {
        m_style->appearance().setForcedLook(look);
        auto view = makeView();
        testing::showAndSettle(*view);
        const TextLine* status = view->macGauge()->statusLine();
        ASSERT_FALSE(status->text().isEmpty());
        const QRect area(status->mapTo(view.get(), QPoint(0, 0)), status->size());
        for (const QColor& backdrop : {QColor(Qt::black), QColor(Qt::white)}) {
            SCOPED_TRACE(std::string(look == Look::light ? "light" : "dark") + " card over " +
                         backdrop.name().toStdString());
            const QImage shown = cardOver(*view, backdrop);
            // The line's glass is its most common colour; its text's core, the colour
            // farthest from that.
            std::map<QRgb, int> counts;
            for (int y = area.top(); y <= area.bottom(); ++y) {
                for (int x = area.left(); x <= area.right(); ++x) {
                    ++counts[shown.pixel(x, y)];
                }
            }
            const QColor glass = QColor::fromRgb(
                std::max_element(counts.begin(), counts.end(), [](const auto& a, const auto& b) {
                    return a.second < b.second;
                })->first);
            double best = 1.0;
            for (const auto& [pixel, count] : counts) {
                best = std::max(best, contrast(QColor::fromRgb(pixel), glass));
            }
            EXPECT_GE(best, 4.5) << "glass " << glass.name().toStdString();
        }
    }
}

TEST_F(AmbrelViewTest, OnlyTheGlassIsPainted) {
    auto view = makeView();
    testing::showAndSettle(*view);
    const QImage image = testing::renderWidget(*view);
    // The corners lie outside the rounded glass, and the glass is inset by 2 on every side.
    EXPECT_EQ(image.pixelColor(0, 0).alpha(), 0);
    EXPECT_EQ(image.pixelColor(359, 169).alpha(), 0);
    EXPECT_EQ(image.pixelColor(180, 0).alpha(), 0);
    EXPECT_GT(image.pixelColor(180, 3).alpha(), 100);
    EXPECT_GT(image.pixelColor(200, 160).alpha(), 100);
}

TEST_F(AmbrelViewTest, HeaderTextsTooltipsAndNames) {
    auto view = makeView();
    EXPECT_EQ(view->titleArea()->nameLine()->text(), q("Tovrin"));
    EXPECT_EQ(view->titleArea()->dragRegion()->toolTip(), q("Drag to move the widget"));
    EXPECT_EQ(view->refreshButton()->toolTip(), q("Check both batteries now"));
    EXPECT_EQ(view->refreshButton()->accessibleName(), q("Refresh both batteries"));
    EXPECT_EQ(view->refreshButton()->symbol(), q("arrow-clockwise"));
    EXPECT_EQ(view->refreshButton()->size(), QSize(20, 16));
    EXPECT_EQ(view->menuButton()->toolTip(), q("Tovrin options"));
    EXPECT_EQ(view->menuButton()->accessibleName(), q("Tovrin options"));
    EXPECT_EQ(view->menuButton()->symbol(), q("three-dots"));
    EXPECT_EQ(view->menuButton()->size(), QSize(18, 16));
}

TEST_F(AmbrelViewTest, FooterTextsTooltipsAndNames) {
    auto view = makeView();
    EXPECT_EQ(view->cadenceLine()->text(), q("Every 5 min"));
    EXPECT_EQ(view->cadenceLine()->toolTip(),
              q("Your Mac updates every minute while awake. Your iPhone is checked every five "
                "minutes, and whenever your Mac wakes."));
    EXPECT_EQ(view->helpButton()->accessibleName(), q("iPhone connection help"));
    EXPECT_EQ(view->helpButton()->symbol(), q("question-circle"));
    EXPECT_EQ(view->helpButton()->size(), QSize(18, 12));
    EXPECT_EQ(view->helpButton()->toolTip(), q("Checking for your iPhone\u2026"));
}

TEST_F(AmbrelViewTest, HelpTooltipFollowsThePhoneStatus) {
    auto view = makeView();
    m_harness.monitor().refreshPhone();
    EXPECT_EQ(view->helpButton()->toolTip(), q("Checking iPhone\u2026"));
    m_harness.failPhone(PhoneSetupState::needsPairing, "Trust this Mac on your iPhone");
    m_harness.finishPhoneRead();
    EXPECT_EQ(view->helpButton()->toolTip(), q("Trust this Mac on your iPhone"));
}

TEST_F(AmbrelViewTest, MenuItemsInOrder) {
    auto view = makeView();
    const auto actions = view->optionsMenu()->actions();
    ASSERT_EQ(actions.size(), 7);
    // The icons are drawn when the menu opens.
    EXPECT_TRUE(actions[0]->icon().isNull());
    view->optionsMenu()->popup(QPoint(0, 0));
    view->optionsMenu()->hide();
    EXPECT_EQ(shown(actions[0]), q("Refresh batteries"));
    EXPECT_FALSE(actions[0]->icon().isNull());
    EXPECT_EQ(shown(actions[1]), q("iPhone setup & connection"));
    // A lone ampersand would be taken for a shortcut mark and not shown.
    EXPECT_EQ(actions[1]->text(), q("iPhone setup && connection"));
    EXPECT_FALSE(actions[1]->icon().isNull());
    EXPECT_TRUE(actions[2]->isSeparator());
    EXPECT_EQ(shown(actions[3]), q("By Quenby"));
    EXPECT_FALSE(actions[3]->isEnabled());
    EXPECT_TRUE(actions[4]->isSeparator());
    EXPECT_EQ(shown(actions[5]), q("Hide widget"));
    EXPECT_FALSE(actions[5]->icon().isNull());
    EXPECT_EQ(shown(actions[6]), q("Quit Tovrin"));
    EXPECT_TRUE(actions[6]->icon().isNull());
}

TEST_F(AmbrelViewTest, TheHistoryItemComesAfterSetupAndTheRestKeepTheirOrder) {
    auto view = makeView();
    int opened = 0;
    view->setOpenHistory([&opened] { ++opened; });
    const auto actions = view->optionsMenu()->actions();
    ASSERT_EQ(actions.size(), 8);
    view->optionsMenu()->popup(QPoint(0, 0));
    view->optionsMenu()->hide();
    EXPECT_EQ(shown(actions[0]), q("Refresh batteries"));
    EXPECT_EQ(shown(actions[1]), q("iPhone setup & connection"));
    EXPECT_EQ(shown(actions[2]), q("Battery History…"));
    EXPECT_FALSE(actions[2]->icon().isNull());
    EXPECT_TRUE(actions[3]->isSeparator());
    EXPECT_EQ(shown(actions[4]), q("By Quenby"));
    EXPECT_EQ(shown(actions[6]), q("Hide widget"));
    EXPECT_EQ(shown(actions[7]), q("Quit Tovrin"));
    actions[2]->trigger();
    EXPECT_EQ(opened, 1);
}

TEST_F(AmbrelViewTest, DisplayNameReachesTitleMenuAndQuit) {
    useDisplayName("\tPairwise\n");
    auto view = makeView();
    EXPECT_EQ(view->titleArea()->nameLine()->text(), q("Pairwise"));
    EXPECT_EQ(view->menuButton()->toolTip(), q("Pairwise options"));
    EXPECT_EQ(shown(view->optionsMenu()->actions().last()), q("Quit Pairwise"));
}

TEST_F(AmbrelViewTest, MenuActionsCallOut) {
    auto view = makeView();
    const auto actions = view->optionsMenu()->actions();
    const int readsBefore = m_harness.macReads();
    actions[0]->trigger();
    EXPECT_EQ(m_harness.macReads(), readsBefore + 1);
    EXPECT_TRUE(m_harness.monitor().isRefreshingPhone());
    actions[5]->trigger();
    EXPECT_EQ(m_hides, 1);
    EXPECT_EQ(m_quits, 0);
    actions[6]->trigger();
    EXPECT_EQ(m_quits, 1);
    EXPECT_EQ(m_hides, 1);
}

TEST_F(AmbrelViewTest, RefreshButtonRefreshesBoth) {
    auto view = makeView();
    testing::showAndSettle(*view);
    const int readsBefore = m_harness.macReads();
    QTest::mouseClick(view->refreshButton(), Qt::LeftButton);
    EXPECT_EQ(m_harness.macReads(), readsBefore + 1);
    EXPECT_TRUE(m_harness.monitor().isRefreshingPhone());
}

TEST_F(AmbrelViewTest, SpinnerReplacesTheRefreshIconWhileThePhoneIsRead) {
    auto view = makeView();
    testing::showAndSettle(*view);
    IconButton* refresh = view->refreshButton();
    EXPECT_FALSE(refresh->isBusy());
    EXPECT_FALSE(refresh->spinner()->isVisible());
    EXPECT_FALSE(refresh->spinner()->isAnimating());
    EXPECT_TRUE(refresh->isEnabled());

    m_harness.answerPhone(64);
    m_harness.monitor().refreshAll();
    EXPECT_TRUE(refresh->isBusy());
    EXPECT_TRUE(refresh->spinner()->isVisible());
    EXPECT_TRUE(refresh->spinner()->isAnimating());
    EXPECT_FALSE(refresh->isEnabled());

    // Clicks on the busy button are ignored; the menu's refresh still works.
    const int readsBefore = m_harness.macReads();
    QTest::mouseClick(refresh, Qt::LeftButton);
    EXPECT_EQ(m_harness.macReads(), readsBefore);
    view->optionsMenu()->actions()[0]->trigger();
    EXPECT_EQ(m_harness.macReads(), readsBefore + 1);
    EXPECT_EQ(m_harness.worker().pendingJobs(), 1u);

    m_harness.finishPhoneRead();
    EXPECT_FALSE(refresh->isBusy());
    EXPECT_FALSE(refresh->spinner()->isVisible());
    EXPECT_FALSE(refresh->spinner()->isAnimating());
    EXPECT_TRUE(refresh->isEnabled());
}

TEST_F(AmbrelViewTest, SpinnerTurnsOnlyWhileBusy) {
    auto view = makeView();
    testing::showAndSettle(*view);
    m_harness.monitor().refreshPhone();
    const int phase = view->refreshButton()->spinner()->phase();
    QTest::qWait(300);
    EXPECT_NE(view->refreshButton()->spinner()->phase(), phase);
    m_harness.finishPhoneRead();
    const int stopped = view->refreshButton()->spinner()->phase();
    QTest::qWait(300);
    EXPECT_EQ(view->refreshButton()->spinner()->phase(), stopped);
}

TEST_F(AmbrelViewTest, IdleCardRunsOnlyItsThirtySecondClock) {
    auto view = makeView();
    testing::showAndSettle(*view);
    EXPECT_TRUE(view->clock().isActive());
    EXPECT_EQ(view->clock().interval(), std::chrono::seconds(30));
    EXPECT_EQ(view->clock().repeat(), TimerRepeat::repeating);
    EXPECT_FALSE(view->refreshButton()->spinner()->isAnimating());
    EXPECT_FALSE(view->helpButton()->spinner()->isAnimating());
    EXPECT_FALSE(view->menuButton()->spinner()->isAnimating());
}

TEST_F(AmbrelViewTest, AnUpdateFromTheMonitorSetsTheClocksNextTickThirtySecondsLater) {
    auto view = makeView();
    testing::showAndSettle(*view);
    ASSERT_TRUE(view->clock().isActive());
    const auto shownTick = view->clock().deadline();
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
    const auto updated = std::chrono::steady_clock::now();
    ASSERT_LT(shownTick, updated + std::chrono::seconds(30));
    m_harness.readMacBattery(64);
    m_harness.monitor().refreshMac();
    EXPECT_TRUE(view->clock().isActive());
    EXPECT_GE(view->clock().deadline(), updated + std::chrono::seconds(30));
    EXPECT_EQ(view->clock().interval(), std::chrono::seconds(30));
    EXPECT_EQ(view->clock().repeat(), TimerRepeat::repeating);
    // Hidden, an update starts no clock.
    view->hide();
    m_harness.monitor().refreshMac();
    EXPECT_FALSE(view->clock().isActive());
}

TEST_F(AmbrelViewTest, HiddenCardStopsItsClockAndCatchesUpWhenShownAgain) {
    m_harness.readMacBattery(50);
    auto view = makeView();
    EXPECT_FALSE(view->clock().isActive()) << "the clock ran before the card was shown";
    testing::showAndSettle(*view);
    EXPECT_TRUE(view->clock().isActive());

    view->hide();
    EXPECT_FALSE(view->clock().isActive());
    m_harness.scheduler().advance(24 * 3600.0);
    EXPECT_EQ(view->macGauge()->statusLine()->text(), q("Updated \u00b7 9:41\u202fAM"));

    testing::showAndSettle(*view);
    EXPECT_TRUE(view->clock().isActive());
    EXPECT_EQ(view->macGauge()->statusLine()->text(), q("Last known \u00b7 Nov 14, 9:41\u202fAM"));
}

TEST_F(AmbrelViewTest, LockedScreenStopsTheClockAndUnlockingCatchesUp) {
    m_harness.readMacBattery(50);
    auto view = makeView();
    testing::showAndSettle(*view);
    view->setScreenLocked(true);
    EXPECT_FALSE(view->clock().isActive());
    m_harness.scheduler().advance(24 * 3600.0);
    // Hidden and shown while locked (a screen that blanks, say): still no clock.
    view->hide();
    testing::showAndSettle(*view);
    EXPECT_FALSE(view->clock().isActive());

    view->setScreenLocked(false);
    EXPECT_TRUE(view->clock().isActive());
    EXPECT_EQ(view->macGauge()->statusLine()->text(), q("Last known \u00b7 Nov 14, 9:41\u202fAM"));
    // Unlocked while hidden: the clock waits for the card to be shown.
    view->setScreenLocked(true);
    view->hide();
    view->setScreenLocked(false);
    EXPECT_FALSE(view->clock().isActive());
}

// Counts the paint events of a widget and all its children.
class PaintCounter : public QObject {
public:
    explicit PaintCounter(QWidget& root) {
        root.installEventFilter(this);
        for (QWidget* child : root.findChildren<QWidget*>()) {
            child->installEventFilter(this);
        }
    }
    int count = 0;

protected:
    bool eventFilter(QObject*, QEvent* event) override {
        if (event->type() == QEvent::Paint) {
            ++count;
        }
        return false;
    }
};

TEST_F(AmbrelViewTest, ClockTickWithNothingNewPaintsNothing) {
    m_harness.readMacBattery(50);
    auto view = makeView();
    testing::showAndSettle(*view);
    QApplication::processEvents();
    PaintCounter paints(*view);
    // Half a minute on, the same day: every text and ring stays as it was.
    m_harness.scheduler().advance(30.0);
    view->syncFromMonitor();
    QApplication::processEvents();
    EXPECT_EQ(paints.count, 0) << "an unchanged card was painted again";

    // A day on, the time stamp changes: that is painted.
    m_harness.scheduler().advance(24 * 3600.0);
    view->syncFromMonitor();
    QApplication::processEvents();
    EXPECT_GT(paints.count, 0);
}

TEST_F(AmbrelViewTest, GaugesShowTheMonitorsReadings) {
    m_harness.readMacBattery(50);
    auto view = makeView();
    const auto* mac = view->macGauge();
    EXPECT_EQ(mac->titleLine()->text(), q("MacBook Pro"));
    EXPECT_EQ(mac->titleLine()->toolTip(), q("Anna\u2019s MacBook Pro"));
    EXPECT_EQ(mac->statusLine()->text(), q("Updated \u00b7 9:41\u202fAM"));
    EXPECT_EQ(mac->ring()->accessibleName(), q("Anna\u2019s MacBook Pro, 50 percent, on battery"));
    EXPECT_EQ(mac->statusLine()->toolTip(),
              q("On battery \u00b7 Mac \u00b7 Last confirmed Nov 14, 2026 at 9:41\u202fAM"));

    const auto* phone = view->phoneGauge();
    EXPECT_EQ(phone->titleLine()->text(), q("iPhone"));
    EXPECT_EQ(phone->statusLine()->text(), q("Connect your iPhone"));
    EXPECT_EQ(phone->ring()->accessibleName(), q("iPhone, battery unavailable"));
    EXPECT_EQ(phone->statusLine()->toolTip(), q("Open connection help below to pair your iPhone."));
}

TEST_F(AmbrelViewTest, PhoneGaugeFollowsTheReadCycle) {
    auto view = makeView();
    const auto* phone = view->phoneGauge();
    m_harness.answerPhone(64, "Anna\u2019s iPhone");
    m_harness.monitor().refreshPhone();
    EXPECT_EQ(phone->statusLine()->text(), q("Checking\u2026"));
    m_harness.finishPhoneRead();
    EXPECT_EQ(phone->titleLine()->text(), q("Anna\u2019s iPhone"));
    EXPECT_EQ(phone->statusLine()->text(), q("Updated \u00b7 9:41\u202fAM"));
    EXPECT_EQ(phone->statusLine()->colorRole(), ColorRole::secondary);

    m_harness.monitor().refreshPhone();
    EXPECT_EQ(phone->statusLine()->text(), q("Checking connection\u2026"));
    m_harness.failPhone(PhoneSetupState::needsPairing, "Trust this Mac on your iPhone");
    m_harness.finishPhoneRead();
    EXPECT_EQ(phone->statusLine()->text(), q("Last known \u00b7 9:41\u202fAM"));
    EXPECT_EQ(phone->statusLine()->colorRole(), ColorRole::orange);
    EXPECT_EQ(phone->ring()->face().arcColor, ColorRole::orange);
    EXPECT_EQ(phone->ring()->accessibleName(),
              q("Anna\u2019s iPhone, 64 percent, last known reading, on battery"));
}

TEST_F(AmbrelViewTest, ClockTickAgesTheTimeStamps) {
    m_harness.readMacBattery(50);
    auto view = makeView();
    EXPECT_EQ(view->macGauge()->statusLine()->text(), q("Updated \u00b7 9:41\u202fAM"));
    // A day later without any change published, only the clock brings the card up to date.
    m_harness.scheduler().advance(24 * 3600.0);
    EXPECT_EQ(view->macGauge()->statusLine()->text(), q("Updated \u00b7 9:41\u202fAM"));
    view->syncFromMonitor();
    EXPECT_EQ(view->macGauge()->statusLine()->text(), q("Last known \u00b7 Nov 14, 9:41\u202fAM"));
}

TEST_F(AmbrelViewTest, PressOnTheNameMovesTheWindow) {
    auto view = makeView();
    testing::showAndSettle(*view);
    TitleArea* title = view->titleArea();
    const QPoint onName = title->nameLine()->mapTo(view.get(), title->nameLine()->rect().center());
    // The name row lets the pointer through to the drag region beneath.
    EXPECT_EQ(view->childAt(onName), title->dragRegion());
    QSignalSpy moves(title->dragRegion(), &WidgetDragRegion::moveStarted);
    QTest::mousePress(view->windowHandle(), Qt::LeftButton, Qt::NoModifier, onName);
    QTest::mouseRelease(view->windowHandle(), Qt::LeftButton, Qt::NoModifier, onName);
    EXPECT_EQ(moves.count(), 1);

    const QPoint onMark = title->mark()->mapTo(view.get(), title->mark()->rect().center());
    QTest::mousePress(view->windowHandle(), Qt::LeftButton, Qt::NoModifier, onMark);
    QTest::mouseRelease(view->windowHandle(), Qt::LeftButton, Qt::NoModifier, onMark);
    EXPECT_EQ(moves.count(), 2);
}

TEST_F(AmbrelViewTest, ButtonsDoNotMoveTheWindow) {
    auto view = makeView();
    testing::showAndSettle(*view);
    QSignalSpy moves(view->titleArea()->dragRegion(), &WidgetDragRegion::moveStarted);
    for (QWidget* button : {static_cast<QWidget*>(view->refreshButton()),
                            static_cast<QWidget*>(view->helpButton())}) {
        const QPoint centre = button->mapTo(view.get(), button->rect().center());
        EXPECT_EQ(view->childAt(centre), button);
        QTest::mouseClick(view->windowHandle(), Qt::LeftButton, Qt::NoModifier, centre);
    }
    EXPECT_EQ(moves.count(), 0);
    // Close the sheet the help button opened.
    ASSERT_TRUE(view->isShowingSetup());
    view->setupView()->reject();
}

TEST_F(AmbrelViewTest, RightPressDoesNotMoveTheWindow) {
    auto view = makeView();
    testing::showAndSettle(*view);
    const QPoint centre = view->titleArea()->mapTo(view.get(), QPoint(40, 8));
    QSignalSpy moves(view->titleArea()->dragRegion(), &WidgetDragRegion::moveStarted);
    QTest::mousePress(view->windowHandle(), Qt::RightButton, Qt::NoModifier, centre);
    QTest::mouseRelease(view->windowHandle(), Qt::RightButton, Qt::NoModifier, centre);
    EXPECT_EQ(moves.count(), 0);
}

TEST_F(AmbrelViewTest, LongNameShrinksThenIsCutAndKeepsTheButtonsInside) {
    useDisplayName("An Exceedingly Long Battery Widget Name That Never Ends");
    auto view = makeView();
    testing::showAndSettle(*view);
    const TextLine* name = view->titleArea()->nameLine();
    EXPECT_DOUBLE_EQ(name->displayedScale(), 0.85);
    EXPECT_TRUE(name->displayedText().endsWith(QChar(0x2026)));
    EXPECT_EQ(name->height(), name->sizeHint().height());
    EXPECT_EQ(view->titleArea()->height(), 16);
    const QRect card = view->rect().adjusted(16, 12, -16, -12);
    for (const QWidget* button : {static_cast<const QWidget*>(view->refreshButton()),
                                  static_cast<const QWidget*>(view->menuButton())}) {
        const QRect placed(button->mapTo(view.get(), QPoint(0, 0)), button->size());
        EXPECT_TRUE(card.contains(placed)) << placed.x() << "," << placed.y();
        EXPECT_EQ(button->size(), button->sizeHint());
    }
    EXPECT_EQ(view->menuButton()->mapTo(view.get(), QPoint(0, 0)).x() + 18, 360 - 16);
}

TEST_F(AmbrelViewTest, DragMovesTheWindowWhenTheWindowManagerCannot) {
    auto view = makeView();
    view->move(100, 80);
    testing::showAndSettle(*view);
    WidgetDragRegion* region = view->titleArea()->dragRegion();
    const QPoint global = region->mapToGlobal(QPoint(60, 8));
    sendMouse(region, QEvent::MouseButtonPress, global, Qt::LeftButton, Qt::LeftButton);
    // The offscreen platform has no window manager to hand the move to.
    const QPoint moved = global + QPoint(30, 20);
    sendMouse(region, QEvent::MouseMove, moved, Qt::NoButton, Qt::LeftButton);
    EXPECT_EQ(view->pos(), QPoint(130, 100));
    sendMouse(region, QEvent::MouseButtonRelease, moved, Qt::LeftButton, Qt::NoButton);
    sendMouse(region, QEvent::MouseMove, moved + QPoint(50, 50), Qt::NoButton, Qt::NoButton);
    EXPECT_EQ(view->pos(), QPoint(130, 100));
}

TEST_F(AmbrelViewTest, RowsSitWhereTheCardPutsThem) {
    auto view = makeView();
    testing::showAndSettle(*view);
    auto top = [&view](const QWidget* widget) {
        return widget->mapTo(view.get(), QPoint(0, 0)).y();
    };
    EXPECT_EQ(top(view->titleArea()), 12);
    EXPECT_EQ(view->titleArea()->height(), 16);
    EXPECT_EQ(view->titleArea()->mapTo(view.get(), QPoint(0, 0)).x(), 16);
    EXPECT_EQ(top(view->macGauge()), 12 + 16 + 8);
    EXPECT_EQ(top(view->phoneGauge()), 12 + 16 + 8);
    EXPECT_EQ(top(view->helpButton()) + view->helpButton()->height(), 170 - 12);
    // The two gauges share the row equally, 16 apart.
    EXPECT_EQ(view->macGauge()->width(), view->phoneGauge()->width());
    EXPECT_EQ(
        view->phoneGauge()->mapTo(view.get(), QPoint(0, 0)).x() -
            (view->macGauge()->mapTo(view.get(), QPoint(0, 0)).x() + view->macGauge()->width()),
        16);
    // Everything in a gauge fits above the footer.
    for (const DeviceBatteryGauge* gauge : {view->macGauge(), view->phoneGauge()}) {
        const TextLine* status = gauge->statusLine();
        EXPECT_LE(top(status) + status->height(), 170 - 12 - 12 - 8);
        EXPECT_EQ(gauge->ring()->size(), QSize(68, 68));
        EXPECT_EQ(top(gauge->titleLine()), top(gauge->ring()) + 68 + 5);
    }
}

TEST_F(AmbrelViewTest, MenuButtonPullsDownTheMenu) {
    auto view = makeView();
    testing::showAndSettle(*view);
    QTest::mousePress(view->menuButton(), Qt::LeftButton);
    EXPECT_TRUE(view->optionsMenu()->isVisible());
    view->optionsMenu()->hide();
    QTest::mouseRelease(view->menuButton(), Qt::LeftButton);
}

TEST_F(AmbrelViewTest, MenuIconsAreRedrawnInANewLook) {
    m_style->appearance().setForcedLook(Look::light);
    auto view = makeView();
    QMenu* menu = view->optionsMenu();
    menu->popup(QPoint(0, 0));
    menu->hide();
    const QImage light = menu->actions()[0]->icon().pixmap(QSize(16, 16)).toImage();
    m_style->appearance().setForcedLook(Look::dark);
    menu->popup(QPoint(0, 0));
    menu->hide();
    const QImage dark = menu->actions()[0]->icon().pixmap(QSize(16, 16)).toImage();
    m_style->appearance().setForcedLook(std::nullopt);
    ASSERT_FALSE(light.isNull());
    ASSERT_FALSE(dark.isNull());
    EXPECT_NE(light, dark);
}

// The strongest contrast, against the row's own background, of any pixel in the left part of
// `action`'s row, where a box that can be ticked is drawn.
double boxContrast(QMenu& menu, QAction* action) {
    menu.popup(QPoint(0, 0));
    const QImage shown = menu.grab().toImage();
    const QRect row = menu.actionGeometry(action);
    menu.hide();
    const QColor background = shown.pixelColor(row.right() - 4, row.center().y());
    double strongest = 1.0;
    for (int y = row.top(); y <= row.bottom(); ++y) {
        for (int x = row.left(); x < row.left() + 32; ++x) {
            strongest = std::max(strongest, contrast(shown.pixelColor(x, y), background));
        }
    }
    return strongest;
}

TEST_F(AmbrelViewTest, AnEntryThatCanBeTickedShowsItsBoxInBothLooks) {
    auto view = makeView();
    QMenu* menu = view->optionsMenu();
    // A blank title: whatever stands out in the row is the box.
    QAction* unticked = menu->addAction(QStringLiteral(" "));
    unticked->setCheckable(true);
    QAction* ticked = menu->addAction(QStringLiteral(" "));
    ticked->setCheckable(true);
    ticked->setChecked(true);
    for (const Look look : {Look::light, Look::dark}) {
        SCOPED_TRACE(look == Look::light ? "light" : "dark");
        m_style->appearance().setForcedLook(look);
        // At least 3:1, as the edge of a control should be.
        EXPECT_GE(boxContrast(*menu, unticked), 3.0);
        EXPECT_GE(boxContrast(*menu, ticked), 3.0);
    }
    m_style->appearance().setForcedLook(std::nullopt);
}

TEST_F(AmbrelViewTest, LookChangeRestylesTheMenuAndTheSheet) {
    m_style->appearance().setForcedLook(Look::light);
    auto view = makeView();
    view->showSetup();
    const QColor lightMenu = view->optionsMenu()->palette().color(QPalette::Window);
    const QColor lightSheet = view->setupView()->palette().color(QPalette::Window);
    m_style->appearance().setForcedLook(Look::dark);
    EXPECT_LT(view->optionsMenu()->palette().color(QPalette::Window).lightness(),
              lightMenu.lightness());
    EXPECT_LT(view->setupView()->palette().color(QPalette::Window).lightness(),
              lightSheet.lightness());
    m_style->appearance().setForcedLook(std::nullopt);
    view->setupView()->reject();
}

TEST_F(AmbrelViewTest, LookChangeRedrawsTheGlassAndTheRings) {
    m_style->appearance().setForcedLook(Look::light);
    m_harness.readMacBattery(50);
    auto view = makeView();
    testing::showAndSettle(*view);
    const GaugeRing* ring = view->macGauge()->ring();
    // Nine o'clock is track only at 50 %.
    const QPointF trackPoint = QPointF(ring->mapTo(view.get(), QPoint(0, 0))) +
                               ring->circleCentre() - QPointF(ring->circleRadius(), 0);
    const QImage light = testing::renderWidget(*view, 2.0);
    m_style->appearance().setForcedLook(Look::dark);
    const QImage dark = testing::renderWidget(*view, 2.0);
    m_style->appearance().setForcedLook(std::nullopt);
    EXPECT_LT(testing::pixelAt(dark, QPointF(180, 150)).lightness(),
              testing::pixelAt(light, QPointF(180, 150)).lightness() - 100);
    EXPECT_LT(testing::pixelAt(dark, trackPoint).lightness(),
              testing::pixelAt(light, trackPoint).lightness() - 100);
}

TEST_F(AmbrelViewTest, SetupSheetOpensFromTheMenuAndTheHelpButton) {
    auto view = makeView();
    testing::showAndSettle(*view);
    EXPECT_FALSE(view->isShowingSetup());
    view->optionsMenu()->actions()[1]->trigger();
    ASSERT_TRUE(view->isShowingSetup());
    EXPECT_TRUE(view->setupView()->isVisible());
    EXPECT_TRUE(view->setupView()->isModal());
    QTest::mouseClick(view->setupView()->doneButton(), Qt::LeftButton);
    EXPECT_FALSE(view->isShowingSetup());

    QTest::mouseClick(view->helpButton(), Qt::LeftButton);
    ASSERT_TRUE(view->isShowingSetup());
    QTest::keyClick(view->setupView(), Qt::Key_Escape);
    EXPECT_FALSE(view->isShowingSetup());
}

TEST_F(AmbrelViewTest, OpeningTheSheetTwiceKeepsOneSheet) {
    auto view = viewShowingSetup();
    IPhoneSetupView* first = view->setupView();
    view->showSetup();
    EXPECT_EQ(view->setupView(), first);
    EXPECT_EQ(view->findChildren<IPhoneSetupView*>().size(), 1);
    first->reject();
}

TEST_F(AmbrelViewTest, CheckBatteriesThreeTimesRefreshesThreeTimesAndStaysOpen) {
    auto view = viewShowingSetup();
    IPhoneSetupView* sheet = view->setupView();
    ASSERT_NE(sheet, nullptr);
    const int readsBefore = m_harness.macReads();
    for (int press = 0; press < 3; ++press) {
        QTest::mouseClick(sheet->checkBatteriesButton(), Qt::LeftButton);
    }
    EXPECT_EQ(m_harness.macReads(), readsBefore + 3);
    EXPECT_TRUE(view->isShowingSetup());
    EXPECT_TRUE(sheet->isVisible());
    sheet->reject();
}

TEST_F(AmbrelViewTest, OpenFinderOnTheSheetOpensTheConnectionWindowOverIt) {
    auto view = viewShowingSetup();
    IPhoneSetupView* sheet = view->setupView();
    ASSERT_NE(sheet, nullptr);
    QTest::mouseClick(sheet->openFinderButton(), Qt::LeftButton);
    ASSERT_EQ(m_connectionWindowParents.size(), 1u);
    EXPECT_EQ(m_connectionWindowParents.front(), sheet);
    EXPECT_TRUE(sheet->isVisible());
    sheet->reject();
}

} // namespace
} // namespace ambrel
