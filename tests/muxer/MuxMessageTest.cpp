#include "muxer/MuxMessage.h"

#include <string>
#include <string_view>

#include <gtest/gtest.h>

namespace ambrel {
namespace {

using namespace std::string_literals;

std::string plistDocument(const std::string& body) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\">\n<dict>\n" +
           body + "</dict>\n</plist>\n";
}

// What libusbmuxd 2.0.2 sends for `idevice_id -l`.
const std::string kListDevicesPayload =
    plistDocument("\t<key>ClientVersionString</key>\n\t<string>libusbmuxd 2.0.2</string>\n"
                  "\t<key>MessageType</key>\n\t<string>ListDevices</string>\n"
                  "\t<key>ProgName</key>\n\t<string>idevice_id</string>\n"
                  "\t<key>kLibUSBMuxVersion</key>\n\t<integer>3</integer>\n");

const std::string kListDevicesHeader =
    "\xab\x01\x00\x00\x01\x00\x00\x00\x08\x00\x00\x00\x01\x00\x00\x00"s;

TEST(MuxMessageTest, TheClientsListDevicesHeaderDecodes) {
    ASSERT_EQ(kListDevicesPayload.size() + 16, 0x1abu);
    const auto header = decodeMuxHeader(kListDevicesHeader + kListDevicesPayload);
    ASSERT_TRUE(header);
    EXPECT_EQ(*header, (MuxHeader{427, 1, 8, 1}));
    EXPECT_TRUE(isAcceptableMuxHeader(*header));
    EXPECT_EQ(encodeMuxHeader(*header), kListDevicesHeader);
}

TEST(MuxMessageTest, HeadersOutsideTheProtocolAreRefused) {
    EXPECT_FALSE(decodeMuxHeader(kListDevicesHeader.substr(0, 15)));
    EXPECT_FALSE(isAcceptableMuxHeader({427, 0, 8, 1})); // the old binary protocol
    EXPECT_FALSE(isAcceptableMuxHeader({427, 1, 2, 1})); // a binary Connect
    EXPECT_FALSE(isAcceptableMuxHeader({15, 1, 8, 1}));  // shorter than its own header
    EXPECT_TRUE(isAcceptableMuxHeader({16, 1, 8, 1}));
    EXPECT_TRUE(isAcceptableMuxHeader({kLargestMuxMessage, 1, 8, 1}));
    EXPECT_FALSE(isAcceptableMuxHeader({kLargestMuxMessage + 1, 1, 8, 1}));
    EXPECT_FALSE(isAcceptableMuxHeader({0xFFFFFFFFu, 1, 8, 1}));
}

// `payload` parses as a request of `type`, which goes to `request`.
void parseAs(std::string_view payload, MuxRequestType type, MuxRequest& request) {
    const auto parsed = parseMuxRequest(payload);
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->type, type);
    request = *parsed;
}

TEST(MuxMessageTest, RequestsAreClassifiedByMessageType) {
    MuxRequest list;
    ASSERT_NO_FATAL_FAILURE(parseAs(kListDevicesPayload, MuxRequestType::listDevices, list));
    EXPECT_EQ(list.messageType, "ListDevices");

    MuxRequest connect;
    ASSERT_NO_FATAL_FAILURE(parseAs(plistDocument("<key>DeviceID</key><integer>7</integer>"
                                                  "<key>MessageType</key><string>Connect</string>"
                                                  "<key>PortNumber</key><integer>32498</integer>"),
                                    MuxRequestType::connect, connect));
    EXPECT_EQ(connect.deviceId, 7u);
    // libusbmuxd sends the port in network order read as a number: 62078 arrives as 32498.
    EXPECT_EQ(connect.port, 62078);

    MuxRequest record;
    ASSERT_NO_FATAL_FAILURE(
        parseAs(plistDocument("<key>MessageType</key><string>ReadPairRecord</string>"
                              "<key>PairRecordID</key><string>00008110-001A2B3C4D5E6F70</string>"),
                MuxRequestType::readPairRecord, record));
    EXPECT_EQ(record.pairRecordId, "00008110-001A2B3C4D5E6F70");

    const struct {
        const char* name;
        MuxRequestType type;
    } others[] = {{"Listen", MuxRequestType::listen},
                  {"ReadBUID", MuxRequestType::readBuid},
                  {"SavePairRecord", MuxRequestType::savePairRecord},
                  {"DeletePairRecord", MuxRequestType::deletePairRecord},
                  {"ListListeners", MuxRequestType::other}};
    for (const auto& other : others) {
        SCOPED_TRACE(other.name);
        MuxRequest request;
        ASSERT_NO_FATAL_FAILURE(
            parseAs(plistDocument("<key>MessageType</key><string>"s + other.name + "</string>"),
                    other.type, request));
        EXPECT_EQ(request.messageType, other.name);
    }
}

