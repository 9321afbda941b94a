#include "presentation/WidgetBrand.h"

#include <gtest/gtest.h>

#include "tests/fakes/FakeSystem.h"

namespace ambrel {
namespace {

TEST(WidgetBrandTest, NoDisplayNameGivesTheDefault) {
    EXPECT_EQ(WidgetBrand::brandName(std::nullopt), "Tovrin");
}

TEST(WidgetBrandTest, EmptyOrBlankDisplayNameGivesTheDefault) {
    EXPECT_EQ(WidgetBrand::brandName(std::string()), "Tovrin");
    EXPECT_EQ(WidgetBrand::brandName(std::string("   ")), "Tovrin");
    EXPECT_EQ(WidgetBrand::brandName(std::string(" \t\r\n \u00a0\u2003\u2028")), "Tovrin");
}

TEST(WidgetBrandTest, DisplayNameIsTrimmedAtBothEnds) {
    EXPECT_EQ(WidgetBrand::brandName(std::string("  Battery Pair\n")), "Battery Pair");
    EXPECT_EQ(WidgetBrand::brandName(std::string("\u2003Z\u00fcge \u00b7 Akku\u00a0")),
              "Z\u00fcge \u00b7 Akku");
}

TEST(WidgetBrandTest, InnerSpaceIsKept) {
    EXPECT_EQ(WidgetBrand::brandName(std::string("My  Widget")), "My  Widget");
}

TEST(WidgetBrandTest, OverrideStandsInForTheBundle) {
    WidgetBrand::setDisplayNameForTesting(std::string(" Longer Name "));
    EXPECT_EQ(WidgetBrand::name(), "Longer Name");
    WidgetBrand::setDisplayNameForTesting(std::string("\n"));
    EXPECT_EQ(WidgetBrand::name(), "Tovrin");
    WidgetBrand::setDisplayNameForTesting(std::nullopt);
}

TEST(WidgetBrandTest, NameIsReadOnceAndKept) {
    WidgetBrand::setDisplayNameForTesting(std::nullopt);
    const std::string& first = WidgetBrand::name();
    EXPECT_FALSE(first.empty());
    EXPECT_EQ(&first, &WidgetBrand::name());
}

TEST(WidgetBrandTest, NameComesFromTheBundleTheProgramRead) {
    auto bundle = std::make_shared<testing::FakeBundle>();
    bundle->info["CFBundleDisplayName"] = "\u2003Pairwise\n";
    WidgetBrand::readFrom(bundle);
    EXPECT_EQ(WidgetBrand::name(), "Pairwise");
    // Read once: a later change of the bundle's value is not seen.
    bundle->info["CFBundleDisplayName"] = "Other";
    EXPECT_EQ(WidgetBrand::name(), "Pairwise");

    WidgetBrand::readFrom(std::make_shared<testing::FakeBundle>());
    EXPECT_EQ(WidgetBrand::name(), "Tovrin");
    WidgetBrand::readFrom(nullptr);
    EXPECT_EQ(WidgetBrand::name(), "Tovrin");
}

} // namespace
} // namespace ambrel
