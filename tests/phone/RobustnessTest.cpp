// Feeds the two tool-output parsers thousands of random and mutated inputs. They must neither
// crash nor hang, and the identifier parser must agree with a plain restatement of its rule.
#include <cstdint>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "phone/DeviceIdentifiers.h"
#include "phone/PropertyList.h"

namespace ambrel {
namespace {

// A fixed starting value for the generator, so a failure repeats exactly.
constexpr std::uint32_t kGeneratorStart = 20240611;

const std::string kBatteryAnswer =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
    "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
    "<plist version=\"1.0\">\n<dict>\n"
    "\t<key>BatteryCurrentCapacity</key>\n\t<integer>87</integer>\n"
    "\t<key>BatteryIsCharging</key>\n\t<true/>\n"
    "\t<key>ExternalConnected</key>\n\t<true/>\n"
    "\t<key>FullyCharged</key>\n\t<false/>\n"
    "\t<key>GasGaugeCapability</key>\n\t<true/>\n"
    "\t<key>HasBattery</key>\n\t<true/>\n"
    "\t<key>Voltage</key>\n\t<real>4.123</real>\n"
    "\t<key>Serial</key>\n\t<data>AAECAwQFBgcICQ==</data>\n"
    "\t<key>Updated</key>\n\t<date>2024-06-11T09:41:00Z</date>\n"
    "\t<key>Cells</key>\n\t<array><dict><key>v</key><integer>-5</integer></dict></array>\n"
    "</dict>\n</plist>\n";

const std::vector<std::string> kFragments = {"<?xml version=\"1.0\"?>",
                                             "<plist version=\"1.0\">",
                                             "</plist>",
                                             "<dict>",
                                             "</dict>",
                                             "<array>",
                                             "</array>",
                                             "<key>BatteryCurrentCapacity</key>",
                                             "<integer>",
                                             "</integer>",
                                             "99999999999999999999999999",
                                             "-9223372036854775809",
                                             "<real>1e999</real>",
                                             "<real>nan</real>",
                                             "<true/>",
                                             "<false/>",
                                             "<string>",
                                             "</string>",
                                             "<data>",
                                             "</data>",
                                             "<date>",
                                             "</date>",
                                             "<![CDATA[",
                                             "]]>",
                                             "<!--",
                                             "-->",
                                             "&amp;",
                                             "&#0;",
                                             "&#xFFFF;",
                                             "&",
                                             "<",
                                             ">",
                                             "\"",
                                             "bplist00",
                                             std::string("\0", 1),
                                             "\xFF",
                                             "\xC3",
                                             "\xE2\x80\xA8"};

class Mutator {
public:
    Mutator() : m_random(kGeneratorStart) {}

    std::size_t below(std::size_t limit) {
        return std::uniform_int_distribution<std::size_t>(0, limit - 1)(m_random);
    }

    std::string randomBytes(std::size_t length) {
        std::string bytes(length, '\0');
        for (auto& byte : bytes) {
            byte = static_cast<char>(below(256));
        }
        return bytes;
    }