TEST(MuxMessageTest, PayloadsThatAreNoRequestAreRefused) {
    EXPECT_FALSE(parseMuxRequest(""));
    EXPECT_FALSE(parseMuxRequest("garbage"));
    EXPECT_FALSE(parseMuxRequest(plistDocument("<key>ProgName</key><string>x</string>")));
    EXPECT_FALSE(parseMuxRequest(plistDocument("<key>MessageType</key><integer>1</integer>")));
    EXPECT_FALSE(parseMuxRequest("<?xml version=\"1.0\"?><plist version=\"1.0\"><array>"
                                 "<string>ListDevices</string></array></plist>"));
    EXPECT_FALSE(
        parseMuxRequest(plistDocument("<key>MessageType</key><string>ListDevi&#0;ces</string>")));
    EXPECT_FALSE(
        parseMuxRequest(plistDocument("<key>MessageType</key><string>ReadPairRecord</string>"
                                      "<key>PairRecordID</key><string>ab&#0;cd</string>")));
    // Binary property lists are not part of the protocol.
    EXPECT_FALSE(parseMuxRequest("bplist00\xd1\x01\x02"s));
    std::string deep;
    for (int i = 0; i < 100; ++i) {
        deep += "<key>a</key><dict>";
    }
    for (int i = 0; i < 100; ++i) {
        deep += "</dict>";
    }
    EXPECT_FALSE(
        parseMuxRequest(plistDocument("<key>MessageType</key><string>Listen</string>" + deep)));
}

TEST(MuxMessageTest, ResultRepliesCarryTheTagAndNumber) {
    const auto message = encodeMuxResult(5, MuxResult::connectionRefused);
    const auto header = decodeMuxHeader(message);
    ASSERT_TRUE(header);
    EXPECT_EQ(header->length, message.size());
    EXPECT_EQ(header->version, 1u);
    EXPECT_EQ(header->message, 8u);
    EXPECT_EQ(header->tag, 5u);
    const auto reply = parseMuxReply(std::string_view(message).substr(16));
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->kind, MuxReply::Kind::result);
    EXPECT_EQ(reply->number, 3u);
    EXPECT_NE(message.find("<key>MessageType</key>\n\t<string>Result</string>"), std::string::npos);
    EXPECT_NE(message.find("<key>Number</key>\n\t<integer>3</integer>"), std::string::npos);
}

// A device list as usbmuxd 1.1.1 writes it for one USB phone.
const std::string kUsbDeviceList =
    plistDocument("<key>DeviceList</key><array><dict>"
                  "<key>DeviceID</key><integer>4</integer>"
                  "<key>MessageType</key><string>Attached</string>"
                  "<key>Properties</key><dict>"
                  "<key>ConnectionSpeed</key><integer>480000000</integer>"
                  "<key>ConnectionType</key><string>USB</string>"
                  "<key>DeviceID</key><integer>4</integer>"
                  "<key>LocationID</key><integer>0</integer>"
                  "<key>ProductID</key><integer>4776</integer>"
                  "<key>SerialNumber</key><string>00008110001A2B3C4D5E6F70</string>"
                  "</dict></dict></array>");

