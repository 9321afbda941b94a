#!/usr/bin/env python3
"""A simulated iPhone for the real libimobiledevice tools (idevice_id, ideviceinfo).

It plays two parts the tools talk to:

* usbmuxd, on a UNIX socket (point the tools at it with USBMUXD_SOCKET_ADDRESS=UNIX:<path>):
  ListDevices, Listen, ReadBUID, ReadPairRecord, SavePairRecord, DeletePairRecord, Connect;
* lockdownd of each simulated device: in-process over the usbmuxd socket after a Connect
  (USB), or on its own loopback address at port 62078 (Wi-Fi), where the tools connect
  directly.

A scenario file (JSON) describes the devices, their values and their faults. The simulator
prints one JSON line ("ready") on standard output once it listens, writes request counts to a
stats file after every change, and ends by itself after its lifetime or on SIGTERM/SIGINT.
SIGUSR1 pulls the cable: the USB entries go and usbmuxd with them (its socket and every open
exchange close), while lockdown over Wi-Fi goes on and the phones keep their pairing and
settings. SIGUSR2 puts the Wi-Fi of every phone with an advert to sleep, or wakes it (see
"advert" and "wifiSchedule").

Like a real phone, a device answers lockdown over Wi-Fi only while its "EnableWifiConnections"
(domain com.apple.mobile.wireless_lockdown, scenario key wifiConnections, false unless set) is
on. While it is off, its loopback address stays reserved but nothing listens on port 62078, so
a connection is refused at once and the tools report "Could not connect to lockdownd: Mux error
(-8)", just as for the unreachable fault. A SetValue that turns it on (over USB, within a
session) makes the address answer before the reply is sent; turning it off stops it again.
Exchanges already under way are left alone.

Standard library only; nothing secret is stored or made (see DeviceKey).

Scenario file:

{
  "lifetime": 30,                   # seconds; optional, the command line wins
  "usbmuxd": "normal",              # normal | absent | hang | close | no_listdevices
  "buid": "…",                      # optional SystemBUID
  "listsNetwork": true,             # false: usbmuxd lists USB entries only, as Debian's 1.1.1
  "devices": [
    {
      "udid": "00008110001A2B3C4D5E6F70",   # the SerialNumber usbmuxd reports
      "connection": "usb",                   # usb | network | both
      "address": "auto",                     # network: a 127.x.y.z address or "auto"
      "DeviceName": "Sim iPhone", "ProductType": "iPhone14,2", "ProductVersion": "17.5.1",
      "battery": {"BatteryCurrentCapacity": 87, "BatteryIsCharging": false,
                  "ExternalConnected": false},
      "values": {…},                         # more root values (override the defaults; a
                                             # null one leaves that key out)
      "domains": {"com.apple.x": {…}},       # more domains
      "fault": "locked"                      # optional shorthand, see FAULTS
      # or the settings themselves: locked, hostPairRecord (valid|none|without_host_id),
      # trustsHost, pairReply (accept|dialog|<lockdown error string>),
      # lockdown (normal|silent|silent_query|drop), usbConnect (accept|refuse|hang),
      # network (listen|unreachable), wifiConnections (true|false: the phone's
      # "EnableWifiConnections" as it starts; lockdown over Wi-Fi answers only while it is
      # on, see above), wifiSetReply (accept|<lockdown error string>)
      "hostId": "…",                         # optional fixed HostID of the host's pair record
      "recordWiFiMACAddress": "…",           # optional WiFiMACAddress in that record
      "trustDialog": "<path>",               # pairReply "dialog": the person's answer
      "advert": {                            # optional: announce the phone with avahi-publish
        "mac": "02:11:22:33:44:55",          #   the address in its name (default: WiFiAddress),
                                             #   a private Wi-Fi address when it differs
        "identifier": "…",                   #   TXT "identifier" (default: a new UUID)
        "tagsFor": ["<HostID>", …],          #   one TXT authTag per computer it paired with
        "tagsForHost": true,                 #   and one for the host's own pair record
        "host": "iphone-sim.local"           #   the host name its address is published under
      },
      "batteryEntry": {"CycleCount": 412, …},  # optional: the AppleSmartBattery registry
                                             # entry its diagnostics relay gives (see below)
      "diagnostics": "normal",               # normal | unavailable | silent
      "wifiSchedule": {"awake": 5, "asleep": 60, "startAsleep": false}
                                             # optional: Wi-Fi sleeps and wakes in turn; asleep,
                                             # the advert is withdrawn and lockdown over Wi-Fi
                                             # does not answer
    }
  ]
}

With pairReply "dialog" the phone shows its Trust dialog on a pair request and answers
PairingDialogResponsePending until the person has answered: "trust" or "deny" written to the
trustDialog file (nothing there: not yet). A pair request after "trust" succeeds, after "deny"
it gets UserDeniedPairing.

Inside a session, StartService of com.apple.mobile.diagnostics_relay opens a port of its own
for one connection (on the phone's Wi-Fi address, and reachable by a usbmuxd Connect), where the
relay answers IORegistry requests for the AppleSmartBattery entry, as idevicediagnostics'
"ioregentry" asks them, and Goodbye. "diagnostics": "unavailable" refuses the service
(InvalidService); "silent" opens it but never answers.

An advert needs avahi-daemon and avahi-publish (the publishers end with the simulator). Its
tags are computed as the phone computes them: HKDF-SHA512 of the HostID text (no salt, no info,
32 bytes) keys an HMAC-SHA256 of the identifier, whose first 8 bytes in base64 are the tag.

Values may be any JSON value; {"$data": "<base64>"}, {"$date": "<ISO 8601>"} and
{"$real": <number>} give the plist types JSON lacks.
"""

