// The middle of the ring and the card's lines at their extremes: every percentage the gauge can
// show, with and without a power symbol, in the UI fonts of the big desktops and at fractional
// pixel ratios. The geometry checked is the one the ring paints with.
#include <QFontInfo>
#include <QImage>
#include <algorithm>
#include <cmath>
#include <gtest/gtest.h>
#include <iostream>
#include <sstream>
#include <tuple>

#include "presentation/DeviceBatteryGaugeModel.h"
#include "presentation/UserLocale.h"
#include "presentation/WidgetBrand.h"
#include "tests/views/CardHarness.h"
#include "tests/views/ViewTestSupport.h"
#include "views/AmbrelView.h"
#include "views/DeviceBatteryGauge.h"
#include "views/GaugeCentreLayout.h"
#include "views/GaugeRing.h"
#include "views/TextLine.h"
#include "views/TitleArea.h"
#include "views/ViewFonts.h"

namespace ambrel {
namespace {

// The UI fonts of Debian's desktops: DejaVu Sans (the default everywhere else), Noto Sans
// (KDE) and Cantarell (GNOME).
const char* const kFamilies[] = {"DejaVu Sans", "Noto Sans", "Cantarell"};
constexpr qreal kRatios[] = {1.0, 1.25, 1.5, 2.0};
// Qt may hint or not depending on the desktop and the scale: both are checked.
constexpr QFont::HintingPreference kHintings[] = {QFont::PreferDefaultHinting,
                                                  QFont::PreferNoHinting};

enum class Power { none, pluggedIn, charging };

const Date kNow = Date::fromSecondsSince1970(1'800'000'000);

DeviceBatteryGaugeModel modelFor(BatteryDeviceKind kind, std::optional<std::int64_t> percentage,
                                 Power power, const UserLocale& locale) {
    std::optional<BatteryDeviceSnapshot> snapshot;
    if (percentage) {
        snapshot = BatteryDeviceSnapshot(kind == BatteryDeviceKind::mac ? "mac" : "iphone",
                                         "Device", *percentage, power == Power::charging,
                                         power != Power::none, kNow, "Internal", std::nullopt);
    }
    return DeviceBatteryGaugeModel(snapshot, kind, false, false, kNow, locale);
}

// Every face the ring can show for readings from -5 % to 120 %, and without a reading.
std::vector<DeviceBatteryGaugeModel> everyReading(const UserLocale& locale) {
    std::vector<DeviceBatteryGaugeModel> models;
    for (const auto kind : {BatteryDeviceKind::mac, BatteryDeviceKind::phone}) {
        models.push_back(modelFor(kind, std::nullopt, Power::none, locale));
        for (std::int64_t percentage = -5; percentage <= 120; ++percentage) {
            for (const auto power : {Power::none, Power::pluggedIn, Power::charging}) {
                models.push_back(modelFor(kind, percentage, power, locale));
            }
        }
    }
    return models;
}

std::string describe(const GaugeRing::Face& face) {
    std::ostringstream text;
    text << face.number.toStdString() << (face.showsPercentSign ? " %" : "")
         << (face.powerSymbol ? " + power symbol" : "");
    return text.str();
}

std::string familyName(const ::testing::TestParamInfo<const char*>& family) {
    std::string name = family.param;
    name.erase(std::remove(name.begin(), name.end(), ' '), name.end());
    return name;
}

using FitCase = std::tuple<const char*, qreal, QFont::HintingPreference>;

std::string fitCaseName(const ::testing::TestParamInfo<FitCase>& info) {
    std::string name = std::get<0>(info.param);
    name.erase(std::remove(name.begin(), name.end(), ' '), name.end());
    name += "_x" + std::to_string(static_cast<int>(std::lround(std::get<1>(info.param) * 100)));
    name += std::get<2>(info.param) == QFont::PreferNoHinting ? "_unhinted" : "_hinted";
    return name;
}

class GaugeFitTest : public ::testing::TestWithParam<FitCase> {
protected:
    void SetUp() override {
        // The font asked for is the one drawn: a missing family would silently check another.
        ASSERT_EQ(QFontInfo(m_style.style().fonts.system(16, QFont::DemiBold)).family(),
                  QString::fromLatin1(family()));
    }

    static const char* family() { return std::get<0>(GetParam()); }
    static qreal ratio() { return std::get<1>(GetParam()); }

    // A drawing surface like the one the ring paints into at this pixel ratio.
    static QImage surface() {
        const int side = GaugeRing::kRingSize + 2 * GaugeRing::kPadding;
        QImage image(QSize(side, side) * ratio(), QImage::Format_ARGB32_Premultiplied);
        image.setDevicePixelRatio(ratio());
        return image;
    }

    testing::TestStyle m_style{ViewFonts(QString::fromLatin1(family()), std::get<2>(GetParam()))};
    UserLocale m_locale{"en_US", "UTC"};
};

TEST_P(GaugeFitTest, CentreClearsTheStrokeForEveryReading) {
    GaugeRing ring(m_style);
    QImage image = surface();
    const qreal inner = ring.circleRadius() - GaugeRing::kLineWidth / 2.0;
    const qreal limit = inner - GaugeCentreLayout::kClearance;
    qreal smallestScale = 1.0;
    std::string smallestFace;
    for (const auto& model : everyReading(m_locale)) {
        ring.setModel(model);
        const GaugeCentreLayout layout = ring.centreLayout(&image);
        SCOPED_TRACE(describe(ring.face()));
        EXPECT_LE(GaugeCentreLayout::farthestCorner(layout.rowBounds, ring.circleCentre()), limit);
        EXPECT_LE(GaugeCentreLayout::farthestCorner(layout.deviceSymbol, ring.circleCentre()),
                  limit);
        // The row sits below the icon, never on it.
        EXPECT_GE(layout.rowBounds.top(), layout.deviceSymbol.bottom());
        EXPECT_GE(layout.rowScale, GaugeCentreLayout::kMinimumRowScale);
        if (layout.rowScale < smallestScale) {
            smallestScale = layout.rowScale;
            smallestFace = describe(ring.face());
        }
    }
    std::cout << family() << " at x" << ratio() << ": smallest row scale " << smallestScale
              << (smallestFace.empty() ? "" : " for " + smallestFace) << '\n';
    RecordProperty("smallestRowScale", std::to_string(smallestScale));
}

TEST_P(GaugeFitTest, CommonReadingsKeepTheirStatedSizes) {
    GaugeRing ring(m_style);
    QImage image = surface();
    for (const std::int64_t percentage : {-5, 0, 8, 54, 87, 99}) {
        for (const auto power : {Power::none, Power::pluggedIn, Power::charging}) {
            ring.setModel(modelFor(BatteryDeviceKind::phone, percentage, power, m_locale));
            SCOPED_TRACE(describe(ring.face()));
            EXPECT_EQ(ring.centreLayout(&image).rowScale, 1.0);
        }
    }
}

// What the ring paints for its row lies within the bounds the layout gives (within the
// antialiasing of one device pixel): the pixels that change when the row is added.
TEST_P(GaugeFitTest, PaintedRowStaysWithinItsBounds) {
    m_style.appearance().setForcedLook(Look::light);
    for (const std::int64_t percentage : {-5, 100, 120}) {
        GaugeRing withRow(m_style);
        withRow.setModel(modelFor(BatteryDeviceKind::mac, percentage, Power::charging, m_locale));
        GaugeRing withoutRow(m_style);
        GaugeRing::Face bare = withRow.face();
        bare.number.clear();
        bare.showsPercentSign = false;
        bare.powerSymbol.reset();
        withoutRow.setFace(bare);
        const QImage drawn = testing::renderWidget(withRow, ratio(), testing::Background::none);
        const QImage bareDrawn =
            testing::renderWidget(withoutRow, ratio(), testing::Background::none);
        QImage image = surface();
        // Antialiasing and hinting at the drawn size may reach a pixel past the outlines.
        const QRectF allowed =
            withRow.centreLayout(&image).rowBounds.adjusted(-1.0, -1.0, 1.0, 1.0);
        int changed = 0;
        int outside = 0;
        qreal farthest = 0.0;
        for (int y = 0; y < drawn.height(); ++y) {
            for (int x = 0; x < drawn.width(); ++x) {
                if (drawn.pixel(x, y) == bareDrawn.pixel(x, y)) {
                    continue;
                }
                ++changed;
                const QPointF pixelCentre((x + 0.5) / ratio(), (y + 0.5) / ratio());
                if (!allowed.contains(pixelCentre)) {
                    ++outside;
                }
                // Even there, a gap is left before the stroke's inner edge.
                const QPointF fromCentre = pixelCentre - withRow.circleCentre();
                farthest = std::max(farthest, std::hypot(fromCentre.x(), fromCentre.y()));
            }
        }
        SCOPED_TRACE(percentage);
        EXPECT_GT(changed, 20);
        EXPECT_EQ(outside, 0);
        EXPECT_LT(farthest, withRow.circleRadius() - GaugeRing::kLineWidth / 2.0 - 0.5);
    }
}

INSTANTIATE_TEST_SUITE_P(DesktopFonts, GaugeFitTest,
                         ::testing::Combine(::testing::ValuesIn(kFamilies),
                                            ::testing::ValuesIn(kRatios),
                                            ::testing::ValuesIn(kHintings)),
                         fitCaseName);

// The card's lines in the same fonts with the longest texts of a full, charging battery: the
// titles and statuses are cut within their gauge, the product name shrinks no further than
// 85 % before it is cut, and nothing runs past the card.
class CardLinesFitTest : public ::testing::TestWithParam<const char*> {
protected:
    testing::TestStyle m_style{ViewFonts(QString::fromLatin1(GetParam())),
                               "Tovrin Battery Companion for Linux Desktops"};
    testing::CardHarness m_harness;
};

void expectFits(const TextLine& line, const QWidget& card) {
    SCOPED_TRACE(line.objectName().toStdString() + ": " + line.text().toStdString());
    const QFontMetricsF metrics(line.font());
    const qreal drawnWidth =
        metrics.horizontalAdvance(line.displayedText()) * line.displayedScale();
    EXPECT_LE(drawnWidth, line.width());
    const QRect inCard(line.mapTo(&card, QPoint(0, 0)), line.size());
    EXPECT_TRUE(card.rect().contains(inCard));
    // Capitals and descenders at the drawn scale fit in the line's height.
    EXPECT_LE(metrics.tightBoundingRect(QStringLiteral("Hg")).height() * line.displayedScale(),
              line.height());
}

TEST_P(CardLinesFitTest, LinesStayInsideTheCard) {
    m_harness.setMacBattery(100, true, true);
    m_harness.host().name = "Anna\u2019s workstation in the study, the one by the window";
    m_harness.monitor().refreshMac();
    m_harness.answerPhone(100, "Anna\u2019s iPhone with a very long name indeed");
    m_harness.readPhoneNow();
    AmbrelView view(m_style, m_harness.monitor(), m_harness.locale(), {}, {}, {});
    testing::showAndSettle(view);
    ASSERT_EQ(QFontInfo(view.titleArea()->nameLine()->font()).family(),
              QString::fromLatin1(GetParam()));

    const TextLine& name = *view.titleArea()->nameLine();
    expectFits(name, view);
    EXPECT_GE(name.displayedScale(), 0.85);
    for (const DeviceBatteryGauge* gauge : {view.macGauge(), view.phoneGauge()}) {
        expectFits(*gauge->titleLine(), view);
        expectFits(*gauge->statusLine(), view);
        // The lines stack under the ring, above the footer.
        const int statusBottom =
            gauge->statusLine()->mapTo(&view, QPoint(0, 0)).y() + gauge->statusLine()->height();
        EXPECT_LE(statusBottom, view.cadenceLine()->mapTo(&view, QPoint(0, 0)).y());
        const int ringBottom =
            gauge->ring()->mapTo(&view, QPoint(0, 0)).y() + gauge->ring()->height();
        EXPECT_EQ(gauge->titleLine()->mapTo(&view, QPoint(0, 0)).y(), ringBottom + 5);
    }
}

INSTANTIATE_TEST_SUITE_P(DesktopFonts, CardLinesFitTest, ::testing::ValuesIn(kFamilies),
                         familyName);

} // namespace
} // namespace ambrel
