#!/usr/bin/env python3
"""Writes the starting corpora of the fuzz targets into fuzz/corpus/<target>/.

The inputs are the shapes the program meets: the tools' answers and error texts, saved
readings, and the power-supply trees of tests/fixtures/power_supply (one input per tree, in the
record form the power_supply target reads). Run it again after adding a fixture; it replaces
the files it writes and leaves others alone.
"""

import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))
ROOT = os.path.dirname(HERE)
CORPUS = os.path.join(HERE, "corpus")


def write(target, name, data):
    folder = os.path.join(CORPUS, target)
    os.makedirs(folder, exist_ok=True)
    if isinstance(data, str):
        data = data.encode("utf-8")
    with open(os.path.join(folder, name), "wb") as output:
        output.write(data)


def plist(body):
    return ('<?xml version="1.0" encoding="UTF-8"?>\n'
            '<!DOCTYPE plist PUBLIC "-//Apple//DTD PLIST 1.0//EN" '
            '"http://www.apple.com/DTDs/PropertyList-1.0.dtd">\n'
            '<plist version="1.0">\n' + body + '\n</plist>\n')


BATTERY = ("<dict>\n\t<key>BatteryCurrentCapacity</key>\n\t<integer>87</integer>\n"
           "\t<key>BatteryIsCharging</key>\n\t<false/>\n"
           "\t<key>ExternalConnected</key>\n\t<false/>\n"
           "\t<key>FullyCharged</key>\n\t<false/>\n"
           "\t<key>GasGaugeCapability</key>\n\t<true/>\n"
           "\t<key>HasBattery</key>\n\t<true/>\n</dict>")


def property_lists():
    write("property_list", "battery", plist(BATTERY))
    write("property_list", "battery-after-warning",
          "WARNING: could not read the pair record\n" + plist(BATTERY))
    write("property_list", "charging-real",
          plist("<dict><key>BatteryCurrentCapacity</key><real>99.5</real>"
                "<key>BatteryIsCharging</key><integer>1</integer></dict>"))
    write("property_list", "negative-and-huge",
          plist("<dict><key>a</key><integer>-1</integer><key>b</key>"
                "<integer>18446744073709551615</integer><key>c</key>"
                "<integer>-9223372036854775808</integer></dict>"))
    write("property_list", "every-kind",
          plist("<dict><key>s</key><string>Anna&apos;s &amp; &#x2019;</string>"
                "<key>d</key><data>AAECAw==</data><key>t</key><date>2026-11-14T09:41:00Z</date>"
                "<key>a</key><array><dict><key>x</key><true/></dict><array/></array>"
                "<key>e</key><dict/></dict>"))
    write("property_list", "top-level-array", plist("<array><integer>1</integer></array>"))
    write("property_list", "truncated", plist(BATTERY)[:160])
    write("property_list", "no-marker", "BatteryCurrentCapacity: 87\n")
    # A NUL byte inside a string once made libplist's text getter abort the program.
    write("property_list", "string-with-nul",
          plist("<dict><key>Name</key><string>a\0b</string><key>BatteryCurrentCapacity</key>"
                "<integer>5</integer></dict>"))


def identifier_lists():
    write("device_identifiers", "one-usb", "00008110-001A2B3C4D5E6F70\n")
    write("device_identifiers", "legacy-and-new",
          "3a2b1c0d4e5f60718293a4b5c6d7e8f901234567\n00008030-000A1B2C3D4E5F60\n")
    write("device_identifiers", "crlf-and-wide-breaks",
          "00008110-001A2B3C4D5E6F70\r\n\u2028 abcdef \u2029\x0b\x0c\u0085dead-beef")
    write("device_identifiers", "rejected",
          "abc;touch X\n$(touch X)\n00008110 001A\nfe:ed\n" + "a" * 129 + "\n")
    write("device_identifiers", "empty", "")


def classifier_input(text, status=255, failure=True, timed_out=False, saw=False, wifi=False):
    flags = (1 if failure else 0) | (2 if timed_out else 0) | (4 if saw else 0) | \
        (8 if wifi else 0)
    return bytes([flags]) + struct.pack("<i", status) + text.encode("utf-8")


def classifications():
    samples = {
        "locked": ("ERROR: Could not connect to lockdownd: Password protected (-17)\n", {}),
        "invalid-host-id": ("ERROR: Could not connect to lockdownd: Invalid HostID (-21)\n", {}),
        "dialog-pending": ("ERROR: Could not connect to lockdownd: Pairing dialog response "
                           "pending (-19)\n", {"wifi": True, "saw": True}),
        "denied": ("ERROR: Could not connect to lockdownd: User denied pairing (-18)\n", {}),
        "mux-error": ("ERROR: Could not connect to lockdownd: Mux error (-8)\n", {}),
        "device-list": ("ERROR: Unable to retrieve device list!\n", {}),
        "not-found": ("ERROR: Device 00008110-001A2B3C4D5E6F70 not found!\n", {"saw": True}),
        "battery-unavailable": ("Battery data unavailable", {"status": 1, "saw": True}),
        "timed-out": ("", {"status": -1, "timed_out": True, "wifi": True, "saw": True}),
        "launch-failure": ("Unable to launch iPhone helper", {"status": -1}),
        "overflowing-code": ("lockdownd (-99999999999999999999) (-17)", {}),
        "kelvin-and-dotted-i": ("\u212aEYCHAIN LOCKDOWN \u0130 device is locked", {}),
    }
    for name, (text, options) in samples.items():
        write("issue_classifier", name, classifier_input(text, **options))
    write("issue_classifier", "nothing-recorded", bytes([4 | 8]))


