// Pictures of the card and the sheet in both looks, written to <build>/test-artifacts for a
// person to look at. Each picture is checked for its size and for being written.
#include <QApplication>
#include <QDir>
#include <QLinearGradient>
#include <QMenu>
#include <QPainter>
#include <gtest/gtest.h>

#include "presentation/UserLocale.h"
#include "presentation/WidgetBrand.h"
#include "tests/views/CardHarness.h"
#include "tests/views/ViewTestSupport.h"
#include "views/AmbrelView.h"
#include "views/Appearance.h"
#include "views/IPhoneSetupView.h"

namespace ambrel {
namespace {

using testing::CardHarness;
using testing::lookName;

QString artifactFolder() {
    const QString folder = QString::fromUtf8(TOVRIN_BINARY_DIR) + QStringLiteral("/test-artifacts");
    QDir().mkpath(folder);
    return folder;
}

// The card over a two-colour backdrop, as it would sit on a wallpaper.
QImage onBackdrop(const QImage& card) {
    QImage result(card.size(), QImage::Format_ARGB32_Premultiplied);
    result.setDevicePixelRatio(card.devicePixelRatio());
    QPainter painter(&result);
    QLinearGradient gradient(0, 0, card.width(), card.height());
    gradient.setColorAt(0, QColor(70, 110, 160));
    gradient.setColorAt(1, QColor(190, 120, 90));
    painter.fillRect(QRectF(QPointF(0, 0), card.deviceIndependentSize()), gradient);
    painter.drawImage(QPointF(0, 0), card);
    return result;
}

class CardArtifactsTest : public ::testing::TestWithParam<Look> {
protected:
    void SetUp() override { m_style.appearance().setForcedLook(GetParam()); }

    QString lookName() const {
        return GetParam() == Look::light ? QStringLiteral("light") : QStringLiteral("dark");
    }

    void saveCard(const QString& state) {
        AmbrelView view(m_style, m_harness.monitor(), m_locale, {}, {}, {});
        testing::showAndSettle(view);
        const QImage card = testing::renderWidget(view, 2.0);
        ASSERT_EQ(card.size(), QSize(720, 340));
        const QString base =
            artifactFolder() + QStringLiteral("/card-") + state + QLatin1Char('-') + lookName();
        EXPECT_TRUE(card.save(base + QStringLiteral(".png")));
        EXPECT_TRUE(onBackdrop(card).save(base + QStringLiteral("-backdrop.png")));
        const QImage single = testing::renderWidget(view, 1.0);
        ASSERT_EQ(single.size(), QSize(360, 170));
        EXPECT_TRUE(onBackdrop(single).save(base + QStringLiteral("-backdrop-1x.png")));
    }

    testing::TestStyle m_style;
    CardHarness m_harness;
    UserLocale m_locale{"en_US", "America/New_York"};
};

TEST_P(CardArtifactsTest, CardWithoutReadings) {
    saveCard(QStringLiteral("empty"));
}

TEST_P(CardArtifactsTest, CardWithGoodReadings) {
    m_harness.readMacBattery(82, true, true);
    m_harness.answerPhone(64, "Anna\u2019s iPhone");
    m_harness.readPhoneNow();
    saveCard(QStringLiteral("good"));
}

TEST_P(CardArtifactsTest, CardWithStaleAndFailedReadings) {
    m_harness.readMacBattery(8, true, true);
    m_harness.answerPhone(17, "Anna\u2019s iPhone");
    m_harness.readPhoneNow();
    m_harness.scheduler().shiftClock(24 * 3600.0);
    m_harness.failPhone(PhoneSetupState::notFound, "iPhone not found");
    m_harness.readPhoneNow();
    saveCard(QStringLiteral("stale"));
}

TEST_P(CardArtifactsTest, OptionsMenu) {
    AmbrelView view(m_style, m_harness.monitor(), m_harness.locale(), {}, {}, {});
    testing::showAndSettle(view);
    QMenu* menu = view.optionsMenu();
    menu->popup(QPoint(0, 0));
    QApplication::processEvents();
    const QImage image = testing::renderWidget(*menu, 2.0);
    EXPECT_FALSE(image.isNull());
    EXPECT_TRUE(image.save(artifactFolder() + QStringLiteral("/menu-") + lookName() +
                           QStringLiteral(".png")));
    menu->hide();
}

TEST_P(CardArtifactsTest, SetupSheet) {
    IPhoneSetupView sheet(m_style, [] {}, {});
    testing::showAndSettle(sheet);
    const QImage image = testing::renderWidget(sheet, 2.0);
    EXPECT_EQ(image.width(), 920);
    EXPECT_TRUE(image.save(artifactFolder() + QStringLiteral("/sheet-") + lookName() +
                           QStringLiteral(".png")));
    sheet.reject();
}

INSTANTIATE_TEST_SUITE_P(BothLooks, CardArtifactsTest, ::testing::Values(Look::light, Look::dark),
                         lookName);

} // namespace
} // namespace ambrel
