#include <QApplication>
#include <cmath>
#include <gtest/gtest.h>
#include <numbers>

#include "presentation/WidgetBrand.h"
#include "tests/views/CardHarness.h"
#include "tests/views/ViewTestSupport.h"
#include "views/AmbrelView.h"
#include "views/Appearance.h"
#include "views/DeviceBatteryGauge.h"
#include "views/GaugeRing.h"
#include "views/IPhoneSetupView.h"

namespace ambrel {
namespace {

using testing::CardHarness;
using testing::lookName;

class GaugeRenderTest : public ::testing::TestWithParam<Look> {
protected:
    void SetUp() override { m_style.appearance().setForcedLook(GetParam()); }

    // The colour on the ring's circle `degrees` clockwise from twelve o'clock, in the card.
    static QColor ringColour(AmbrelView& view, const DeviceBatteryGauge& gauge, double degrees,
                             qreal devicePixelRatio = 1.0) {
        const QImage image = testing::renderWidget(view, devicePixelRatio);
        const GaugeRing* ring = gauge.ring();
        const double angle = degrees * std::numbers::pi / 180.0;
        const QPointF onCircle = ring->circleCentre() +
                                 QPointF(std::sin(angle), -std::cos(angle)) * ring->circleRadius();
        const QPointF inCard = QPointF(ring->mapTo(&view, QPoint(0, 0))) + onCircle;
        return testing::pixelAt(image, inCard);
    }

    QColor macRingAt(std::int64_t percentage, double degrees, qreal devicePixelRatio = 1.0) {
        m_harness.readMacBattery(percentage);
        AmbrelView view(m_style, m_harness.monitor(), m_harness.locale(), {}, {}, {});
        testing::showAndSettle(view);
        return ringColour(view, *view.macGauge(), degrees, devicePixelRatio);
    }

    testing::TestStyle m_style;
    CardHarness m_harness;
};

TEST_P(GaugeRenderTest, HalfChargeDrawsAGreenArcFromTwelve) {
    const QColor green = Appearance::color(ColorRole::green, GetParam());
    EXPECT_TRUE(testing::closeTo(macRingAt(50, 0.5), green, 3));
    EXPECT_TRUE(testing::closeTo(macRingAt(50, 170), green, 3));
    // The arc stops at half past: the left half is the faint track only.
    EXPECT_FALSE(testing::closeTo(macRingAt(50, 270), green, 40));
}

TEST_P(GaugeRenderTest, LowChargeIsOrangeAndVeryLowIsRed) {
    EXPECT_TRUE(
        testing::closeTo(macRingAt(15, 0.5), Appearance::color(ColorRole::orange, GetParam()), 3));
    EXPECT_TRUE(
        testing::closeTo(macRingAt(5, 0.5), Appearance::color(ColorRole::red, GetParam()), 3));
    EXPECT_TRUE(
        testing::closeTo(macRingAt(5, 0.5, 2.0), Appearance::color(ColorRole::red, GetParam()), 3));
}

TEST_P(GaugeRenderTest, NoReadingDrawsNoArc) {
    AmbrelView view(m_style, m_harness.monitor(), m_harness.locale(), {}, {}, {});
    testing::showAndSettle(view);
    ASSERT_FALSE(m_harness.monitor().mac().has_value());
    const QColor top = ringColour(view, *view.macGauge(), 0.5);
    const QColor bottom = ringColour(view, *view.macGauge(), 180);
    const QColor left = ringColour(view, *view.phoneGauge(), 270);
    EXPECT_TRUE(testing::closeTo(top, bottom, 2));
    EXPECT_TRUE(testing::closeTo(top, left, 2));
    for (const auto role : {ColorRole::green, ColorRole::orange, ColorRole::red}) {
        EXPECT_FALSE(testing::closeTo(top, Appearance::color(role, GetParam()), 40));
    }
}

TEST_P(GaugeRenderTest, DoubtfulReadingIsFaded) {
    const QColor fresh = macRingAt(95, 90);
    // Three minutes and a bit later the same reading is stale: orange at three quarters.
    m_harness.scheduler().advance(181);
    AmbrelView view(m_style, m_harness.monitor(), m_harness.locale(), {}, {}, {});
    testing::showAndSettle(view);
    const QColor stale = ringColour(view, *view.macGauge(), 90);
    const QColor orange = Appearance::color(ColorRole::orange, GetParam());
    EXPECT_FALSE(testing::closeTo(fresh, orange, 40));
    EXPECT_FALSE(testing::closeTo(stale, orange, 3));
    EXPECT_TRUE(testing::closeTo(stale, orange, 60));
    EXPECT_EQ(view.macGauge()->ring()->face().arcOpacity, 0.75);
}

INSTANTIATE_TEST_SUITE_P(BothLooks, GaugeRenderTest, ::testing::Values(Look::light, Look::dark),
                         lookName);

} // namespace
} // namespace ambrel