    // One to four random edits of `text`: flip, insert, delete, truncate or splice a fragment.
    std::string mutate(std::string text) {
        const std::size_t edits = 1 + below(4);
        for (std::size_t edit = 0; edit < edits; ++edit) {
            const std::size_t position = text.empty() ? 0 : below(text.size() + 1);
            switch (below(5)) {
            case 0:
                if (position < text.size()) {
                    text[position] = static_cast<char>(below(256));
                }
                break;
            case 1:
                text.insert(position, randomBytes(1 + below(8)));
                break;
            case 2:
                text.erase(position, below(16));
                break;
            case 3:
                text.resize(position);
                break;
            default:
                text.insert(position, kFragments[below(kFragments.size())]);
                break;
            }
        }
        return text;
    }

private:
    std::mt19937 m_random;
};

TEST(RobustnessTest, PropertyListSurvivesTruncationAtEveryByte) {
    for (std::size_t length = 0; length <= kBatteryAnswer.size(); ++length) {
        const auto parsed = parsePropertyList(kBatteryAnswer.substr(0, length));
        if (parsed && parsed->contains("BatteryCurrentCapacity")) {
            EXPECT_EQ(parsed->at("BatteryCurrentCapacity").integerValue(), 87);
        }
    }
    const auto whole = parsePropertyList(kBatteryAnswer);
    ASSERT_TRUE(whole);
    EXPECT_EQ(whole->size(), 10u);
}

TEST(RobustnessTest, PropertyListSurvivesRandomAndMutatedInput) {
    Mutator mutator;
    int parsedCount = 0;
    for (int round = 0; round < 6000; ++round) {
        std::string input;
        switch (round % 4) {
        case 0:
            input = mutator.randomBytes(mutator.below(512));
            break;
        case 1:
            input = "<?xml" + mutator.randomBytes(mutator.below(512));
            break;
        default:
            input = mutator.mutate(kBatteryAnswer);
            break;
        }
        const auto parsed = parsePropertyList(input);
        if (parsed) {
            ++parsedCount;
            for (const auto& [key, value] : *parsed) {
                // Every number has an integer value or is refused; nothing in between crashes.
                if (value.isNumber()) {
                    (void)value.integerValue();
                    (void)value.boolValue();
                }
            }
        }
    }
    // Many single edits leave a valid document: the parser really ran on them.
    EXPECT_GT(parsedCount, 100);
}

TEST(RobustnessTest, PropertyListRefusesDeepAndWideNesting) {
    for (const std::size_t depth : {257u, 1000u, 100000u, 400000u}) {
        std::string deep = "<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>a</key>";
        for (std::size_t level = 0; level < depth; ++level) {
            deep += level % 2 == 0 ? "<array>" : "<dict><key>k</key>";
        }
        EXPECT_FALSE(parsePropertyList(deep)) << depth;
        // Unclosed nesting without the closing tags, and a truncated tail.
        EXPECT_FALSE(parsePropertyList(deep.substr(0, deep.size() / 2))) << depth;
    }
}

TEST(RobustnessTest, PropertyListHandlesHugeNumbersAndLongTexts) {
    const std::string digits(5000, '9');
    for (const std::string& element :
         {"<integer>" + digits + "</integer>", "<integer>-" + digits + "</integer>",
          "<real>" + digits + "</real>", "<string>" + std::string(60000, 'x') + "</string>",
          "<data>" + std::string(40000, 'A') + "</data>"}) {
        const auto parsed =
            parsePropertyList("<?xml version=\"1.0\"?><plist version=\"1.0\"><dict><key>a</key>" +
                              element + "</dict></plist>");
        if (parsed && parsed->contains("a")) {
            const auto integer = parsed->at("a").integerValue();
            // Nothing this large may come back as a plausible percentage.
            EXPECT_TRUE(!integer || *integer < 0 || *integer > 100) << element.substr(0, 20);
        }
    }
    const auto tiny = parsePropertyList("<?xml version=\"1.0\"?><plist version=\"1.0\"><dict>"
                                        "<key>a</key><real>0." +
                                        digits + "e-99999</real></dict></plist>");
    ASSERT_TRUE(tiny);
    EXPECT_EQ(tiny->at("a").integerValue(), 0);
}

// The identifier rule restated over code points, as plainly as possible.
std::vector<std::string> referenceIdentifiers(const std::string& text) {
    std::vector<std::u32string> lines(1);
    for (std::size_t position = 0; position < text.size();) {
        const auto byte = static_cast<unsigned char>(text[position]);
        char32_t value = byte;
        std::size_t length = 1;
        if (byte >= 0xF0) {
            length = 4;
            value = byte & 0x07;
        } else if (byte >= 0xE0) {
            length = 3;
            value = byte & 0x0F;
        } else if (byte >= 0xC0) {
            length = 2;
            value = byte & 0x1F;
        }
        for (std::size_t index = 1; index < length; ++index) {
            value = (value << 6) | (static_cast<unsigned char>(text[position + index]) & 0x3F);
        }
        position += length;
        const bool isBreak = value == 0x0A || value == 0x0B || value == 0x0C || value == 0x0D ||
                             value == 0x85 || value == 0x2028 || value == 0x2029;
        if (isBreak) {
            lines.emplace_back();
        } else {
            lines.back().push_back(value);
        }
    }
    const auto isSpace = [](char32_t value) {
        return value == 0x09 || value == 0x20 || value == 0xA0 || value == 0x3000 ||
               value == 0x1680 || value == 0x202F || value == 0x205F ||
               (value >= 0x2000 && value <= 0x200A);
    };
    std::vector<std::string> identifiers;
    for (auto line : lines) {
        while (!line.empty() && isSpace(line.front())) {
            line.erase(line.begin());
        }
        while (!line.empty() && isSpace(line.back())) {
            line.pop_back();
        }
        bool isValid = !line.empty() && line.size() <= 128;
        std::string ascii;
        for (const char32_t value : line) {
            const bool isHex = (value >= '0' && value <= '9') || (value >= 'a' && value <= 'f') ||
                               (value >= 'A' && value <= 'F') || value == '-';
            isValid = isValid && isHex;
            ascii.push_back(static_cast<char>(value & 0x7F));
        }
        if (isValid) {
            identifiers.push_back(ascii);
        }
    }
    return identifiers;
}

TEST(RobustnessTest, IdentifierParserAgreesWithTheRuleOnRandomLists) {
    const std::vector<std::string> alphabet = {"0",
                                               "7",
                                               "a",
                                               "F",
                                               "f",
                                               "-",
                                               "g",
                                               "Z",
                                               ":",
                                               " ",
                                               "\t",
                                               "\n",
                                               "\r",
                                               "\v",
                                               "\f",
                                               "\xC2\x85",
                                               "\xC2\xA0",
                                               "\xE2\x80\xA8",
                                               "\xE2\x80\xA9",
                                               "\xE3\x80\x80",
                                               "\xE2\x80\x8B",
                                               "\xEF\xBC\x91",
                                               "\xC3\xA9",
                                               "\xF0\x9F\x94\x8B",
                                               "00008110-001A2B3C4D5E6F70",
                                               std::string(60, 'a'),
                                               std::string(128, 'b'),
                                               std::string()};
    Mutator mutator;
    for (int round = 0; round < 5000; ++round) {
        std::string text;
        const std::size_t pieces = mutator.below(40);
        for (std::size_t piece = 0; piece < pieces; ++piece) {
            text += alphabet[mutator.below(alphabet.size())];
        }
        const auto identifiers = parseDeviceIdentifiers(text);
        ASSERT_EQ(identifiers, referenceIdentifiers(text)) << text;
        for (const auto& identifier : identifiers) {
            ASSERT_FALSE(identifier.empty());
            ASSERT_LE(identifier.size(), 128u);
        }
    }
    // Arbitrary bytes, not only well-formed text: no crash.
    for (int round = 0; round < 3000; ++round) {
        const auto identifiers = parseDeviceIdentifiers(mutator.randomBytes(mutator.below(300)));
        for (const auto& identifier : identifiers) {
            ASSERT_LE(identifier.size(), 128u);
        }
    }
}

} // namespace
} // namespace ambrel
