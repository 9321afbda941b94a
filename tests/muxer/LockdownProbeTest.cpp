#include "muxer/LockdownProbe.h"

#include <set>
#include <string>

#include <gtest/gtest.h>
#include <plist/plist.h>

#include "muxer/MuxMessage.h"
#include "muxer/PlistNode.h"

namespace ambrel::testing {
namespace {

std::string reply(const std::string& entries) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" + entries +
           "</dict></plist>\n";
}

TEST(LockdownProbe, TheRequestCarriesTheHostIdAndSystemBuidAndNoKey) {
    const auto bytes = startSessionRequest("5B7A1C52-4E4B-4D2B-9A05-1C1D0E2F3A4B",
                                           "8C0F6E1A-2B3C-4D5E-8F90-A1B2C3D4E5F6");
    ASSERT_GT(bytes.size(), 4u);
    const auto length = (static_cast<unsigned char>(bytes[0]) << 24) |
                        (static_cast<unsigned char>(bytes[1]) << 16) |
                        (static_cast<unsigned char>(bytes[2]) << 8) |
                        static_cast<unsigned char>(bytes[3]);
    EXPECT_EQ(static_cast<std::size_t>(length), bytes.size() - 4);
    const auto request = parseMuxPlist(std::string_view(bytes).substr(4));
    ASSERT_TRUE(request);
    std::set<std::string> keys;
    plist_dict_iter iterator = nullptr;
    plist_dict_new_iter(request.get(), &iterator);
    for (;;) {
        char* key = nullptr;
        plist_t value = nullptr;
        plist_dict_next_item(request.get(), iterator, &key, &value);
        if (key == nullptr) {
            break;
        }
        keys.insert(key);
        std::free(key);
    }
    std::free(iterator);
    EXPECT_EQ(keys, (std::set<std::string>{"Label", "ProtocolVersion", "Request", "HostID",
                                           "SystemBUID"}));
    EXPECT_EQ(stringIn(request.get(), "Request"), "StartSession");
    EXPECT_EQ(stringIn(request.get(), "HostID"), "5B7A1C52-4E4B-4D2B-9A05-1C1D0E2F3A4B");
    EXPECT_EQ(stringIn(request.get(), "SystemBUID"), "8C0F6E1A-2B3C-4D5E-8F90-A1B2C3D4E5F6");
}

TEST(LockdownProbe, ASessionMeansThePhoneHoldsThePairing) {
    EXPECT_EQ(probeAnswerOf(reply("<key>Request</key><string>StartSession</string>"
                                  "<key>SessionID</key><string>ABC</string>"
                                  "<key>EnableSessionSSL</key><true/>")),
              ProbeAnswer::holdsPairing);
}

TEST(LockdownProbe, InvalidHostIdMeansAnotherPhone) {
    EXPECT_EQ(probeAnswerOf(reply("<key>Request</key><string>StartSession</string>"
                                  "<key>Error</key><string>InvalidHostID</string>")),
              ProbeAnswer::otherPairing);
}

TEST(LockdownProbe, AnythingElseTeachesNothing) {
    // A locked phone, a reply to something else, a session without its id, garbage.
    EXPECT_EQ(probeAnswerOf(reply("<key>Request</key><string>StartSession</string>"
                                  "<key>Error</key><string>PasswordProtected</string>")),
              ProbeAnswer::noAnswer);
    EXPECT_EQ(probeAnswerOf(reply("<key>Request</key><string>QueryType</string>"
                                  "<key>SessionID</key><string>ABC</string>")),
              ProbeAnswer::noAnswer);
    EXPECT_EQ(probeAnswerOf(reply("<key>Request</key><string>StartSession</string>"
                                  "<key>SessionID</key><string></string>")),
              ProbeAnswer::noAnswer);
    EXPECT_EQ(probeAnswerOf("not a property list"), ProbeAnswer::noAnswer);
    EXPECT_EQ(probeAnswerOf(""), ProbeAnswer::noAnswer);
}

} // namespace
} // namespace ambrel::testing