import argparse
import base64
import ctypes
import datetime
import hashlib
import hmac
import json
import os
import plistlib
import queue
import random
import signal
import socket
import struct
import subprocess
import sys
import time
import threading
import uuid

LOCKDOWN_PORT = 62078
USBMUX_PLIST_VERSION = 1
USBMUX_PLIST_MESSAGE = 8

# Named faults and the device settings each one stands for.
FAULTS = {
    "locked": {"locked": True},
    "locked_unpaired": {"locked": True, "hostPairRecord": "none"},
    "user_denied": {"hostPairRecord": "none", "pairReply": "UserDeniedPairing"},
    "dialog_pending": {"hostPairRecord": "none", "pairReply": "PairingDialogResponsePending"},
    "invalid_host_id": {"trustsHost": False},
    "missing_pair_record": {"hostPairRecord": "none", "pairReply": "accept"},
    "pair_record_without_host_id": {"hostPairRecord": "without_host_id"},
    "never_answers": {"lockdown": "silent"},
    "query_never_answered": {"lockdown": "silent_query"},
    "drop": {"lockdown": "drop"},
    "connect_refused": {"usbConnect": "refuse"},
    "connect_hang": {"usbConnect": "hang"},
    "unreachable": {"network": "unreachable"},
}

DEFAULT_SETTINGS = {
    "locked": False,
    "hostPairRecord": "valid",
    "trustsHost": True,
    "pairReply": "accept",
    "lockdown": "normal",
    "usbConnect": "accept",
    "network": "listen",
    "wifiConnections": False,
    "wifiSetReply": "accept",
    "diagnostics": "normal",
}

DIAGNOSTICS_RELAY = "com.apple.mobile.diagnostics_relay"

# The battery gauge's registry entry as the relay gives it (a few of its many keys).
DEFAULT_BATTERY_ENTRY = {
    "CycleCount": 412,
    "DesignCapacity": 3227,
    "NominalChargeCapacity": 2807,
    "AppleRawMaxCapacity": 2851,
    "Temperature": 3050,
    "CurrentCapacity": 87,
    "MaxCapacity": 100,
    "IsCharging": False,
    "ExternalConnected": False,
    "BatteryData": {"DesignCapacity": 3227, "CycleCount": 412},
}

# How long a port opened by StartService waits for its one connection.
SERVICE_WAIT = 30

# The domain of the phone's Wi-Fi connection setting; SetValue works inside a session only.
WIRELESS_LOCKDOWN = "com.apple.mobile.wireless_lockdown"

# Keys a phone gives out before a session is started.
PUBLIC_KEYS = {
    "ProductVersion", "DeviceName", "ProductType", "UniqueDeviceID", "BuildVersion",
    "DeviceClass", "DevicePublicKey", "WiFiAddress", "ProductName", "HardwareModel",
}

USBMUX_RESULT_OK = 0
USBMUX_RESULT_BADCOMMAND = 1
USBMUX_RESULT_BADDEV = 2
USBMUX_RESULT_CONNREFUSED = 3


def plist_value(value):
    """Turns a scenario value into the Python value plistlib writes with the intended type."""
    if isinstance(value, dict):
        if len(value) == 1:
            (tag, inner), = value.items()
            if tag == "$data":
                return base64.b64decode(inner)
            if tag == "$date":
                return datetime.datetime.fromisoformat(inner.replace("Z", "+00:00")).replace(
                    tzinfo=None)
            if tag == "$real":
                return float(inner)
        return {str(k): plist_value(v) for k, v in value.items()}
    if isinstance(value, list):
        return [plist_value(v) for v in value]
    return value


def normalized_udid(serial):
    """The form the tools use: a 24-character serial gets a dash after its 8th character."""
    if len(serial) == 24 and "-" not in serial:
        return serial[:8] + "-" + serial[8:]
    return serial


def recv_exact(sock, count):
    """Reads exactly `count` bytes, or returns None when the peer closes first."""
    chunks = []
    while count > 0:
        try:
            chunk = sock.recv(count)
        except OSError:
            return None
        if not chunk:
            return None
        chunks.append(chunk)
        count -= len(chunk)
    return b"".join(chunks)


def wait_for_close(sock):
    """Keeps a connection open without answering until the peer gives up."""
    try:
        while sock.recv(4096):
            pass
    except OSError:
        pass


