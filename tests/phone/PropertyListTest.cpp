#include "phone/PropertyList.h"

#include <cmath>
#include <limits>
#include <string>

#include <gtest/gtest.h>

namespace ambrel {
namespace {

std::string document(const std::string& body) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n" + body +
           "\n</plist>\n";
}

std::string dictionary(const std::string& entries) {
    return document("<dict>" + entries + "</dict>");
}

std::optional<PropertyValue> valueFor(const std::string& element) {
    const auto parsed = parsePropertyList(dictionary("<key>v</key>" + element));
    if (!parsed || !parsed->contains("v")) {
        return std::nullopt;
    }
    return parsed->at("v");
}

TEST(PropertyListTest, ParsesTheBatteryAnswer) {
    const auto parsed = parsePropertyList(
        dictionary("<key>BatteryCurrentCapacity</key><integer>87</integer>"
                   "<key>BatteryIsCharging</key><true/><key>ExternalConnected</key><false/>"
                   "<key>GasGaugeCapability</key><true/><key>Name</key><string>Anna</string>"));
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->size(), 5u);
    EXPECT_EQ(parsed->at("BatteryCurrentCapacity"), PropertyValue::integer(87));
    EXPECT_EQ(parsed->at("BatteryIsCharging"), PropertyValue::boolean(true));
    EXPECT_EQ(parsed->at("ExternalConnected"), PropertyValue::boolean(false));
    EXPECT_EQ(parsed->at("Name"), PropertyValue::string("Anna"));
}

// libplist aborts when a string holding a NUL byte is read the usual way; a tool's answer may
// hold one, and it must be read, not fatal.
TEST(PropertyListTest, StringWithANulByteIsReadWhole) {
    const auto parsed =
        parsePropertyList(dictionary(std::string("<key>Name</key><string>Ann\0a</string>", 37) +
                                     "<key>BatteryCurrentCapacity</key><integer>33</integer>"));
    ASSERT_TRUE(parsed);
    // libplist keeps the text's length but copies it only up to the NUL byte.
    const auto name = parsed->at("Name").stringValue();
    ASSERT_TRUE(name);
    EXPECT_EQ(name->substr(0, 4), std::string("Ann\0", 4));
    EXPECT_EQ(parsed->at("BatteryCurrentCapacity"), PropertyValue::integer(33));
}

TEST(PropertyListTest, TextBeforeTheMarkerIsSkipped) {
    const auto parsed = parsePropertyList("WARNING: something\nmore\n" +
                                          dictionary("<key>a</key><integer>1</integer>"));
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->at("a").integerValue(), 1);
}

TEST(PropertyListTest, NoMarkerNoDictionary) {
    EXPECT_FALSE(parsePropertyList(""));
    EXPECT_FALSE(parsePropertyList("BatteryCurrentCapacity: 87\n"));
    // The search is for "<?xml" exactly.
    EXPECT_FALSE(parsePropertyList("<?XML version=\"1.0\"?><plist><dict></dict></plist>"));
    EXPECT_FALSE(parsePropertyList("<plist version=\"1.0\"><dict><key>a</key><integer>1</integer>"
                                   "</dict></plist>"));
}

TEST(PropertyListTest, TopLevelMustBeADictionary) {
    EXPECT_FALSE(parsePropertyList(document("<array><integer>1</integer></array>")));
    EXPECT_FALSE(parsePropertyList(document("<integer>1</integer>")));
    EXPECT_FALSE(parsePropertyList(document("<string>x</string>")));
    const auto empty = parsePropertyList(dictionary(""));
    ASSERT_TRUE(empty);
    EXPECT_TRUE(empty->empty());
}

TEST(PropertyListTest, BrokenDocumentsDoNotParse) {
    EXPECT_FALSE(parsePropertyList("<?xml"));
    EXPECT_FALSE(parsePropertyList("<?xml version=\"1.0\"?><plist><dict><key>a</key>"));
    EXPECT_FALSE(parsePropertyList(document("<dict><key>a</key><integer>1</integer>")));
    EXPECT_FALSE(parsePropertyList(document("<dict><key>a</key><bogus>1</bogus></dict>")));
}

TEST(PropertyListTest, NegativeIntegersAreReadAsSigned) {
    EXPECT_EQ(valueFor("<integer>-1</integer>")->integerValue(), -1);
    EXPECT_EQ(valueFor("<integer>-9223372036854775808</integer>")->integerValue(),
              std::numeric_limits<std::int64_t>::min());
    EXPECT_EQ(valueFor("<integer>9223372036854775807</integer>")->integerValue(),
              std::numeric_limits<std::int64_t>::max());
}

TEST(PropertyListTest, UnsignedIntegersAboveTheSignedRangeAreNegative) {
    EXPECT_EQ(valueFor("<integer>18446744073709551615</integer>")->integerValue(), -1);
    EXPECT_EQ(valueFor("<integer>9223372036854775808</integer>")->integerValue(),
              std::numeric_limits<std::int64_t>::min());
}

TEST(PropertyListTest, IntegersOutOfRangeRefuseTheDocument) {
    // libplist alone would read the first of these as 1.
    for (const char* huge : {"-99999999999999999999", "-9223372036854775809",
                             "18446744073709551616", "99999999999999999999999"}) {
        EXPECT_FALSE(parsePropertyList(
            dictionary(std::string("<key>v</key><integer>") + huge + "</integer>")))
            << huge;
    }
}

TEST(PropertyListTest, IntegersMustBePlainDecimals) {
    EXPECT_EQ(valueFor("<integer> +42\n</integer>")->integerValue(), 42);
    EXPECT_FALSE(valueFor("<integer></integer>"));
    EXPECT_FALSE(valueFor("<integer>1.5</integer>"));
    EXPECT_FALSE(valueFor("<integer>0x10</integer>"));
    EXPECT_FALSE(valueFor("<integer>-</integer>"));
    EXPECT_FALSE(valueFor("<integer><![CDATA[-99999999999999999999]]></integer>"));
}

