#include <QFontMetricsF>
#include <QGuiApplication>
#include <QSignalSpy>
#include <gtest/gtest.h>

#include "tests/views/ViewTestSupport.h"
#include "views/Appearance.h"
#include "views/PairedCellMark.h"
#include "views/SymbolIcons.h"
#include "views/TextLine.h"
#include "views/ViewFonts.h"

namespace ambrel {
namespace {

class WidgetPiecesTest : public ::testing::Test {
protected:
    testing::TestStyle m_style;
    ViewFonts m_fonts;
};

TEST_F(WidgetPiecesTest, TextThatFitsIsDrawnWhole) {
    TextLine line(m_style.appearance(), m_fonts.system(13, QFont::DemiBold), ColorRole::primary,
                  TextLine::Fit::shrinkThenElideEnd, Qt::AlignLeft);
    line.setText(QStringLiteral("Tovrin"));
    line.resize(line.naturalWidth() + 4, line.sizeHint().height());
    EXPECT_EQ(line.displayedText(), QStringLiteral("Tovrin"));
    EXPECT_DOUBLE_EQ(line.displayedScale(), 1.0);
    EXPECT_EQ(line.accessibleName(), QStringLiteral("Tovrin"));
}

TEST_F(WidgetPiecesTest, SlightlyLongTextShrinksWithoutBeingCut) {
    TextLine line(m_style.appearance(), m_fonts.system(13, QFont::DemiBold), ColorRole::primary,
                  TextLine::Fit::shrinkThenElideEnd, Qt::AlignLeft);
    line.setText(QStringLiteral("Battery Pair Widget"));
    const int natural = line.naturalWidth();
    line.resize(static_cast<int>(natural * 0.92), line.sizeHint().height());
    EXPECT_EQ(line.displayedText(), QStringLiteral("Battery Pair Widget"));
    EXPECT_LT(line.displayedScale(), 1.0);
    EXPECT_GE(line.displayedScale(), 0.85);
}

TEST_F(WidgetPiecesTest, TooLongTextShrinksTo85PercentThenIsCut) {
    TextLine line(m_style.appearance(), m_fonts.system(13, QFont::DemiBold), ColorRole::primary,
                  TextLine::Fit::shrinkThenElideEnd, Qt::AlignLeft);
    line.setText(QStringLiteral("Battery Pair Widget"));
    line.resize(line.naturalWidth() / 2, line.sizeHint().height());
    EXPECT_DOUBLE_EQ(line.displayedScale(), 0.85);
    EXPECT_TRUE(line.displayedText().endsWith(QChar(0x2026)));
    const QFontMetricsF metrics(line.font());
    EXPECT_LE(metrics.horizontalAdvance(line.displayedText()) * 0.85, line.width());
}

TEST_F(WidgetPiecesTest, MiddleElisionKeepsBothEnds) {
    TextLine line(m_style.appearance(), m_fonts.system(11, QFont::Medium), ColorRole::primary,
                  TextLine::Fit::elideMiddle, Qt::AlignHCenter);
    line.setText(QStringLiteral("Anna's very long iPhone name for testing"));
    line.resize(line.naturalWidth() / 2, line.sizeHint().height());
    const QString shown = line.displayedText();
    EXPECT_TRUE(shown.startsWith(QStringLiteral("Anna")));
    EXPECT_TRUE(shown.endsWith(QStringLiteral("testing")));
    EXPECT_TRUE(shown.contains(QChar(0x2026)));
}

TEST_F(WidgetPiecesTest, PairedMarkIsSixteenSquareWithOutlinedAndFilledPills) {
    PairedCellMark mark;
    EXPECT_EQ(mark.size(), QSize(16, 16));
    EXPECT_EQ(mark.minimumSize(), QSize(16, 16));
    EXPECT_EQ(mark.maximumSize(), QSize(16, 16));
    const QImage image = testing::renderWidget(mark, 4.0, testing::Background::none);
    const QColor accent = Appearance::accent();
    // The filled pill sits right and lower: its centre is painted in the accent colour.
    const QColor filled = testing::pixelAt(image, QPointF(11.8, 9.1));
    EXPECT_EQ(filled.alpha(), 255);
    EXPECT_TRUE(testing::closeTo(filled, accent, 2));
    // The outlined pill sits left and higher: its centre is empty, its rim painted.
    EXPECT_EQ(testing::pixelAt(image, QPointF(4.2, 6.9)).alpha(), 0);
    int rim = 0;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width() / 2; ++x) {
            rim += image.pixelColor(x, y).alpha() > 200 ? 1 : 0;
        }
    }
    EXPECT_GT(rim, 50);
    // Tilted clockwise: the filled pill's top reaches further right than its bottom.
    const QColor topRight = testing::pixelAt(image, QPointF(13.6, 4.0));
    const QColor bottomRight = testing::pixelAt(image, QPointF(13.6, 14.0));
    EXPECT_GT(topRight.alpha(), bottomRight.alpha());
}