class Stats:
    """Request counts, rewritten to a JSON file after every change so tests can read them."""

    def __init__(self, path):
        self.path = path
        self.lock = threading.Lock()
        self.data = {"usbmuxd": {"connections": 0, "requests": {}}, "devices": {},
                     "addresses": {}, "pairRecordsSaved": []}

    def add_device(self, udid):
        with self.lock:
            self.data["devices"].setdefault(udid, {
                "connections": 0, "usbConnections": 0, "networkConnections": 0,
                "connectRequests": 0, "trustDialogShown": 0, "requests": {}, "getValue": {},
                "setValue": {}, "diagnosticsConnections": 0, "diagnosticsRequests": {}})
        self.save()

    def usbmuxd_connection(self):
        with self.lock:
            self.data["usbmuxd"]["connections"] += 1
        self.save()

    def usbmuxd_request(self, message_type):
        with self.lock:
            requests = self.data["usbmuxd"]["requests"]
            requests[message_type] = requests.get(message_type, 0) + 1
        self.save()

    def device_event(self, udid, field):
        with self.lock:
            self.data["devices"][udid][field] += 1
        self.save()

    def lockdown_request(self, udid, request, query=None):
        with self.lock:
            device = self.data["devices"][udid]
            device["requests"][request] = device["requests"].get(request, 0) + 1
            if query is not None:
                counts = device["setValue" if request == "SetValue" else "getValue"]
                counts[query] = counts.get(query, 0) + 1
        self.save()

    def diagnostics_request(self, udid, request):
        with self.lock:
            counts = self.data["devices"][udid]["diagnosticsRequests"]
            counts[request] = counts.get(request, 0) + 1
        self.save()

    def set_address(self, udid, address):
        with self.lock:
            self.data["addresses"][udid] = address
        self.save()

    def wifi_connections(self, udid, enabled):
        with self.lock:
            self.data["devices"][udid]["wifiConnections"] = enabled
        self.save()

    def wifi_sleep_state(self, udid, asleep):
        with self.lock:
            self.data["devices"][udid]["wifiAsleep"] = asleep
        self.save()

    def wifi_sleep(self, udid, asleep):
        with self.lock:
            device = self.data["devices"][udid]
            device["wifiAsleep"] = asleep
            if not asleep:
                device["wifiWakes"] = device.get("wifiWakes", 0) + 1
        self.save()

    def unplugged(self):
        with self.lock:
            self.data["unplugged"] = True
        self.save()

    def pair_record_saved(self, record_id):
        with self.lock:
            self.data["pairRecordsSaved"].append(record_id)
        self.save()

    def save(self):
        with self.lock:
            text = json.dumps(self.data, indent=1, sort_keys=True)
            temporary = self.path + ".part"
            with open(temporary, "w", encoding="utf-8") as stream:
                stream.write(text)
            os.replace(temporary, self.path)


def auth_tag(host_id, identifier):
    """The tag an advert carries for the computer whose pairing has `host_id`."""
    # HKDF-SHA512 (RFC 5869) without salt or info, one 64-byte block, of which 32 are used.
    pseudo_random_key = hmac.new(bytes(64), host_id.encode("utf-8"), hashlib.sha512).digest()
    key = hmac.new(pseudo_random_key, b"\x01", hashlib.sha512).digest()[:32]
    digest = hmac.new(key, identifier.encode("utf-8"), hashlib.sha256).digest()
    return base64.b64encode(digest[:8]).decode("ascii")


def end_with_parent():
    """Run in a publisher's child before exec: it gets SIGTERM when the simulator ends (strictly,
    when the thread that started it ends: publishers are started from threads that last)."""
    libc = ctypes.CDLL(None, use_errno=True)
    libc.prctl(1, signal.SIGTERM)  # PR_SET_PDEATHSIG


class Advertiser:
    """The phone's _apple-mobdev2._tcp advert, through two avahi-publish processes."""

    def __init__(self, device, config):
        self.device = device
        self.mac = config.get("mac", device.values["WiFiAddress"]).lower()
        self.identifier = config.get("identifier", str(uuid.uuid4()).upper())
        hosts = list(config.get("tagsFor", []))
        if config.get("tagsForHost", False) and device.host_id is not None:
            hosts.append(device.host_id)
        self.tags = [auth_tag(host, self.identifier) for host in hosts]
        self.host = config.get("host", "iphone-%s.local" % device.udid[-6:].lower())
        self.processes = []

    @property
    def name(self):
        return self.mac + "@fe80::f099:bfff:fe10:2030"

    def txt(self):
        entries = []
        if self.tags:
            entries.append("identifier=" + self.identifier)
            for index, tag in enumerate(self.tags):
                entries.append(("authTag" if index == 0 else "authTag#%d" % index) + "=" + tag)
        return entries

    def publish(self):
        if self.processes:
            return
        commands = [
            ["avahi-publish", "-a", "-R", self.host, self.device.address],
            ["avahi-publish", "-s", "-H", self.host, self.name, "_apple-mobdev2._tcp",
             str(LOCKDOWN_PORT)] + self.txt(),
        ]
        for command in commands:
            try:
                self.processes.append(subprocess.Popen(
                    command, stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                    stderr=subprocess.DEVNULL, preexec_fn=end_with_parent))
            except OSError as error:
                # Without avahi-publish the phone is simply not announced.
                print("advert not published: %s" % error, file=sys.stderr, flush=True)

    def withdraw(self):
        processes, self.processes = self.processes, []
        for process in processes:
            process.terminate()
        for process in processes:
            try:
                process.wait(timeout=5)
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()


