#include "shell/PairedCellIcon.h"

#include <gtest/gtest.h>

#include "tests/app/OffscreenApplication.h"

namespace ambrel {
namespace {

struct Coverage {
    int opaque = 0;
    double centreX = 0;
    double centreY = 0;
};

// Pixels of the mark in the left and the right half of the image.
std::pair<Coverage, Coverage> halves(const QImage& image) {
    Coverage left;
    Coverage right;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            if (qAlpha(image.pixel(x, y)) < 128) {
                continue;
            }
            auto& side = x < image.width() / 2 ? left : right;
            ++side.opaque;
            side.centreX += x;
            side.centreY += y;
        }
    }
    for (auto* side : {&left, &right}) {
        if (side->opaque > 0) {
            side->centreX /= side->opaque;
            side->centreY /= side->opaque;
        }
    }
    return {left, right};
}

TEST(PairedCellIconTest, ImageIs18PointsAtTheGivenRatio) {
    const QImage one = PairedCellIcon::draw(Qt::black, 1.0);
    EXPECT_EQ(one.size(), QSize(18, 18));
    const QImage two = PairedCellIcon::draw(Qt::black, 2.0);
    EXPECT_EQ(two.size(), QSize(36, 36));
    EXPECT_DOUBLE_EQ(two.devicePixelRatio(), 2.0);
}

TEST(PairedCellIconTest, RightCellIsSolidLeftCellIsAnOutline) {
    const auto [left, right] = halves(PairedCellIcon::draw(Qt::black, 4.0));
    ASSERT_GT(left.opaque, 0);
    ASSERT_GT(right.opaque, 0);
    // The outline is hollow: its centre is clear; the solid cell's centre is covered.
    const QImage image = PairedCellIcon::draw(Qt::black, 4.0);
    EXPECT_EQ(qAlpha(image.pixel(qRound(left.centreX), qRound(left.centreY))), 0);
    EXPECT_GT(qAlpha(image.pixel(qRound(right.centreX), qRound(right.centreY))), 200);
}

TEST(PairedCellIconTest, CellsAreTiltedClockwise) {
    // Laid out with y growing upward, the right cell sits 2 points below the left one; the
    // clockwise tilt of 12 degrees about the centre moves their centres 3.2 points apart
    // vertically (0.7 for a counter-clockwise tilt, -2 for a mark drawn upside down).
    const double ratio = 4.0;
    const auto [left, right] = halves(PairedCellIcon::draw(Qt::black, ratio));
    const double drop = (right.centreY - left.centreY) / ratio;
    EXPECT_GT(drop, 2.8);
    EXPECT_LT(drop, 3.6);
    EXPECT_NEAR((left.centreX + right.centreX) / 2 / ratio, 9.0, 0.4);
}

TEST(PairedCellIconTest, DrawnInTheGivenColourOnTransparency) {
    const QImage image =
        PairedCellIcon::draw(QColor(255, 255, 255), 2.0).convertToFormat(QImage::Format_ARGB32);
    EXPECT_EQ(qAlpha(image.pixel(0, 0)), 0);
    bool sawOpaqueWhite = false;
    for (int y = 0; y < image.height(); ++y) {
        for (int x = 0; x < image.width(); ++x) {
            const QRgb pixel = image.pixel(x, y);
            if (qAlpha(pixel) == 255) {
                sawOpaqueWhite = true;
                EXPECT_EQ(qRed(pixel), 255);
                EXPECT_EQ(qBlue(pixel), 255);
            }
        }
    }
    EXPECT_TRUE(sawOpaqueWhite);
}

TEST(PairedCellIconTest, LabelColourFollowsTheLook) {
    EXPECT_LT(PairedCellIcon::labelColor(false).lightness(), 50);
    EXPECT_GT(PairedCellIcon::labelColor(true).lightness(), 200);
}

TEST(PairedCellIconTest, IconOffersHighDensityPixmaps) {
    testing::ensureOffscreenApplication();
    const QIcon icon = PairedCellIcon::icon(Qt::black);
    EXPECT_FALSE(icon.isNull());
    const QPixmap sharp = icon.pixmap(QSize(18, 18), 2.0);
    EXPECT_EQ(sharp.size(), QSize(36, 36));
}

} // namespace
} // namespace ambrel
