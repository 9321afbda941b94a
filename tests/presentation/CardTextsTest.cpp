#include "presentation/CardTexts.h"

#include <gtest/gtest.h>

#include "presentation/SetupSheetTexts.h"
#include "presentation/WidgetBrand.h"

namespace ambrel {
namespace {

TEST(CardTextsTest, DefaultNameInOptionsAndQuit) {
    const std::string name = WidgetBrand::brandName(std::string("  "));
    EXPECT_EQ(CardTexts::optionsLabel(name), "Tovrin options");
    EXPECT_EQ(CardTexts::quitTitle(name), "Quit Tovrin");
}

TEST(CardTextsTest, DisplayNameInOptionsAndQuit) {
    EXPECT_EQ(CardTexts::optionsLabel("Pairwise"), "Pairwise options");
    EXPECT_EQ(CardTexts::quitTitle("Pairwise"), "Quit Pairwise");
}

TEST(CardTextsTest, SetupStepsAreNumberedInOrder) {
    const auto steps = SetupSheetTexts::steps("Tovrin");
    ASSERT_EQ(steps.size(), 4u);
    EXPECT_EQ(steps[0].number, "1");
    EXPECT_EQ(steps[0].title, "Connect directly with a USB data cable");
    EXPECT_EQ(steps[1].title, "Allow the connection and Trust this Mac");
    EXPECT_EQ(steps[2].title, "Enable Wi-Fi connection in Finder");
    EXPECT_EQ(steps[3].number, "4");
    EXPECT_EQ(steps[3].title, "Check, unplug, and check again");
}

TEST(CardTextsTest, FirstStepAndCadenceNameTheProduct) {
    const auto fallback = SetupSheetTexts::steps(WidgetBrand::brandName(std::nullopt));
    EXPECT_NE(fallback[0].detail.find(" Keep Tovrin running and unlock both devices. "),
              std::string::npos);
    const auto named = SetupSheetTexts::steps("Pairwise");
    EXPECT_NE(named[0].detail.find(" Keep Pairwise running "), std::string::npos);
    EXPECT_EQ(SetupSheetTexts::cadenceNote("Pairwise")
                  .rfind("Pairwise checks your iPhone every 5 "
                         "minutes and your Mac every minute",
                         0),
              0u);
}

TEST(CardTextsTest, TypographicCharactersAreSingleCodePoints) {
    const auto steps = SetupSheetTexts::steps("Tovrin");
    EXPECT_NE(steps[2].detail.find("\u201cShow this iPhone when on Wi-Fi\u201d"),
              std::string::npos);
    const std::string note = SetupSheetTexts::kFinderNote;
    EXPECT_NE(note.find("Finder \u2192 Settings \u2192 Sidebar"), std::string::npos);
    EXPECT_EQ(note.find("->"), std::string::npos);
}

} // namespace
} // namespace ambrel