def der_length(length):
    if length < 0x80:
        return bytes([length])
    encoded = length.to_bytes((length.bit_length() + 7) // 8, "big")
    return bytes([0x80 | len(encoded)]) + encoded


def der_integer(value):
    encoded = value.to_bytes(value.bit_length() // 8 + 1, "big")
    return b"\x02" + der_length(len(encoded)) + encoded


class DeviceKey:
    """The phone's RSA public key as PKCS#1 PEM, which the tools put into the certificate they
    make for the phone while pairing.

    Nothing ever encrypts to it or checks it against a private key, so a random 2048-bit odd
    modulus with the usual exponent serves: no key generation, nothing secret anywhere."""

    def __init__(self):
        modulus = random.SystemRandom().getrandbits(2048) | (1 << 2047) | 1
        body = der_integer(modulus) + der_integer(65537)
        der = b"\x30" + der_length(len(body)) + body
        text = base64.encodebytes(der).decode("ascii").replace("\n", "")
        lines = [text[i:i + 64] for i in range(0, len(text), 64)]
        self.pem = ("-----BEGIN RSA PUBLIC KEY-----\n" + "\n".join(lines)
                    + "\n-----END RSA PUBLIC KEY-----\n").encode("ascii")

    def get(self):
        return self.pem


class Device:
    """One simulated phone: its values, its faults and what it trusts."""

    def __init__(self, config, buid):
        self.udid = config["udid"]
        self.connection = config.get("connection", "usb")
        if self.connection not in ("usb", "network", "both"):
            raise ValueError("connection must be usb, network or both: " + self.connection)
        self.requested_address = config.get("address", "auto")
        self.address = None
        # The socket bound to the Wi-Fi address, and whether it listens (see Simulator).
        self.network_server = None
        self.network_listening = False
        settings = dict(DEFAULT_SETTINGS)
        if "fault" in config and config["fault"] is not None:
            if config["fault"] not in FAULTS:
                raise ValueError("unknown fault: " + str(config["fault"]))
            settings.update(FAULTS[config["fault"]])
        for key in DEFAULT_SETTINGS:
            if key in config:
                settings[key] = config[key]
        self.settings = settings
        self.lock = threading.Lock()
        self.trust_dialog = config.get("trustDialog")

        self.values = {
            "DeviceName": "Sim iPhone",
            "ProductType": "iPhone14,2",
            "ProductVersion": "17.5.1",
            "BuildVersion": "21F90",
            "DeviceClass": "iPhone",
            "ProductName": "iPhone OS",
            "HardwareModel": "D63AP",
            "UniqueDeviceID": self.udid,
            "WiFiAddress": "f0:99:bf:10:20:30",
        }
        for key in ("DeviceName", "ProductType", "ProductVersion"):
            if key in config:
                self.values[key] = config[key]
        self.values.update(plist_value(config.get("values", {})))
        # A phone that does not give one of the usual keys.
        self.values = {k: v for k, v in self.values.items() if v is not None}
        battery = config.get("battery", {
            "BatteryCurrentCapacity": 87, "BatteryIsCharging": False,
            "ExternalConnected": False})
        self.domains = {"com.apple.mobile.battery": plist_value(battery),
                        WIRELESS_LOCKDOWN: {
                            "EnableWifiConnections": bool(settings["wifiConnections"])}}
        self.domains.update(plist_value(config.get("domains", {})))
        self.battery_entry = plist_value(config.get("batteryEntry", DEFAULT_BATTERY_ENTRY))
        # Ports opened by StartService and not yet connected to: port -> service name.
        self.services = {}

        # The host's pair record as usbmuxd keeps it, and the host ids the phone trusts.
        self.trusted_hosts = set()
        self.host_record = None
        # A fixed host id lets two runs (the phone on the cable, then on Wi-Fi) share a pairing.
        host_id = config.get("hostId", str(uuid.uuid4()).upper())
        self.host_id = host_id if settings["hostPairRecord"] == "valid" else None
        if settings["hostPairRecord"] == "valid":
            record = {"HostID": host_id, "SystemBUID": buid}
            if "recordWiFiMACAddress" in config:
                record["WiFiMACAddress"] = config["recordWiFiMACAddress"]
            self.host_record = plistlib.dumps(record, fmt=plistlib.FMT_BINARY)
            if settings["trustsHost"]:
                self.trusted_hosts.add(host_id)
        elif settings["hostPairRecord"] == "without_host_id":
            self.host_record = plistlib.dumps({"SystemBUID": buid}, fmt=plistlib.FMT_BINARY)
        elif settings["hostPairRecord"] != "none":
            raise ValueError("hostPairRecord must be valid, none or without_host_id")

        # Wi-Fi sleep: no advert, and lockdown over Wi-Fi does not answer.
        self.schedule = config.get("wifiSchedule")
        self.asleep = bool(self.schedule and self.schedule.get("startAsleep", False))
        self.advertiser = Advertiser(self, config["advert"]) if "advert" in config else None

    @property
    def uses_usb(self):
        return self.connection in ("usb", "both")

    @property
    def uses_network(self):
        return self.connection in ("network", "both")

    def trusts(self, host_id):
        with self.lock:
            return host_id in self.trusted_hosts

    def trust(self, host_id):
        with self.lock:
            self.trusted_hosts.add(host_id)


class Simulator:
    def __init__(self, scenario, socket_path, stats):
        self.scenario = scenario
        self.socket_path = socket_path
        self.stats = stats
        self.mode = scenario.get("usbmuxd", "normal")
        if self.mode not in ("normal", "absent", "hang", "close", "no_listdevices"):
            raise ValueError("usbmuxd must be normal, absent, hang, close or no_listdevices")
        self.buid = scenario.get("buid", str(uuid.uuid4()).upper())
        self.devices = [Device(config, self.buid) for config in scenario.get("devices", [])]
        self.device_key = DeviceKey()
        # usbmuxd's pair records, keyed by the tools' form of the udid.
        self.pair_records = {}
        self.records_lock = threading.Lock()
        # Entries of the device list: (DeviceID, device, "USB" or "Network").
        self.entries = []
        next_id = 1
        for device in self.devices:
            stats.add_device(device.udid)
            stats.wifi_connections(
                device.udid, device.domains[WIRELESS_LOCKDOWN]["EnableWifiConnections"])
            if device.advertiser is not None or device.schedule:
                stats.wifi_sleep_state(device.udid, device.asleep)
            if device.host_record is not None:
                self.pair_records[normalized_udid(device.udid)] = device.host_record
            if device.uses_usb:
                self.entries.append((next_id, device, "USB"))
                next_id += 1
            if device.uses_network and scenario.get("listsNetwork", True):
                self.entries.append((next_id, device, "Network"))
                next_id += 1
        self.listeners = []
        self.closing = False
        self.sleep_toggles = queue.Queue()
        self.usbmuxd_server = None
        # usbmuxd's open exchanges (Listen streams, USB tunnels), closed when the cable goes.
        self.usbmuxd_connections = set()
        self.connections_lock = threading.Lock()

    # -- start-up ------------------------------------------------------------------------

    def start(self):
        for device in self.devices:
            if device.uses_network:
                self.open_network_listener(device)
                if device.advertiser is not None and not device.asleep:
                    device.advertiser.publish()
                if device.schedule:
                    threading.Thread(target=self.run_wifi_schedule, args=(device,),
                                     daemon=True).start()
        threading.Thread(target=self.follow_sleep_toggles, daemon=True).start()
        if self.mode != "absent":
            server = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
            server.bind(self.socket_path)
            server.listen(16)
            self.listeners.append(server)
            self.usbmuxd_server = server
            threading.Thread(target=self.accept_loop, args=(server, self.serve_usbmuxd),
                             daemon=True).start()

    def run_wifi_schedule(self, device):
        """Wi-Fi sleeps and wakes in turn, for as long as the simulator runs."""
        awake_for = float(device.schedule.get("awake", 5))
        asleep_for = float(device.schedule.get("asleep", 60))
        while True:
            time.sleep(asleep_for if device.asleep else awake_for)
            self.set_asleep(device, not device.asleep)

    def toggle_wifi_sleep(self):
        """SIGUSR2: every phone that advertises itself goes to sleep, or wakes."""
        self.sleep_toggles.put(True)

    def follow_sleep_toggles(self):
        # One thread for the whole run: a publisher ends with the thread that started it.
        while True:
            self.sleep_toggles.get()
            for device in self.devices:
                if device.advertiser is not None:
                    self.set_asleep(device, not device.asleep)

    def set_asleep(self, device, asleep):
        with device.lock:
            if self.closing:
                return
            device.asleep = asleep
        if device.advertiser is not None:
            if asleep:
                device.advertiser.withdraw()
            else:
                device.advertiser.publish()
        self.follow_wifi_setting(device)
        self.stats.wifi_sleep(device.udid, asleep)

    def unplug(self):
        """The cable is pulled. Debian's usbmuxd ends when its last phone goes, so the socket
        disappears and every open exchange with it closes; Wi-Fi lockdown stays."""
        self.entries = [entry for entry in self.entries if entry[2] != "USB"]
        server, self.usbmuxd_server = self.usbmuxd_server, None
        if server is None:
            return
        try:
            os.unlink(self.socket_path)
        except OSError:
            pass
        for sock in [server] + self.open_usbmuxd_connections():
            try:
                # Wakes the thread blocked on it; closing alone would not.
                sock.shutdown(socket.SHUT_RDWR)
            except OSError:
                pass
        self.stats.unplugged()

    def open_usbmuxd_connections(self):
        with self.connections_lock:
            return list(self.usbmuxd_connections)

    def open_network_listener(self, device):
        """Binds the phone's own loopback address; nothing ever listens beyond loopback."""
        candidates = []
        if device.requested_address != "auto":
            if not device.requested_address.startswith("127."):
                raise ValueError("a Wi-Fi phone needs a 127.x.y.z address")
            candidates.append(device.requested_address)
        else:
            chooser = random.Random(os.getpid() * 7919 + len(self.listeners))
            for _ in range(200):
                candidates.append("127.%d.%d.%d" % (chooser.randint(1, 254),
                                                    chooser.randint(0, 255),
                                                    chooser.randint(1, 254)))
        for address in candidates:
            server = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
            try:
                server.bind((address, LOCKDOWN_PORT))
            except OSError:
                server.close()
                continue
            device.address = address
            self.stats.set_address(device.udid, address)
            if device.settings["network"] == "unreachable":
                # Bound only to be sure the address was free; closed so that nothing answers.
                server.close()
                return
            # The socket keeps the address for the whole run, listening or not.
            device.network_server = server
            self.listeners.append(server)
            self.follow_wifi_setting(device)
            return
        raise RuntimeError("no free loopback address for " + device.udid)

    def follow_wifi_setting(self, device):
        """Listens on the phone's address while its Wi-Fi connections are on, not otherwise."""
        with device.lock:
            server = device.network_server
            if server is None:
                return
            wanted = (bool(device.domains[WIRELESS_LOCKDOWN]["EnableWifiConnections"])
                       and not device.asleep)
            if wanted == device.network_listening:
                return
            if wanted:
                server.listen(16)
                threading.Thread(
                    target=self.accept_loop,
                    args=(server, lambda conn, d=device: self.serve_network(conn, d)),
                    daemon=True).start()
            else:
                # On Linux this ends listening (waking the accept) and keeps the address bound,
                # so a later listen() answers on the same address again.
                server.shutdown(socket.SHUT_RD)
            device.network_listening = wanted

    def accept_loop(self, server, handler):
        while True:
            try:
                connection, _ = server.accept()
            except OSError:
                return
            threading.Thread(target=self.run_handler, args=(handler, connection),
                             daemon=True).start()

    @staticmethod
    def run_handler(handler, connection):
        try:
            handler(connection)
        except Exception as error:  # pylint: disable=broad-except
            # One broken exchange must not take the other devices down; say so for the tests.
            print("simphone: %s: %s" % (type(error).__name__, error), file=sys.stderr,
                  flush=True)
        finally:
            try:
                connection.close()
            except OSError:
                pass

    # -- usbmuxd ---------------------------------------------------------------------------

    def device_record(self, device_id, device, kind):
        properties = {"DeviceID": device_id, "SerialNumber": device.udid,
                      "ConnectionType": kind}
        if kind == "USB":
            properties.update({"ConnectionSpeed": 480000000, "LocationID": 0x14100000 + device_id,
                               "ProductID": 0x12A8, "USBSerialNumber": device.udid})
        else:
            octets = bytes(int(part) for part in device.address.split("."))
            properties.update({
                "NetworkAddress": bytes([16, socket.AF_INET]) + struct.pack(">H", LOCKDOWN_PORT)
                + octets + bytes(8),
                "EscapedFullServiceName": device.values["WiFiAddress"]
                + "@fe80::f299:bfff:fe10:2030._apple-mobdev2._tcp.local.",
                "InterfaceIndex": 2})
        return properties

    def attached_entries(self):
        return [{"DeviceID": device_id, "MessageType": "Attached",
                 "Properties": self.device_record(device_id, device, kind)}
                for device_id, device, kind in self.entries]

    @staticmethod
    def send_usbmux(connection, tag, payload):
        body = plistlib.dumps(payload, fmt=plistlib.FMT_XML)
        header = struct.pack("<IIII", 16 + len(body), USBMUX_PLIST_VERSION,
                             USBMUX_PLIST_MESSAGE, tag)
        # One write: the client wants the whole header from a single read.
        connection.sendall(header + body)

    def send_result(self, connection, tag, number):
        self.send_usbmux(connection, tag, {"MessageType": "Result", "Number": number})

    def serve_usbmuxd(self, connection):
        with self.connections_lock:
            self.usbmuxd_connections.add(connection)
        try:
            self.serve_usbmuxd_exchange(connection)
        finally:
            with self.connections_lock:
                self.usbmuxd_connections.discard(connection)

    def serve_usbmuxd_exchange(self, connection):
        self.stats.usbmuxd_connection()
        if self.mode == "close":
            return
        header = recv_exact(connection, 16)
        if header is None:
            return
        length, _version, _message, tag = struct.unpack("<IIII", header)
        body = recv_exact(connection, length - 16) if length > 16 else b""
        if body is None:
            return
        request = plistlib.loads(body)
        message_type = request.get("MessageType", "")
        self.stats.usbmuxd_request(message_type)
        if self.mode == "hang":
            wait_for_close(connection)
            return

        if message_type == "ListDevices":
            if self.mode == "no_listdevices":
                self.send_result(connection, tag, USBMUX_RESULT_BADCOMMAND)
            else:
                self.send_usbmux(connection, tag, {"DeviceList": self.attached_entries()})
        elif message_type == "Listen":
            self.send_result(connection, tag, USBMUX_RESULT_OK)
            for entry in self.attached_entries():
                self.send_usbmux(connection, 0, entry)
            wait_for_close(connection)
        elif message_type == "ReadBUID":
            self.send_usbmux(connection, tag, {"BUID": self.buid})
        elif message_type == "ReadPairRecord":
            with self.records_lock:
                record = self.pair_records.get(request.get("PairRecordID", ""))
            if record is None:
                # Never Result 0 here: the client would read a record that is not there.
                self.send_result(connection, tag, USBMUX_RESULT_BADDEV)
            else:
                self.send_usbmux(connection, tag, {"PairRecordData": record})
        elif message_type == "SavePairRecord":
            record_id = request.get("PairRecordID", "")
            with self.records_lock:
                self.pair_records[record_id] = request.get("PairRecordData", b"")
            self.stats.pair_record_saved(record_id)
            self.send_result(connection, tag, USBMUX_RESULT_OK)
        elif message_type == "DeletePairRecord":
            with self.records_lock:
                self.pair_records.pop(request.get("PairRecordID", ""), None)
            self.send_result(connection, tag, USBMUX_RESULT_OK)
        elif message_type == "Connect":
            self.connect(connection, tag, request)
        else:
            self.send_result(connection, tag, USBMUX_RESULT_BADCOMMAND)

    def connect(self, connection, tag, request):
        device_id = request.get("DeviceID", 0)
        wire_port = request.get("PortNumber", 0)
        # The port arrives in network byte order read as a host integer.
        port = ((wire_port & 0xFF) << 8) | (wire_port >> 8)
        entry = next((e for e in self.entries if e[0] == device_id), None)
        if entry is None:
            self.send_result(connection, tag, USBMUX_RESULT_BADDEV)
            return
        device = entry[1]
        self.stats.device_event(device.udid, "connectRequests")
        behaviour = device.settings["usbConnect"]
        if behaviour == "hang":
            wait_for_close(connection)
            return
        service = None
        if port != LOCKDOWN_PORT:
            with device.lock:
                service = device.services.pop(port, None)
        if behaviour == "refuse" or (port != LOCKDOWN_PORT and service is None):
            self.send_result(connection, tag, USBMUX_RESULT_CONNREFUSED)
            return
        self.send_result(connection, tag, USBMUX_RESULT_OK)
        self.stats.device_event(device.udid, "usbConnections")
        if service is not None:
            self.serve_diagnostics(connection, device)
            return
        self.serve_lockdown(connection, device)

    def serve_network(self, connection, device):
        self.stats.device_event(device.udid, "networkConnections")
        self.serve_lockdown(connection, device)

    # -- lockdownd -------------------------------------------------------------------------

    @staticmethod
    def receive_plist(connection):
        """One length-prefixed property list, as lockdown and its services frame them; None
        when the peer closes or sends something that is no dictionary."""
        header = recv_exact(connection, 4)
        if header is None:
            return None
        (length,) = struct.unpack(">I", header)
        body = recv_exact(connection, length)
        if body is None:
            return None
        try:
            request = plistlib.loads(body)
        except Exception:  # pylint: disable=broad-except
            return None
        return request if isinstance(request, dict) else None

    @staticmethod
    def send_lockdown(connection, reply):
        body = plistlib.dumps(reply, fmt=plistlib.FMT_XML)
        connection.sendall(struct.pack(">I", len(body)) + body)

    def serve_lockdown(self, connection, device):
        self.stats.device_event(device.udid, "connections")
        session = None
        while True:
            request = self.receive_plist(connection)
            if request is None:
                return
            name = request.get("Request", "")
            query = None
            if name in ("GetValue", "SetValue"):
                query = "/".join(part for part in (request.get("Domain"), request.get("Key"))
                                 if part)
            self.stats.lockdown_request(device.udid, name, query)

            behaviour = device.settings["lockdown"]
            if behaviour == "drop":
                return
            if behaviour == "silent" or (behaviour == "silent_query" and name == "GetValue"
                                         and session is not None):
                wait_for_close(connection)
                return

            reply, session = self.lockdown_reply(device, request, session)
            self.send_lockdown(connection, reply)

    def lockdown_reply(self, device, request, session):
        """Returns the reply to one lockdown request and the session that follows it."""
        name = request.get("Request", "")
        reply = {"Request": name}
        if name == "QueryType":
            reply["Type"] = "com.apple.mobile.lockdown"
        elif name == "GetValue":
            reply.update(self.get_value(device, request, session is not None))
        elif name == "StartSession":
            if device.settings["locked"]:
                reply["Error"] = "PasswordProtected"
            elif not device.trusts(request.get("HostID")):
                reply["Error"] = "InvalidHostID"
            else:
                session = str(uuid.uuid4()).upper()
                reply.update({"SessionID": session, "EnableSessionSSL": False})
        elif name == "SetValue":
            reply.update(self.set_value(device, request, session is not None))
        elif name == "StopSession":
            session = None
        elif name == "Pair":
            answer = "PasswordProtected" if device.settings["locked"] else \
                device.settings["pairReply"]
            if answer == "dialog":
                answer = self.trust_dialog(device)
            record = request.get("PairRecord", {})
            if answer == "accept" and isinstance(record.get("HostID"), str):
                device.trust(record["HostID"])
                reply["EscrowBag"] = os.urandom(32)
            else:
                reply["Error"] = "PairingFailed" if answer == "accept" else answer
        elif name == "ValidatePair":
            if not device.trusts(request.get("PairRecord", {}).get("HostID")):
                reply["Error"] = "InvalidHostID"
        elif name == "StartService":
            reply.update(self.start_service(device, request, session is not None))
        elif name == "Goodbye":
            reply["Result"] = "Success"
        else:
            reply["Error"] = "UnknownRequest"
        return reply, session

    def start_service(self, device, request, in_session):
        """Opens a port for one connection to the diagnostics relay; no other service runs."""
        service = request.get("Service")
        reply = {"Service": service} if isinstance(service, str) else {}
        if not in_session:
            return dict(reply, Error="NoRunningSession")
        if service != DIAGNOSTICS_RELAY or device.settings["diagnostics"] == "unavailable":
            return dict(reply, Error="InvalidService")
        server = socket.socket(socket.AF_INET, socket.SOCK_STREAM)
        try:
            # On the phone's Wi-Fi address, where a tool on Wi-Fi connects; a phone on the
            # cable alone only needs a free port number for the Connect.
            server.bind((device.address or "127.0.0.1", 0))
            server.listen(1)
        except OSError:
            server.close()
            return dict(reply, Error="ServiceLimit")
        port = server.getsockname()[1]
        with device.lock:
            device.services[port] = service
        threading.Thread(target=self.serve_service_port, args=(server, port, device),
                         daemon=True).start()
        return dict(reply, Port=port, EnableServiceSSL=False)

    def serve_service_port(self, server, port, device):
        """Takes the one connection a started service waits for, if it comes in time."""
        server.settimeout(SERVICE_WAIT)
        try:
            connection, _ = server.accept()
        except OSError:
            connection = None
        finally:
            server.close()
        with device.lock:
            taken = device.services.pop(port, None) is not None
        if connection is None:
            return
        if not taken:
            # Already taken over usbmuxd.
            connection.close()
            return
        connection.settimeout(None)
        self.run_handler(lambda c: self.serve_diagnostics(c, device), connection)

    def serve_diagnostics(self, connection, device):
        """The diagnostics relay: registry entries of the battery, then Goodbye."""
        self.stats.device_event(device.udid, "diagnosticsConnections")
        while True:
            request = self.receive_plist(connection)
            if request is None:
                return
            name = request.get("Request", "")
            self.stats.diagnostics_request(device.udid, name)
            if device.settings["diagnostics"] == "silent":
                wait_for_close(connection)
                return
            if name == "Goodbye":
                self.send_lockdown(connection, {"Status": "Success"})
                return
            if name != "IORegistry":
                self.send_lockdown(connection, {"Status": "UnknownRequest"})
                continue
            wanted = {request.get("EntryName") or None, request.get("EntryClass") or None}
            if "AppleSmartBattery" in wanted:
                self.send_lockdown(connection, {"Status": "Success", "Diagnostics": {
                    "IORegistry": device.battery_entry}})
            else:
                self.send_lockdown(connection, {"Status": "Failure"})

    def trust_dialog(self, device):
        """The answer to a pair request while the phone asks its person whether to trust."""
        try:
            with open(device.trust_dialog, encoding="utf-8") as stream:
                said = stream.read().strip()
        except (OSError, TypeError):
            said = ""
        if said == "trust":
            return "accept"
        if said == "deny":
            return "UserDeniedPairing"
        self.stats.device_event(device.udid, "trustDialogShown")
        return "PairingDialogResponsePending"

    def get_value(self, device, request, in_session):
        domain = request.get("Domain")
        key = request.get("Key")
        if domain:
            reply = {"Domain": domain}
            if not in_session:
                return dict(reply, Error="GetProhibited")
            values = device.domains.get(domain)
            if values is None:
                return dict(reply, Error="MissingValue")
            if key:
                reply["Key"] = key
                if key not in values:
                    return dict(reply, Error="MissingValue")
                return dict(reply, Value=values[key])
            return dict(reply, Value=values)
        if key:
            reply = {"Key": key}
            if not in_session and key not in PUBLIC_KEYS:
                return dict(reply, Error="GetProhibited")
            if key == "DevicePublicKey":
                return dict(reply, Value=self.device_key.get())
            if key not in device.values:
                return dict(reply, Error="MissingValue")
            return dict(reply, Value=device.values[key])
        visible = {k: v for k, v in device.values.items() if in_session or k in PUBLIC_KEYS}
        return {"Value": visible}

    def set_value(self, device, request, in_session):
        """Only the Wi-Fi connection setting may be changed; like the phone, nothing outside a
        session."""
        domain = request.get("Domain")
        key = request.get("Key")
        reply = {k: v for k, v in (("Domain", domain), ("Key", key)) if v}
        if not in_session:
            return dict(reply, Error="SetProhibited")
        if domain != WIRELESS_LOCKDOWN or key != "EnableWifiConnections" \
                or not isinstance(request.get("Value"), bool):
            return dict(reply, Error="SetProhibited")
        answer = device.settings["wifiSetReply"]
        if answer != "accept":
            return dict(reply, Error=answer)
        with device.lock:
            device.domains[WIRELESS_LOCKDOWN]["EnableWifiConnections"] = request["Value"]
        # Before the reply: whoever turned it on may connect over Wi-Fi right after.
        self.follow_wifi_setting(device)
        self.stats.wifi_connections(device.udid, request["Value"])
        return reply

    def close(self):
        for device in self.devices:
            with device.lock:
                self.closing = True
        for device in self.devices:
            if device.advertiser is not None:
                device.advertiser.withdraw()
        for server in self.listeners:
            try:
                server.close()
            except OSError:
                pass
        if self.usbmuxd_server is not None:
            try:
                os.unlink(self.socket_path)
            except OSError:
                pass


def main():
    parser = argparse.ArgumentParser(description=__doc__.split("\n")[0])
    parser.add_argument("--scenario", required=True, help="scenario file (JSON)")
    parser.add_argument("--socket", required=True, help="path of the usbmuxd UNIX socket")
    parser.add_argument("--stats", required=True, help="path of the JSON stats file")
    parser.add_argument("--lifetime", type=float, help="seconds before the simulator ends")
    arguments = parser.parse_args()

    with open(arguments.scenario, encoding="utf-8") as stream:
        scenario = json.load(stream)
    lifetime = arguments.lifetime or float(scenario.get("lifetime", 60))

    stop = threading.Event()
    signal.signal(signal.SIGTERM, lambda *_: stop.set())
    signal.signal(signal.SIGINT, lambda *_: stop.set())

    stats = Stats(arguments.stats)
    simulator = Simulator(scenario, arguments.socket, stats)
    simulator.start()
    # Set before "ready" is printed, so that a test may pull the cable from then on.
    signal.signal(signal.SIGUSR1, lambda *_: simulator.unplug())
    signal.signal(signal.SIGUSR2, lambda *_: simulator.toggle_wifi_sleep())
    stats.save()
    ready = {"ready": True, "socket": arguments.socket,
             "addresses": {d.udid: d.address for d in simulator.devices if d.address},
             "adverts": {d.udid: {"name": d.advertiser.name, "txt": d.advertiser.txt()}
                         for d in simulator.devices if d.advertiser is not None}}
    print(json.dumps(ready), flush=True)

    stop.wait(lifetime)
    simulator.close()
    stats.save()
    sys.stdout.flush()
    # Threads may still be blocked in hanging exchanges; they go with the process.
    os._exit(0)


if __name__ == "__main__":
    main()
