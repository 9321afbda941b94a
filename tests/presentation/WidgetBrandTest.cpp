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

TEST(WidgetBrandTest, NameComesFromTheBundleTheProgramRead) {
    testing::FakeBundle bundle;
    bundle.info["CFBundleDisplayName"] = "\u2003Pairwise\n";
    EXPECT_EQ(WidgetBrand::nameFrom(&bundle), "Pairwise");
    bundle.info["CFBundleDisplayName"] = "\n";
    EXPECT_EQ(WidgetBrand::nameFrom(&bundle), "Tovrin");

    const testing::FakeBundle withoutName;
    EXPECT_EQ(WidgetBrand::nameFrom(&withoutName), "Tovrin");
    EXPECT_EQ(WidgetBrand::nameFrom(nullptr), "Tovrin");
}

} // namespace
} // namespace ambrel
