#include "views/IPhoneSetupView.h"

#include <QDir>
#include <QLabel>
#include <QPushButton>
#include <QTest>
#include <gtest/gtest.h>
#include <vector>

#include "presentation/WidgetBrand.h"
#include "tests/views/ViewTestSupport.h"
#include "views/SetupStep.h"

namespace ambrel {
namespace {

using testing::q;

class IPhoneSetupViewTest : public ::testing::Test {
protected:
    static QStringList texts(const IPhoneSetupView& sheet) {
        QStringList all;
        for (const QLabel* label : sheet.labels()) {
            all << label->text();
        }
        return all;
    }

    testing::TestStyle m_style;
};

TEST_F(IPhoneSetupViewTest, HoldsItsTextsInOrder) {
    const testing::TestStyle blankName(ViewFonts(), "");
    IPhoneSetupView sheet(blankName, [] {}, {});
    const QStringList all = texts(sheet);
    ASSERT_EQ(all.size(), 12);
    EXPECT_EQ(all[0], q("Connect your iPhone"));
    EXPECT_EQ(all[1], q("A Quenby desktop widget"));
    EXPECT_EQ(all[2], q("Connect directly with a USB data cable"));
    EXPECT_TRUE(all[3].contains(q(" Keep Tovrin running and unlock both devices. ")));
    EXPECT_EQ(all[4], q("Allow the connection and Trust this Mac"));
    EXPECT_EQ(all[6], q("Enable Wi-Fi connection in Finder"));
    EXPECT_TRUE(all[7].contains(q("\u201cShow this iPhone when on Wi-Fi\u201d")));
    EXPECT_EQ(all[8], q("Check, unplug, and check again"));
    EXPECT_TRUE(
        all[10].startsWith(q("Nothing in Finder? In Finder \u2192 Settings \u2192 Sidebar")));
    EXPECT_TRUE(all[11].startsWith(q("Tovrin checks your iPhone every 5 minutes")));
    ASSERT_EQ(sheet.steps().size(), 4u);
    for (std::size_t index = 0; index < sheet.steps().size(); ++index) {
        EXPECT_EQ(sheet.steps()[index]->number(), QString::number(index + 1));
    }
    EXPECT_EQ(sheet.openFinderButton()->text(), q("Open Finder"));
    EXPECT_EQ(sheet.doneButton()->text(), q("Done"));
    EXPECT_EQ(sheet.checkBatteriesButton()->text(), q("Check batteries"));
    EXPECT_TRUE(sheet.checkBatteriesButton()->isDefault());
    EXPECT_FALSE(sheet.doneButton()->isDefault());
}

TEST_F(IPhoneSetupViewTest, DisplayNameReachesStepOneAndTheCadenceBox) {
    const testing::TestStyle pairwise(ViewFonts(), "Pairwise");
    IPhoneSetupView sheet(pairwise, [] {}, {});
    const QStringList all = texts(sheet);
    EXPECT_TRUE(all[3].contains(q(" Keep Pairwise running ")));
    EXPECT_TRUE(all[11].startsWith(q("Pairwise checks your iPhone")));
}

TEST_F(IPhoneSetupViewTest, ButtonsSitInOrderAlongTheBottom) {
    IPhoneSetupView sheet(m_style, [] {}, {});
    testing::showAndSettle(sheet);
    const int open = sheet.openFinderButton()->geometry().left();
    const int done = sheet.doneButton()->geometry().left();
    const int check = sheet.checkBatteriesButton()->geometry().left();
    EXPECT_LT(open, done);
    EXPECT_LT(done, check);
    EXPECT_EQ(open, 26);
    EXPECT_EQ(sheet.checkBatteriesButton()->geometry().right(), 460 - 26 - 1);
    sheet.reject();
}

TEST_F(IPhoneSetupViewTest, IsFourHundredSixtyWideAndNothingIsCut) {
    IPhoneSetupView sheet(m_style, [] {}, {});
    testing::showAndSettle(sheet);
    EXPECT_EQ(sheet.width(), 460);
    for (const QLabel* label : sheet.labels()) {
        EXPECT_TRUE(label->wordWrap());
        EXPECT_GE(label->height(), label->heightForWidth(label->width()))
            << label->text().toStdString();
        EXPECT_LE(label->mapTo(&sheet, QPoint(label->width(), 0)).x(), 460 - 26);
    }
    const QWidget* bottom = sheet.checkBatteriesButton();
    EXPECT_LE(bottom->mapTo(&sheet, QPoint(0, bottom->height())).y(), sheet.height() - 26);
    sheet.reject();
}

TEST_F(IPhoneSetupViewTest, LongerNameMakesTheSheetTallerNotWider) {
    const testing::TestStyle longName(
        ViewFonts(), "A Battery Widget With A Remarkably Long And Winding Product Name");
    IPhoneSetupView plain(m_style, [] {}, {});
    IPhoneSetupView wordy(longName, [] {}, {});
    EXPECT_EQ(wordy.width(), 460);
    EXPECT_GT(wordy.height(), plain.height());
}

TEST_F(IPhoneSetupViewTest, CheckBatteriesRefreshesEachTimeAndStaysOpen) {
    int refreshes = 0;
    IPhoneSetupView sheet(m_style, [&refreshes] { ++refreshes; }, {});
    testing::showAndSettle(sheet);
    for (int press = 0; press < 3; ++press) {
        QTest::mouseClick(sheet.checkBatteriesButton(), Qt::LeftButton);
    }
    EXPECT_EQ(refreshes, 3);
    EXPECT_TRUE(sheet.isVisible());
    sheet.reject();
}

TEST_F(IPhoneSetupViewTest, DoneAndEscapeClose) {
    int refreshes = 0;
    IPhoneSetupView sheet(m_style, [&refreshes] { ++refreshes; }, {});
    testing::showAndSettle(sheet);
    QTest::mouseClick(sheet.doneButton(), Qt::LeftButton);
    EXPECT_FALSE(sheet.isVisible());
    testing::showAndSettle(sheet);
    EXPECT_TRUE(sheet.isVisible());
    QTest::keyClick(&sheet, Qt::Key_Escape);
    EXPECT_FALSE(sheet.isVisible());
    EXPECT_EQ(refreshes, 0);
}

TEST_F(IPhoneSetupViewTest, OpenFinderOpensTheConnectionWindowAndStaysOpen) {
    std::vector<QWidget*> openedOver;
    IPhoneSetupView sheet(
        m_style, [] {}, [&openedOver](QWidget* parent) { openedOver.push_back(parent); });
    testing::showAndSettle(sheet);
    QTest::mouseClick(sheet.openFinderButton(), Qt::LeftButton);
    ASSERT_EQ(openedOver.size(), 1u);
    EXPECT_EQ(openedOver.front(), &sheet);
    EXPECT_TRUE(sheet.isVisible());
    sheet.reject();
}

} // namespace
} // namespace ambrel