def texts():
    write("unicode_text", "ascii", "  00008110-001A2B3C4D5E6F70 \n")
    write("unicode_text", "wide", "\u00a0Anna\u2019s iPhone \U0001F50B\u3000\u2029")
    write("unicode_text", "ill-formed", b"\xc0\xaf\xed\xa0\x80\xf4\x90\x80\x80\xe2\x82 ok \xff")
    write("unicode_text", "combining", "e\u0301\U0001F1E9\U0001F1EA\r\n\u0085")


def snapshots():
    write("snapshot_json", "with-model",
          '{"id":"iphone","isCharging":false,"isPluggedIn":true,"lastUpdated":815305260.25,'
          '"model":"iPhone14,2","name":"Anna\u2019s iPhone","percentage":87,"source":"Wi-Fi"}')
    write("snapshot_json", "without-model",
          '{"id":"iphone","isCharging":true,"isPluggedIn":true,"lastUpdated":815305260,'
          '"name":"iPhone","percentage":100,"source":"USB"}')
    write("snapshot_json", "out-of-range",
          '{"id":"iphone","isCharging":false,"isPluggedIn":false,"lastUpdated":1e300,'
          '"name":"x","percentage":101.0,"source":"USB","model":null,"battery":3}')
    write("snapshot_json", "wrong-types",
          '{"id":"mac","isCharging":0,"isPluggedIn":"yes","lastUpdated":"now",'
          '"name":["x"],"percentage":-5,"source":"Mac"}')
    write("snapshot_json", "not-an-object", '[{"id":"iphone"}]')


def power_supplies():
    fixtures = os.path.join(ROOT, "tests", "fixtures", "power_supply")
    for tree in sorted(os.listdir(fixtures)):
        records = []
        for supply in sorted(os.listdir(os.path.join(fixtures, tree))):
            folder = os.path.join(fixtures, tree, supply)
            for attribute in sorted(os.listdir(folder)):
                with open(os.path.join(folder, attribute), "rb") as value:
                    records.append(supply.encode() + b"/" + attribute.encode() + b"=" +
                                   value.read())
        write("power_supply", tree, b"\0".join(records))


def mux_message(tag, body):
    payload = plist("<dict>" + body + "</dict>").encode("utf-8")
    return struct.pack("<IIII", 16 + len(payload), 1, 8, tag) + payload


def mux_messages():
    client = ("<key>ClientVersionString</key><string>libusbmuxd 2.0.2</string>"
              "<key>ProgName</key><string>ideviceinfo</string>"
              "<key>kLibUSBMuxVersion</key><integer>3</integer>")
    write("mux_message", "list-devices",
          mux_message(1, client + "<key>MessageType</key><string>ListDevices</string>"))
    write("mux_message", "connect",
          mux_message(2, client + "<key>MessageType</key><string>Connect</string>"
                      "<key>DeviceID</key><integer>1</integer>"
                      "<key>PortNumber</key><integer>32498</integer>"))
    write("mux_message", "read-pair-record",
          mux_message(3, client + "<key>MessageType</key><string>ReadPairRecord</string>"
                      "<key>PairRecordID</key><string>00008110-001A2B3C4D5E6F70</string>"))
    write("mux_message", "result", mux_message(4, "<key>MessageType</key><string>Result</string>"
                                                   "<key>Number</key><integer>0</integer>"))
    usb = ("<dict><key>DeviceID</key><integer>1</integer>"
           "<key>MessageType</key><string>Attached</string><key>Properties</key><dict>"
           "<key>ConnectionType</key><string>USB</string><key>DeviceID</key><integer>1</integer>"
           "<key>ProductID</key><integer>4776</integer>"
           "<key>SerialNumber</key><string>00008110001A2B3C4D5E6F70</string></dict></dict>")
    network = ("<dict><key>DeviceID</key><integer>65537</integer>"
               "<key>MessageType</key><string>Attached</string><key>Properties</key><dict>"
               "<key>ConnectionType</key><string>Network</string>"
               "<key>DeviceID</key><integer>65537</integer>"
               "<key>NetworkAddress</key><data>EALyfgoAAAcAAAAAAAAAAA==</data>"
               "<key>SerialNumber</key><string>00008110001A2B3C4D5E6F70</string></dict></dict>")
    write("mux_message", "device-list",
          mux_message(1, "<key>DeviceList</key><array>" + usb + network + "</array>"))
    write("mux_message", "detached", mux_message(0, "<key>DeviceID</key><integer>1</integer>"
                                                     "<key>MessageType</key><string>Detached</string>"))
    write("mux_message", "buid", mux_message(4, "<key>BUID</key><string>ABC</string>"))
    write("mux_message", "short-header", b"\x10\x00\x00")


if __name__ == "__main__":
    property_lists()
    identifier_lists()
    classifications()
    texts()
    snapshots()
    power_supplies()
    mux_messages()