TEST(PropertyListTest, RealsAreTruncatedTowardZero) {
    EXPECT_EQ(valueFor("<real>87.6</real>")->integerValue(), 87);
    EXPECT_EQ(valueFor("<real>-0.5</real>")->integerValue(), 0);
    EXPECT_EQ(valueFor("<real>-1.5</real>")->integerValue(), -1);
    EXPECT_EQ(valueFor("<real>100.99</real>")->integerValue(), 100);
    EXPECT_EQ(valueFor("<real>1e3</real>")->integerValue(), 1000);
}

TEST(PropertyListTest, RealsWithoutAnIntegerValueAreRejected) {
    EXPECT_EQ(valueFor("<real>nan</real>")->integerValue(), std::nullopt);
    EXPECT_EQ(valueFor("<real>inf</real>")->integerValue(), std::nullopt);
    EXPECT_EQ(valueFor("<real>-inf</real>")->integerValue(), std::nullopt);
    EXPECT_EQ(valueFor("<real>1e400</real>")->integerValue(), std::nullopt);
    EXPECT_EQ(valueFor("<real>9.3e18</real>")->integerValue(), std::nullopt);
    EXPECT_EQ(valueFor("<real>-9.3e18</real>")->integerValue(), std::nullopt);
    EXPECT_TRUE(valueFor("<real>nan</real>")->isNumber());
}

TEST(PropertyListTest, BooleansAreNumbersZeroAndOne) {
    const auto yes = valueFor("<true/>");
    const auto no = valueFor("<false/>");
    EXPECT_TRUE(yes->isNumber());
    EXPECT_EQ(yes->integerValue(), 1);
    EXPECT_EQ(no->integerValue(), 0);
    EXPECT_EQ(yes->boolValue(), true);
    EXPECT_EQ(no->boolValue(), false);
}

TEST(PropertyListTest, OtherKindsAreNotNumbers) {
    for (const char* element : {"<string>87</string>", "<data>AAE=</data>",
                                "<date>2024-01-01T00:00:00Z</date>", "<array/>", "<dict/>"}) {
        const auto value = valueFor(element);
        ASSERT_TRUE(value) << element;
        EXPECT_FALSE(value->isNumber()) << element;
        EXPECT_EQ(value->integerValue(), std::nullopt) << element;
        EXPECT_EQ(value->boolValue(), std::nullopt) << element;
    }
    EXPECT_EQ(valueFor("<string>87</string>")->stringValue(), "87");
    EXPECT_EQ(valueFor("<integer>87</integer>")->stringValue(), std::nullopt);
}

TEST(PropertyListTest, TruthOfNumbers) {
    EXPECT_EQ(PropertyValue::integer(2).boolValue(), true);
    EXPECT_EQ(PropertyValue::integer(0).boolValue(), false);
    EXPECT_EQ(PropertyValue::real(0.25).boolValue(), true);
    EXPECT_EQ(PropertyValue::real(-0.0).boolValue(), false);
    EXPECT_EQ(PropertyValue::real(std::nan("")).boolValue(), std::nullopt);
}

std::string nested(int depth) {
    std::string body;
    for (int level = 0; level < depth; ++level) {
        body += "<array>";
    }
    body += "<integer>1</integer>";
    for (int level = 0; level < depth; ++level) {
        body += "</array>";
    }
    return dictionary("<key>deep</key>" + body);
}

TEST(PropertyListTest, ModerateNestingParses) {
    const auto parsed = parsePropertyList(nested(200));
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->at("deep").kind(), PropertyValue::Kind::other);
}

TEST(PropertyListTest, DeepNestingIsRefusedUnparsed) {
    EXPECT_FALSE(parsePropertyList(nested(300)));
    // Far deeper than libplist's recursion could take.
    EXPECT_FALSE(parsePropertyList(nested(150000)));
}

TEST(PropertyListTest, ContainersAreCountedByTheirOpeningTags) {
    EXPECT_EQ(xmlContainerCount(""), 0u);
    EXPECT_EQ(xmlContainerCount("<dict/>"), 1u);
    // The top-level dictionary, then 200 arrays.
    EXPECT_EQ(xmlContainerCount(nested(200)), 201u);
    EXPECT_EQ(xmlContainerCount("<array><dict></dict><array/></array>"), 3u);
    // Closing tags and look-alikes count for nothing.
    EXPECT_EQ(xmlContainerCount("</array></dict><string>arrays</string>< dict>"), 0u);
}

TEST(PropertyListTest, OversizedDocumentIsRefused) {
    const std::string padding(kLargestPropertyList, ' ');
    EXPECT_FALSE(parsePropertyList(dictionary("<key>a</key><integer>1</integer>" + padding)));
    EXPECT_TRUE(parsePropertyList(
        dictionary("<key>a</key><integer>1</integer>" + std::string(60000, ' '))));
}

TEST(PropertyListTest, BinaryPropertyListIsNotToolText) {
    // "bplist00" with a one-entry dictionary {"a": 1}; without the XML marker it is refused.
    const std::string binary("bplist00\xD1\x01\x02\x51\x61\x10\x01\x08\x0B\x0D\x00\x00\x00\x00"
                             "\x00\x00\x01\x01\x00\x00\x00\x00\x00\x00\x00\x03\x00\x00\x00\x00"
                             "\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x00\x0F",
                             50);
    EXPECT_FALSE(parsePropertyList(binary));
    EXPECT_FALSE(parsePropertyList("<?xml" + binary));
}

} // namespace
} // namespace ambrel
