#include "phone/PhoneHealthReader.h"

#include <string>

#include <gtest/gtest.h>

#include "phone/CommandRunner.h"
#include "tests/fakes/FakeProcessLauncher.h"

namespace ambrel {
namespace {

using testing::exitedWith;
using testing::FakeProcessLauncher;

// What the tool prints for a registry entry: the Diagnostics value, whose IORegistry is the
// entry's properties.
std::string entryOutput(const std::string& properties) {
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\">\n<dict>\n\t<key>IORegistry</key>\n\t<dict>\n" +
           properties + "\t</dict>\n</dict>\n</plist>\n";
}

std::string integer(const char* key, long long value) {
    return std::string("\t\t<key>") + key + "</key>\n\t\t<integer>" + std::to_string(value) +
           "</integer>\n";
}

TEST(PhoneHealthReaderTest, FullChargeAgainstDesignCyclesAndTemperature) {
    const auto health = PhoneHealthReader::parse(
        entryOutput(integer("CycleCount", 412) + integer("DesignCapacity", 3227) +
                    integer("NominalChargeCapacity", 2807) + integer("AppleRawMaxCapacity", 2900) +
                    integer("Temperature", 3050) + integer("CurrentCapacity", 80)));
    ASSERT_TRUE(health);
    // 2807 / 3227 = 86.98 %: the gauge's nominal charge comes before the raw maximum.
    EXPECT_EQ(health->maximumCapacity, 87);
    EXPECT_EQ(health->cycleCount, 412);
    ASSERT_TRUE(health->temperature);
    EXPECT_DOUBLE_EQ(*health->temperature, 30.5);
}

TEST(PhoneHealthReaderTest, RawMaximumAndBatteryDataWhenTheTopLacksThem) {
    const auto health = PhoneHealthReader::parse(entryOutput(
        integer("AppleRawMaxCapacity", 2900) + "\t\t<key>BatteryData</key>\n\t\t<dict>\n" +
        integer("DesignCapacity", 3000) + integer("CycleCount", 7) + "\t\t</dict>\n"));
    ASSERT_TRUE(health);
    EXPECT_EQ(health->maximumCapacity, 97);
    EXPECT_EQ(health->cycleCount, 7);
    EXPECT_FALSE(health->temperature);
}

TEST(PhoneHealthReaderTest, WhatIsUnknownOrImpossibleIsLeftOut) {
    // No design: no share; zero cycles and a boolean are no counts.
    auto health = PhoneHealthReader::parse(entryOutput(integer("NominalChargeCapacity", 2807) +
                                                       integer("CycleCount", 0) +
                                                       integer("Temperature", 2500)));
    ASSERT_TRUE(health);
    EXPECT_FALSE(health->maximumCapacity);
    EXPECT_FALSE(health->cycleCount);
    EXPECT_EQ(health->temperature, 25.0);
    // A design in the wrong unit, a temperature of 200 °C.
    health = PhoneHealthReader::parse(
        entryOutput(integer("NominalChargeCapacity", 2807) + integer("DesignCapacity", 3) +
                    integer("Temperature", 20000) + "\t\t<key>CycleCount</key>\n\t\t<true/>\n"));
    EXPECT_FALSE(health);
}

TEST(PhoneHealthReaderTest, AnythingButARegistryEntryIsNothing) {
    EXPECT_FALSE(PhoneHealthReader::parse(""));
    EXPECT_FALSE(PhoneHealthReader::parse("ERROR: Unable to retrieve IORegistry from device.\n"));
    EXPECT_FALSE(PhoneHealthReader::parse(entryOutput("")));
    EXPECT_FALSE(PhoneHealthReader::parse("<?xml version=\"1.0\"?><plist><dict><key>IORegistry"
                                          "</key><string>x</string></dict></plist>"));
    EXPECT_FALSE(PhoneHealthReader::parse(entryOutput(integer("CycleCount", 5)).substr(0, 150)));
}

TEST(PhoneHealthReaderTest, RunsTheToolForThePhoneOverItsLink) {
    FakeProcessLauncher launcher;
    launcher.enqueue(exitedWith(0, entryOutput(integer("CycleCount", 12))));
    launcher.enqueue(exitedWith(0, entryOutput(integer("CycleCount", 13))));
    auto health = PhoneHealthReader::read("/tools", "UDID1", PhoneLink::usb, launcher);
    ASSERT_TRUE(health);
    EXPECT_EQ(health->cycleCount, 12);
    health = PhoneHealthReader::read("/tools", "UDID1", PhoneLink::wifi, launcher);
    ASSERT_TRUE(health);
    EXPECT_EQ(health->cycleCount, 13);

    const auto launches = launcher.launches();
    ASSERT_EQ(launches.size(), 2u);
    EXPECT_EQ(launches[0].program, std::filesystem::path("/tools/idevicediagnostics"));
    EXPECT_EQ(launches[0].arguments,
              (std::vector<std::string>{"-u", "UDID1", "ioregentry", "AppleSmartBattery"}));
    EXPECT_EQ(launches[1].arguments,
              (std::vector<std::string>{"-n", "-u", "UDID1", "ioregentry", "AppleSmartBattery"}));
    EXPECT_EQ(launches[0].timeLimit, PhoneHealthReader::kTimeLimit);
    EXPECT_EQ(launches[0].outputCap, PhoneHealthReader::kLargestOutput);
}

TEST(PhoneHealthReaderTest, AFailedOrSilentRunIsNothing) {
    FakeProcessLauncher launcher;
    // What the tool prints when the phone is locked or the service refuses.
    launcher.enqueue(exitedWith(1, "ERROR: Could not connect to lockdownd, error code -17\n"));
    launcher.enqueue(exitedWith(0, "No device found with udid UDID1.\n"));
    EXPECT_FALSE(PhoneHealthReader::read("/tools", "UDID1", PhoneLink::usb, launcher));
    EXPECT_FALSE(PhoneHealthReader::read("/tools", "UDID1", PhoneLink::usb, launcher));
    // Nothing queued: the launch does not start.
    EXPECT_FALSE(PhoneHealthReader::read("/tools", "UDID1", PhoneLink::usb, launcher));
}

} // namespace
} // namespace ambrel
