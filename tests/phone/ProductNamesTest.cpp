// The marketing names: the table file as people edit it, the table built from it, and lookups.
#include "phone/ProductNames.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <optional>
#include <regex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

namespace ambrel {
namespace {

// One line of phone/ProductNames.tsv that is neither empty nor a comment.
struct ProductNameLine {
    int number = 0;
    std::string text;
};

// The table file's entry lines, read here on their own rather than the way the build reads them.
std::vector<ProductNameLine> productNameLines() {
    const auto path = std::filesystem::path(TOVRIN_SOURCE_DIR) / "phone" / "ProductNames.tsv";
    std::ifstream file(path);
    EXPECT_TRUE(file.is_open()) << path;
    std::vector<ProductNameLine> lines;
    std::string text;
    for (int number = 1; std::getline(file, text); ++number) {
        if (!text.empty() && text.front() != '#') {
            lines.push_back({number, text});
        }
    }
    return lines;
}

// The line split at its one tab; nothing when it has no tab or more than one.
std::optional<std::pair<std::string, std::string>> productNameFields(const std::string& text) {
    const auto tab = text.find('\t');
    if (tab == std::string::npos || text.find('\t', tab + 1) != std::string::npos) {
        return std::nullopt;
    }
    return std::pair{text.substr(0, tab), text.substr(tab + 1)};
}

// "iPhone14,2" -> "iPhone": what a type's name starts with, "iPod touch" for the iPods.
std::string familyWordOf(const std::string& productType) {
    if (productType.starts_with("iPhone")) {
        return "iPhone";
    }
    if (productType.starts_with("iPod")) {
        return "iPod touch";
    }
    return "iPad";
}

std::map<std::string, std::string> productNamesInFile() {
    std::map<std::string, std::string> names;
    for (const auto& line : productNameLines()) {
        if (const auto fields = productNameFields(line.text)) {
            names.insert(*fields);
        }
    }
    return names;
}

TEST(ProductNamesTest, EveryLineOfTheTableFileIsWellFormed) {
    const std::regex typeForm("^(iPhone|iPad|iPod)[0-9]+,[0-9]+$");
    std::set<std::string> types;
    std::map<std::string, std::string> familyOfName;
    std::map<std::string, int> entriesOfFamily;
    for (const auto& line : productNameLines()) {
        SCOPED_TRACE("ProductNames.tsv:" + std::to_string(line.number) + ": " + line.text);
        const auto fields = productNameFields(line.text);
        ASSERT_TRUE(fields.has_value()) << "not <type><TAB><name>";
        const auto& [type, name] = *fields;
        EXPECT_TRUE(std::regex_match(type, typeForm));
        EXPECT_TRUE(types.insert(type).second) << "the type is listed twice";
        ASSERT_FALSE(name.empty());
        EXPECT_NE(name.front(), ' ');
        EXPECT_NE(name.back(), ' ');
        EXPECT_EQ(name.find("  "), std::string::npos);
        EXPECT_TRUE(std::all_of(name.begin(), name.end(), [](char c) {
            return c >= ' ' && c <= '~' && c != '"';
        })) << "only plain ASCII, as Apple writes the names";
        const auto family = familyWordOf(type);
        EXPECT_TRUE(name == family || name.starts_with(family + " "))
            << "the name does not start with \"" << family << "\"";
        const auto known = familyOfName.emplace(name, family).first;
        EXPECT_EQ(known->second, family) << "the name is also one of another family";
        ++entriesOfFamily[family];
    }
    // An emptied or truncated file would pass every check above.
    EXPECT_GE(entriesOfFamily["iPhone"], 40);
    EXPECT_GE(entriesOfFamily["iPad"], 60);
    EXPECT_EQ(entriesOfFamily["iPod touch"], 2);
}

TEST(ProductNamesTest, TheBuiltTableHoldsExactlyTheFileEntries) {
    const auto inFile = productNamesInFile();
    ASSERT_FALSE(inFile.empty());
    std::map<std::string, std::string> built;
    for (const auto& entry : ProductNames::all()) {
        built.emplace(entry.productType, entry.name);
    }
    EXPECT_EQ(built, inFile);
    EXPECT_EQ(ProductNames::all().size(), inFile.size());
    for (const auto& [type, name] : inFile) {
        EXPECT_EQ(ProductNames::marketingName(type), name) << type;
    }
}

TEST(ProductNamesTest, TheBuiltTableIsSortedByTypeForItsSearch) {
    const auto all = ProductNames::all();
    EXPECT_TRUE(std::adjacent_find(all.begin(), all.end(), [](const auto& left, const auto& right) {
                    return left.productType >= right.productType;
                }) == all.end());
}

TEST(ProductNamesTest, WellKnownModels) {
    EXPECT_EQ(ProductNames::marketingName("iPhone8,1"), "iPhone 6s");
    EXPECT_EQ(ProductNames::marketingName("iPhone14,2"), "iPhone 13 Pro");
    EXPECT_EQ(ProductNames::marketingName("iPhone14,5"), "iPhone 13");
    EXPECT_EQ(ProductNames::marketingName("iPhone15,2"), "iPhone 14 Pro");
    EXPECT_EQ(ProductNames::marketingName("iPhone16,1"), "iPhone 15 Pro");
    EXPECT_EQ(ProductNames::marketingName("iPhone17,1"), "iPhone 16 Pro");
    EXPECT_EQ(ProductNames::marketingName("iPod9,1"), "iPod touch (7th generation)");
    // The first of the sorted table (iPod9,1 above is its last).
    EXPECT_EQ(ProductNames::marketingName("iPad11,1"), "iPad mini (5th generation)");
    // Two types of one model, the Wi-Fi and the cellular iPad.
    EXPECT_EQ(ProductNames::marketingName("iPad14,3"), "iPad Pro (11-inch) (4th generation)");
    EXPECT_EQ(ProductNames::marketingName("iPad14,4"), "iPad Pro (11-inch) (4th generation)");
}

TEST(ProductNamesTest, AnUnknownTypeIsShownAsItIs) {
    EXPECT_EQ(ProductNames::marketingName("iPhone99,1"), "iPhone99,1");
    EXPECT_EQ(ProductNames::marketingName("Watch6,1"), "Watch6,1");
    // Near a known type is not that type.
    EXPECT_EQ(ProductNames::marketingName("iPhone14"), "iPhone14");
    EXPECT_EQ(ProductNames::marketingName("iPhone14,2 "), "iPhone14,2 ");
    EXPECT_EQ(ProductNames::marketingName("iphone14,2"), "iphone14,2");
    // Before the first and after the last entry.
    EXPECT_EQ(ProductNames::marketingName("AppleTV6,2"), "AppleTV6,2");
    EXPECT_EQ(ProductNames::marketingName("iPod99,1"), "iPod99,1");
}

TEST(ProductNamesTest, AnEmptyTypeHasAnEmptyName) {
    EXPECT_EQ(ProductNames::marketingName(""), "");
}

} // namespace
} // namespace ambrel