TEST_F(WidgetPiecesTest, ForcedLookWinsOverTheDesktopsAndThePalettes) {
    Appearance& appearance = m_style.appearance();
    EXPECT_EQ(appearance.look(), Appearance::lookFromPalette(QGuiApplication::palette()));
    QSignalSpy changes(&appearance, &Appearance::lookChanged);
    const Look other = appearance.look() == Look::light ? Look::dark : Look::light;
    appearance.setSystemLook(other);
    EXPECT_EQ(appearance.look(), other);
    EXPECT_EQ(changes.count(), 1);
    appearance.setForcedLook(Look::light);
    appearance.setSystemLook(Look::dark);
    EXPECT_EQ(appearance.look(), Look::light);
    appearance.setForcedLook(Look::dark);
    EXPECT_EQ(appearance.look(), Look::dark);
    appearance.setForcedLook(std::nullopt);
    EXPECT_EQ(appearance.look(), Look::dark);
}

TEST_F(WidgetPiecesTest, LookFromPaletteFollowsTheWindowColour) {
    QPalette dark;
    dark.setColor(QPalette::Window, QColor(30, 30, 30));
    EXPECT_EQ(Appearance::lookFromPalette(dark), Look::dark);
    QPalette light;
    light.setColor(QPalette::Window, QColor(239, 239, 239));
    EXPECT_EQ(Appearance::lookFromPalette(light), Look::light);
}

TEST_F(WidgetPiecesTest, LooksHaveTheirOwnColours) {
    EXPECT_EQ(Appearance::color(ColorRole::green, Look::light), QColor(0x34, 0xC7, 0x59));
    EXPECT_EQ(Appearance::color(ColorRole::green, Look::dark), QColor(0x30, 0xD1, 0x58));
    EXPECT_EQ(Appearance::color(ColorRole::orange, Look::light), QColor(0xFF, 0x95, 0x00));
    EXPECT_EQ(Appearance::color(ColorRole::red, Look::dark), QColor(0xFF, 0x45, 0x3A));
    EXPECT_LT(Appearance::color(ColorRole::primary, Look::light).lightness(), 60);
    EXPECT_GT(Appearance::color(ColorRole::primary, Look::dark).lightness(), 200);
    EXPECT_LT(Appearance::glassFill(Look::dark).lightness(),
              Appearance::glassFill(Look::light).lightness());
    EXPECT_LT(Appearance::glassFill(Look::light).alpha(), 255);
}

TEST_F(WidgetPiecesTest, EveryIconIsBuiltIn) {
    for (const char* name :
         {"arrow-clockwise", "eye-slash", "laptop", "lightning-charge-fill", "phone",
          "phone-vibrate", "plug-fill", "question-circle", "three-dots"}) {
        const QPixmap icon =
            SymbolIcons::tinted(QString::fromUtf8(name), 16, QColor(255, 0, 0), 2.0);
        ASSERT_FALSE(icon.isNull()) << name;
        EXPECT_EQ(icon.size(), QSize(32, 32)) << name;
        const QImage image = icon.toImage();
        int painted = 0;
        for (int y = 0; y < image.height(); ++y) {
            for (int x = 0; x < image.width(); ++x) {
                const QColor pixel = image.pixelColor(x, y);
                if (pixel.alpha() > 128) {
                    ++painted;
                    EXPECT_EQ(pixel.red(), 255);
                    EXPECT_EQ(pixel.green(), 0);
                }
            }
        }
        EXPECT_GT(painted, 10) << name;
    }
    EXPECT_TRUE(SymbolIcons::tinted(QStringLiteral("no-such-icon"), 16, Qt::red, 1).isNull());
}

} // namespace
} // namespace ambrel