TEST(MuxMessageTest, UsbDevicesPassThroughWithEveryProperty) {
    const auto reply = parseMuxReply(kUsbDeviceList);
    ASSERT_TRUE(reply);
    EXPECT_EQ(reply->kind, MuxReply::Kind::answer);
    const auto devices = deviceListOf(*reply);
    ASSERT_TRUE(devices);
    ASSERT_EQ(devices->size(), 1u);
    const auto& device = devices->front();
    EXPECT_EQ(device.deviceId, 4u);
    EXPECT_EQ(device.serialNumber, "00008110001A2B3C4D5E6F70");
    EXPECT_EQ(device.connection, MuxDevice::Connection::usb);

    const auto again = encodeMuxDeviceList(9, *devices);
    EXPECT_EQ(decodeMuxHeader(again)->tag, 9u);
    const auto reparsed = parseMuxReply(std::string_view(again).substr(16));
    ASSERT_TRUE(reparsed);
    const plist_t list = plist_dict_get_item(reparsed->dictionary.get(), "DeviceList");
    ASSERT_EQ(plist_array_get_size(list), 1u);
    const plist_t entry = plist_array_get_item(list, 0);
    EXPECT_EQ(stringIn(entry, "MessageType"), "Attached");
    EXPECT_EQ(integerIn(entry, "DeviceID"), 4u);
    const plist_t properties = plist_dict_get_item(entry, "Properties");
    EXPECT_EQ(integerIn(properties, "ProductID"), 4776u);
    EXPECT_EQ(integerIn(properties, "ConnectionSpeed"), 480000000u);
    EXPECT_EQ(stringIn(properties, "ConnectionType"), "USB");
}

TEST(MuxMessageTest, NetworkEntriesHaveEveryPropertyTheClientsRead) {
    MuxDevice phone;
    phone.deviceId = 0x10001;
    phone.serialNumber = "00008110001A2B3C4D5E6F70";
    phone.connection = MuxDevice::Connection::network;
    NetworkAddress address;
    address.bytes = {10, 0, 0, 7};
    address.port = 62078;
    phone.address = address;
    phone.serviceName = "aa:bb:cc:dd:ee:ff@fe80::1._apple-mobdev2._tcp.local.";
    phone.interfaceIndex = 2;

    const auto message = encodeMuxDeviceList(1, {phone});
    const auto reply = parseMuxReply(std::string_view(message).substr(16));
    ASSERT_TRUE(reply);
    const plist_t entry =
        plist_array_get_item(plist_dict_get_item(reply->dictionary.get(), "DeviceList"), 0);
    const plist_t properties = plist_dict_get_item(entry, "Properties");
    EXPECT_EQ(stringIn(properties, "ConnectionType"), "Network");
    EXPECT_EQ(integerIn(properties, "DeviceID"), 0x10001u);
    EXPECT_EQ(stringIn(properties, "SerialNumber"), "00008110001A2B3C4D5E6F70");
    EXPECT_EQ(dataIn(properties, "NetworkAddress"),
              "\x10\x02\xF2\x7E\x0A\x00\x00\x07\0\0\0\0\0\0\0\0"s);
    EXPECT_EQ(stringIn(properties, "EscapedFullServiceName"), phone.serviceName);
    EXPECT_EQ(integerIn(properties, "InterfaceIndex"), 2u);

    const auto devices = deviceListOf(*reply);
    ASSERT_TRUE(devices);
    ASSERT_EQ(devices->size(), 1u);
    EXPECT_EQ(devices->front().address, address);
}

