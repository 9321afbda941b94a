#include "views/BatteryHistoryWindow.h"

#include <QAction>
#include <QLabel>
#include <QMenu>
#include <QPushButton>
#include <QTest>
#include <gtest/gtest.h>

#include "monitor/BatteryMonitor.h"
#include "tests/views/CardHarness.h"
#include "tests/views/ViewTestSupport.h"
#include "views/HistoryChart.h"

namespace ambrel {
namespace {

using testing::q;

const Date kHistoryNow = Date::fromSecondsSince1970(1795000000.0);

HistoryRow historyAt(const char* device, double hoursAgo, int percentage, bool charging) {
    return HistoryRow{
        kHistoryNow.addingSeconds(-hoursAgo * 3600.0), device, percentage, charging, charging, ""};
}

// The computer every minute over the last 24 hours with a three-hour hole in the middle (it
// slept) and charging for the last two hours; the phone every five minutes over the last hour.
HistoryWindowData sampleData() {
    HistoryWindowData data;
    data.now = kHistoryNow;
    for (int minute = 24 * 60; minute >= 0; --minute) {
        const double hours = minute / 60.0;
        if (hours < 14.0 && hours > 11.0) {
            continue;
        }
        const bool charging = hours <= 2.0;
        const int level = charging ? 40 + static_cast<int>((2.0 - hours) * 25)
                                   : 100 - static_cast<int>((24.0 - hours) * 2.5);
        data.mac.push_back(historyAt("mac", hours, level, charging));
    }
    for (int step = 12; step >= 0; --step) {
        data.phone.push_back(historyAt("iphone", step / 12.0, 60 - (12 - step), false));
    }
    data.macHealth = BatteryHealth{87, 412, std::nullopt};
    data.phoneHealth = BatteryHealth{std::nullopt, 318, 29.5};
    data.macTimeLeft = BatteryTimeLeft{35, std::nullopt};
    data.phoneName = "Ada\u2019s iPhone";
    return data;
}

class BatteryHistoryWindowTest : public ::testing::TestWithParam<Look> {
protected:
    BatteryHistoryWindowTest() { m_style.appearance().setForcedLook(GetParam()); }

    static QLabel* labelWith(const QWidget& window, const QString& text) {
        for (auto* label : window.findChildren<QLabel*>()) {
            if (label->text() == text && label->isVisible()) {
                return label;
            }
        }
        return nullptr;
    }

    testing::TestStyle m_style;
};

TEST_P(BatteryHistoryWindowTest, ChartsHealthAndTimeLeftForBothBatteries) {
    BatteryHistoryWindow window(m_style);
    window.setData(sampleData());
    testing::showAndSettle(window);
    EXPECT_EQ(window.windowTitle(), q("Battery History"));
    EXPECT_NE(labelWith(window, q("This computer")), nullptr);
    EXPECT_NE(labelWith(window, q("Ada\u2019s iPhone")), nullptr);
    EXPECT_NE(labelWith(window, q("Maximum capacity 87 % \u00b7 412 cycles")), nullptr);
    EXPECT_NE(labelWith(window, q("318 cycles")), nullptr);
    // The computer's from the kernel's rate; the phone's from its readings: 12 points in an
    // hour, 48 to go.
    EXPECT_NE(labelWith(window, q("About 35 min to full")), nullptr);
    EXPECT_NE(labelWith(window, q("About 4 h to empty")), nullptr);

    // The sleep leaves a gap: two runs, and no line drawn across it.
    EXPECT_EQ(window.computerChart()->summary().runs.size(), 2u);
    EXPECT_EQ(window.computerChart()->summary().charges, 1);
    EXPECT_EQ(window.computerChart()->accessibleName(),
              q("This computer, last 24 hours, from 100 % to 90 %, charged once"));
    EXPECT_EQ(window.phoneChart()->accessibleName(),
              q("Ada\u2019s iPhone, last 24 hours, from 60 % to 48 %, not charged"));

    const QImage image = testing::renderWidget(*window.computerChart());
    const QColor line = Appearance::color(ColorRole::green, GetParam());
    const auto columnHasLine = [&](double hoursAgo) {
        const double share = 1.0 - hoursAgo / 24.0;
        // The plot starts 34 px in and ends 6 px before the right edge.
        const double x = 34.0 + share * (window.computerChart()->width() - 40.0);
        for (int y = 4; y < window.computerChart()->height() - 16; ++y) {
            if (testing::closeTo(testing::pixelAt(image, QPointF(x, y)), line, 40)) {
                return true;
            }
        }
        return false;
    };
    EXPECT_TRUE(columnHasLine(16.0));
    EXPECT_FALSE(columnHasLine(12.5)) << "a line was drawn across the gap";
    EXPECT_TRUE(columnHasLine(8.0));
    // The charging span is shaded, a span on battery is not.
    const auto shaded = [&](double hoursAgo) {
        const double x = 34.0 + (1.0 - hoursAgo / 24.0) * (window.computerChart()->width() - 40.0);
        const QColor pixel = testing::pixelAt(image, QPointF(x, 12));
        return pixel.green() > pixel.red() + 8;
    };
    EXPECT_TRUE(shaded(1.0));
    EXPECT_FALSE(shaded(6.0));
}

TEST_P(BatteryHistoryWindowTest, TheSpanSwitchTheKeyboardAndNoHistory) {
    BatteryHistoryWindow window(m_style);
    window.setData(sampleData());
    testing::showAndSettle(window);
    auto buttons = window.findChildren<QPushButton*>();
    ASSERT_EQ(buttons.size(), 2);
    EXPECT_EQ(buttons[0]->text(), q("24 hours"));
    EXPECT_EQ(buttons[1]->text(), q("10 days"));
    QTest::mouseClick(buttons[1], Qt::LeftButton);
    EXPECT_EQ(window.span(), BatteryHistoryWindow::Span::tenDays);
    EXPECT_TRUE(
        window.computerChart()->accessibleName().startsWith(q("This computer, last 10 days")));
    // Tab order: the switch, then each chart.
    const auto nextTabStop = [](QWidget* widget) {
        QWidget* next = widget->nextInFocusChain();
        while (next != widget && !((next->focusPolicy() & Qt::TabFocus) && next->isVisible())) {
            next = next->nextInFocusChain();
        }
        return next;
    };
    EXPECT_EQ(nextTabStop(buttons[0]), buttons[1]);
    EXPECT_EQ(nextTabStop(buttons[1]), window.computerChart());
    EXPECT_EQ(nextTabStop(window.computerChart()), window.phoneChart());
    // A new reading is drawn at once.
    window.addRow(HistoryRow{kHistoryNow.addingSeconds(60), "iphone", 47, false, false, "USB"});
    EXPECT_TRUE(window.phoneChart()->accessibleName().contains(q("to 47 %")));
    // Escape closes.
    QTest::keyClick(&window, Qt::Key_Escape);
    EXPECT_FALSE(window.isVisible());

    HistoryWindowData none;
    none.now = kHistoryNow;
    none.status = "No battery history yet: Tovrin records it while the card runs.";
    window.setData(none);
    testing::showAndSettle(window);
    EXPECT_NE(labelWith(window, q(none.status.c_str())), nullptr);
    EXPECT_EQ(window.phoneChart()->accessibleName(), q("iPhone, last 10 days, no readings"));
}

INSTANTIATE_TEST_SUITE_P(Looks, BatteryHistoryWindowTest,
                         ::testing::Values(Look::light, Look::dark), testing::lookName);

} // namespace
} // namespace ambrel