TEST(MuxMessageTest, OneUnusableEntryRejectsTheWholeList) {
    const std::string good = "<dict><key>Properties</key><dict>"
                             "<key>ConnectionType</key><string>USB</string>"
                             "<key>DeviceID</key><integer>1</integer>"
                             "<key>SerialNumber</key><string>abc</string></dict></dict>";
    const auto listWith = [&](const std::string& second) {
        const auto reply = parseMuxReply(
            plistDocument("<key>DeviceList</key><array>" + good + second + "</array>"));
        return reply ? deviceListOf(*reply) : std::nullopt;
    };
    ASSERT_TRUE(listWith(""));
    EXPECT_EQ(listWith("")->size(), 1u);
    const std::string bad[] = {
        // no serial
        "<dict><key>Properties</key><dict><key>ConnectionType</key><string>USB</string>"
        "<key>DeviceID</key><integer>2</integer></dict></dict>",
        // unknown connection type
        "<dict><key>Properties</key><dict><key>ConnectionType</key><string>usb</string>"
        "<key>DeviceID</key><integer>2</integer><key>SerialNumber</key><string>x</string>"
        "</dict></dict>",
        // a network entry without an address
        "<dict><key>Properties</key><dict><key>ConnectionType</key><string>Network</string>"
        "<key>DeviceID</key><integer>2</integer><key>SerialNumber</key><string>x</string>"
        "</dict></dict>",
        // device 0 would hide everything after it
        "<dict><key>Properties</key><dict><key>ConnectionType</key><string>USB</string>"
        "<key>DeviceID</key><integer>0</integer><key>SerialNumber</key><string>x</string>"
        "</dict></dict>",
        // no Properties
        "<dict><key>DeviceID</key><integer>2</integer></dict>",
        "<string>x</string>",
    };
    for (const auto& entry : bad) {
        EXPECT_FALSE(listWith(entry)) << entry;
    }
}

TEST(MuxMessageTest, EventsAreClassifiedAsTheClientDoes) {
    const auto detached = parseMuxReply(plistDocument(
        "<key>DeviceID</key><integer>3</integer><key>MessageType</key><string>Detached</string>"));
    ASSERT_TRUE(detached);
    EXPECT_EQ(detached->kind, MuxReply::Kind::detached);
    EXPECT_EQ(detached->deviceId, 3u);

    const auto attached = parseMuxReply(
        plistDocument("<key>DeviceID</key><integer>3</integer>"
                      "<key>MessageType</key><string>Attached</string>"
                      "<key>Properties</key><dict><key>ConnectionType</key><string>USB</string>"
                      "<key>DeviceID</key><integer>3</integer>"
                      "<key>SerialNumber</key><string>abc</string></dict>"));
    ASSERT_TRUE(attached);
    EXPECT_EQ(attached->kind, MuxReply::Kind::attached);
    ASSERT_TRUE(attached->device);
    EXPECT_EQ(attached->device->serialNumber, "abc");

    EXPECT_FALSE(parseMuxReply(plistDocument("<key>MessageType</key><string>Hello</string>")));
    const auto detachedMessage = encodeMuxDetached(0, 3);
    const auto reparsed = parseMuxReply(std::string_view(detachedMessage).substr(16));
    ASSERT_TRUE(reparsed);
    EXPECT_EQ(reparsed->kind, MuxReply::Kind::detached);
    EXPECT_EQ(reparsed->deviceId, 3u);
}

TEST(MuxMessageTest, BuidAndPairRecordAnswersHaveNoMessageType) {
    const auto buid = parseMuxReply(std::string_view(encodeMuxBuid(4, "ABC-123")).substr(16));
    ASSERT_TRUE(buid);
    EXPECT_EQ(buid->kind, MuxReply::Kind::answer);
    EXPECT_EQ(stringIn(buid->dictionary.get(), "BUID"), "ABC-123");

    const std::string record = "bplist00\x01\x02\0\xff"s;
    const auto pair = parseMuxReply(std::string_view(encodeMuxPairRecord(3, record)).substr(16));
    ASSERT_TRUE(pair);
    EXPECT_EQ(pair->kind, MuxReply::Kind::answer);
    EXPECT_EQ(dataIn(pair->dictionary.get(), "PairRecordData"), record);
}

TEST(MuxMessageTest, OurRequestsReadBackAsSent) {
    MuxRequest connect;
    connect.type = MuxRequestType::connect;
    connect.messageType = "Connect";
    connect.deviceId = 12;
    connect.port = 62078;
    const auto dictionary = muxRequestDictionary(connect, "tovrin");
    EXPECT_EQ(integerIn(dictionary.get(), "PortNumber"), 32498u);
    const auto message = encodeMuxMessage(2, dictionary);
    const auto parsed = parseMuxRequest(std::string_view(message).substr(16));
    ASSERT_TRUE(parsed);
    EXPECT_EQ(parsed->type, MuxRequestType::connect);
    EXPECT_EQ(parsed->deviceId, 12u);
    EXPECT_EQ(parsed->port, 62078);
}

} // namespace
} // namespace ambrel
