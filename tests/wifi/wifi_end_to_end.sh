#!/bin/bash
# The iPhone read over Wi-Fi as a user lives it, with a real avahi-daemon: in private network,
# mount and PID namespaces, a private system bus, avahi-daemon on one end of a veth pair,
# avahi-publish announcing the phone, and the simulated iPhone as the phone and as the
# system's usbmuxd at /run/usbmuxd. The program runs as `tovrin --readings`, `--diagnose` and
# `--enable-wifi` and starts its own muxer, as on a user's desktop; the window test drives the
# widget itself from the setup sheet through the connection window to a read over Wi-Fi.
#
#   wifi_end_to_end.sh <tovrin> <python3> <simphone.py> [<window test>]
#
# With TOVRIN_WIFI_PART=arrivals it runs the widget itself instead (offscreen, its state file
# read as a status bar reads it) and checks that the card follows the phone: a read as soon as
# it is plugged in or its advert arrives, private addresses with and without tags, two phones,
# Wi-Fi sleep and wake, and a flapping advert.
#
# Ends with 77 (skipped) where namespaces are refused.
set -u
TOVRIN=$1
PYTHON=$2
SIMPHONE=$3
WINDOW_TEST=${4:-}

if [ "${TOVRIN_WIFI_E2E_INSIDE:-}" != 1 ]; then
    if [ "$(id -u)" != 0 ]; then
        echo "SKIPPED: network, mount and PID namespaces need root here"
        exit 77
    fi
    if ! unshare --net --mount --pid --fork --mount-proc true 2>/dev/null; then
        echo "SKIPPED: this system refuses network, mount and PID namespaces"
        exit 77
    fi
    exec env TOVRIN_WIFI_E2E_INSIDE=1 unshare --net --mount --pid --fork --mount-proc \
        "$0" "$@"
fi

# From here on this shell is PID 1 of its own namespace: when it ends, every process it
# started ends with it.
set -e
UDID=00008110-001A2B3C4D5E6F70
SERIAL=00008110001A2B3C4D5E6F70
PHONE_MAC=f0:99:bf:10:20:30
PRIVATE_MAC=02:11:22:33:44:55
PHONE_ADDRESS=127.0.0.2
HOST_ID=5B7A1C52-4E4B-4D2B-9A05-1C1D0E2F3A4B
BUID=8C0F6E1A-2B3C-4D5E-8F90-A1B2C3D4E5F6
USB_STATUS="Connected by USB · unplug to test Wi-Fi"
WIFI_STATUS="Connected over Wi-Fi · checks every 5 min"
NOT_FOUND_STATUS="iPhone not found. Pair once by USB, enable Finder’s Wi-Fi option, and use the same Wi-Fi."

work=$(mktemp -d /tmp/tovrin-wifi-e2e.XXXXXX)
cleanup() { rm -rf "$work"; }
trap cleanup EXIT
failures=0
fail() { echo "FAILED: $*"; failures=$((failures + 1)); }

mount --make-rprivate /
mount -t tmpfs tmpfs /run
mkdir -p /run/dbus /run/avahi-daemon
if [ -d /var/lib/lockdown ]; then
    mount -t tmpfs tmpfs /var/lib/lockdown
fi

ip link set lo up
ip link add tovrin0 type veth peer name tovrin1
ip addr add 10.77.0.1/24 dev tovrin0
ip addr add 10.77.0.2/24 dev tovrin1
ip link set tovrin0 up
ip link set tovrin1 up

cat >"$work/system-bus.conf" <<'CONF'
<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>system</type>
  <listen>unix:path=/run/dbus/system_bus_socket</listen>
  <auth>EXTERNAL</auth>
  <policy context="default">
    <allow user="*"/>
    <allow own="*"/>
    <allow send_destination="*"/>
    <allow receive_sender="*"/>
  </policy>
  <includedir>/usr/share/dbus-1/system.d</includedir>
</busconfig>
CONF
# The daemon writes its address once it listens; its socket file shows up a moment before.
dbus-daemon --config-file="$work/system-bus.conf" --nofork --nopidfile --print-address=3 \
    2>"$work/bus.log" 3>"$work/bus.address" &
export DBUS_SYSTEM_BUS_ADDRESS=unix:path=/run/dbus/system_bus_socket
for _ in $(seq 100); do
    [ -s "$work/bus.address" ] && break
    sleep 0.1
done

cat >"$work/avahi-daemon.conf" <<'CONF'
[server]
host-name=tovrin-test-host
use-ipv4=yes
use-ipv6=yes
allow-interfaces=tovrin0
enable-dbus=yes
[wide-area]
enable-wide-area=no
[publish]
publish-workstation=no
publish-hinfo=no
publish-addresses=yes
CONF
start_avahi() {
    avahi-daemon -f "$work/avahi-daemon.conf" --no-drop-root --no-chroot --no-rlimits \
        >"$work/avahi.log" 2>&1 &
    AVAHI=$!
    for _ in $(seq 100); do
        if avahi-browse -a -t -p >/dev/null 2>&1; then
            return 0
        fi
        sleep 0.1
    done
    echo "avahi-daemon did not come up:"; cat "$work/avahi.log"
    exit 1
}
# publish_phone <mac> [<TXT entry>...]
publish_phone() {
    local mac=$1
    shift
    avahi-publish -a -R iphone-sim.local "$PHONE_ADDRESS" >"$work/publish-a.log" 2>&1 &
    PUBLISH_A=$!
    avahi-publish -s -H iphone-sim.local "$mac@fe80::f299:bfff:fe10:2030" _apple-mobdev2._tcp \
        62078 "$@" >"$work/publish-s.log" 2>&1 &
    PUBLISH_S=$!
    for _ in $(seq 100); do
        if avahi-browse -r -t -p _apple-mobdev2._tcp 2>/dev/null | grep -q "^=.*$PHONE_ADDRESS"; then
            return 0
        fi
        sleep 0.1
    done
    echo "the phone's advert did not resolve"; cat "$work"/publish-*.log
    exit 1
}
# Returns once avahi no longer reports the advert, so that a muxer started next never sees it.
unpublish_phone() {
    kill "$PUBLISH_A" "$PUBLISH_S" 2>/dev/null || true
    wait "$PUBLISH_A" "$PUBLISH_S" 2>/dev/null || true
    for _ in $(seq 100); do
        if ! avahi-browse -t -p _apple-mobdev2._tcp 2>/dev/null | grep -q "^+"; then
            return 0
        fi
        sleep 0.1
    done
    echo "the phone's advert did not go"
    exit 1
}

# The simulated iPhone: on the cable (the system's usbmuxd at /run/usbmuxd) or on Wi-Fi only
# (no usbmuxd at all, lockdown on its own address), always with the same pairing.
# A fourth argument adds settings to the phone's entry ('"fault": "…", '); a fifth, false, has
# the system's usbmuxd list USB entries only, as Debian's does.
start_phone() {
    local connection=$1 usbmuxd=$2 wifi=${3:-true} extra=${4:-} lists_network=${5:-true}
    cat >"$work/scenario.json" <<JSON
{"usbmuxd": "$usbmuxd", "buid": "$BUID", "listsNetwork": $lists_network,
 "devices": [{"udid": "$SERIAL", "connection": "$connection", "address": "$PHONE_ADDRESS", $extra
              "hostId": "$HOST_ID", "recordWiFiMACAddress": "$PHONE_MAC",
              "wifiConnections": $wifi,
              "battery": {"BatteryCurrentCapacity": 64, "BatteryIsCharging": false,
                          "ExternalConnected": false}}]}
JSON
    run_scenario 120
}
# run_scenario <lifetime>: the simulated iPhone of $work/scenario.json, as the system's usbmuxd
# at /run/usbmuxd; returns once it listens.
run_scenario() {
    "$PYTHON" "$SIMPHONE" --scenario "$work/scenario.json" --socket /run/usbmuxd \
        --stats "$work/stats.json" --lifetime "$1" >"$work/phone.out" 2>"$work/phone.err" &
    PHONE=$!
    for _ in $(seq 100); do
        if grep -q ready "$work/phone.out" 2>/dev/null; then
            return 0
        fi
        sleep 0.1
    done
    echo "the simulated iPhone did not start:"; cat "$work/phone.err"
    exit 1
}
stop_phone() {
    kill "$PHONE" 2>/dev/null || true
    wait "$PHONE" 2>/dev/null || true
    rm -f /run/usbmuxd
}

mkdir -p "$work/home" "$work/data" "$work/runtime"
chmod 700 "$work/runtime"
tovrin() {
    env -u USBMUXD_SOCKET_ADDRESS -u DISPLAY -u WAYLAND_DISPLAY HOME="$work/home" \
        XDG_DATA_HOME="$work/data" XDG_RUNTIME_DIR="$work/runtime" QT_QPA_PLATFORM=offscreen \
        LANG=en_US.UTF-8 timeout 120 "$TOVRIN" "$@"
}
readings() {
    tovrin --readings
}
# expect_checks <what> <exit code> <ok: every check passed> <statuses of the ten checks,
# comma-separated>. The exit code is 0 whenever the phone can be read, over USB or over Wi-Fi.
expect_checks() {
    local what=$1 code=$2 ok=$3 statuses=$4 report status=0 got
    report=$(tovrin --diagnose) || status=$?
    got=$("$PYTHON" -c 'import json,sys
r = json.loads(sys.argv[1])
print(",".join(c["status"] for c in r["checks"]) + "|" + str(r["ok"]).lower())' "$report" 2>&1) ||
        got="unreadable report: $report"
    if [ "$status" != "$code" ] || [ "$got" != "$statuses|$ok" ]; then
        fail "$what: expected exit $code and '$statuses|$ok', got exit $status and '$got'"
    else
        echo "ok: $what: $got"
    fi
}
# The checks that need the cable, as they come out when it is plugged in and every link works.
ALL_PASSED=passed,passed,passed,passed,passed,passed,passed,passed,passed,passed
# expect <what> <status> <source or "none">
expect() {
    local what=$1 status=$2 source=$3 report
    report=$(readings) || true
    local got
    got=$("$PYTHON" -c 'import json,sys
r = json.loads(sys.argv[1])
p = r.get("phone") or {}
print(r.get("phoneStatus", "") + "|" + str(p.get("source", "none")) + "|" + str(p.get("percentage")))' "$report" 2>&1) || got="unreadable report: $report"
    if [ "$got" != "$status|$source|64" ] && { [ "$source" != none ] || [ "${got%%|*}" != "$status" ]; }; then
        fail "$what: expected '$status' from '$source', got '$got'"
    else
        echo "ok: $what: $got"
    fi
}

finish() {
    if [ "$failures" -ne 0 ]; then
        echo "$failures steps failed; avahi-daemon said:"
        cat "$work/avahi.log"
        exit 1
    fi
    echo "every step passed"
    exit 0
}

start_avahi
case "${TOVRIN_WIFI_PART:-}" in
arrivals) . "$(dirname "$0")/arrivals.sh"; finish ;;
bench) . "$(dirname "$0")/arrival_bench.sh"; finish ;;
esac
publish_phone "$PHONE_MAC"

# 1. First read over USB: the program's muxer passes the cable through and keeps the pairing.
start_phone usb normal
expect "first read over USB" "$USB_STATUS" USB
stop_phone
records="$work/data/Ambrel/pair-records"
if [ "$(stat -c %a "$records" 2>/dev/null)" != 700 ] ||
    [ "$(stat -c %a "$records/$UDID.plist" 2>/dev/null)" != 600 ]; then
    fail "the kept pair record is not private: $(ls -la "$records" 2>&1)"
fi

# 2. On the cable and on the network with Wi-Fi connections off: the connection check names
# them, and the phone does not answer over Wi-Fi; --enable-wifi turns them on and then every
# check passes.
start_phone both normal false
expect_checks "connection check, Wi-Fi connections off (read over USB)" 0 false \
    passed,passed,passed,passed,failed,passed,passed,passed,failed,skipped
if enabled=$(tovrin --enable-wifi) && [ "$enabled" = "{\"udid\":\"$UDID\",\"wifiConnections\":true}" ]; then
    echo "ok: --enable-wifi: $enabled"
else
    fail "--enable-wifi: got '$enabled'"
fi
expect_checks "connection check, every link works" 0 true "$ALL_PASSED"
stop_phone

# 3. Unplugged: no system muxer at all; the phone is found through avahi and read over Wi-Fi.
start_phone network absent
expect "read over Wi-Fi" "$WIFI_STATUS" Wi-Fi
expect_checks "connection check, unplugged (read over Wi-Fi)" 0 false \
    passed,failed,skipped,skipped,skipped,passed,passed,passed,passed,passed

# 4. A private Wi-Fi address: the advert's MAC is not the record's; one known phone.
unpublish_phone
publish_phone "$PRIVATE_MAC"
expect "private Wi-Fi address, one known phone" "$WIFI_STATUS" Wi-Fi

# 5. Two paired phones, and this one on a private address: matching by address, or offering a
# lone stranger as the one known phone, cannot find it; asking the phone, or the tags of its
# advert (one for another computer, one for this one's pairing), can.
auth_tag() {
    "$PYTHON" - "$1" "$2" <<'PY'
import base64, hashlib, hmac, sys
host, identifier = sys.argv[1].encode(), sys.argv[2].encode()
prk = hmac.new(b"\0" * 64, host, hashlib.sha512).digest()
key = hmac.new(prk, b"\x01", hashlib.sha512).digest()[:32]
print(base64.b64encode(hmac.new(key, identifier, hashlib.sha256).digest()[:8]).decode())
PY
}
OTHER_UDID=00008030-000C11D22E33F44A
OTHER_HOST_ID=0E1D2C3B-4A59-6877-8695-A4B3C2D1E0F9
ELSEWHERE_HOST_ID=99999999-8888-7777-6666-555555555555
IDENTIFIER=2BE6E510-0325-4365-923E-B14C6F57DB3A
"$PYTHON" - "$records/$OTHER_UDID.plist" "$OTHER_HOST_ID" "$BUID" <<'PY'
import os, plistlib, sys
with open(sys.argv[1], "wb") as out:
    plistlib.dump({"HostID": sys.argv[2], "SystemBUID": sys.argv[3],
                   "WiFiMACAddress": "f0:99:bf:10:99:99"}, out, fmt=plistlib.FMT_BINARY)
os.chmod(sys.argv[1], 0o600)
PY
# Without tags the phone is asked which pairing it holds: the other phone's is refused, ours
# accepted.
unpublish_phone
publish_phone "$PRIVATE_MAC"
expect "private Wi-Fi address without tags, two known phones, found by asking" "$WIFI_STATUS" Wi-Fi
unpublish_phone
publish_phone "$PRIVATE_MAC" "identifier=$IDENTIFIER" \
    "authTag=$(auth_tag "$ELSEWHERE_HOST_ID" "$IDENTIFIER")" \
    "authTag#1=$(auth_tag "$HOST_ID" "$IDENTIFIER")"
expect "private Wi-Fi address found by its tag, two known phones" "$WIFI_STATUS" Wi-Fi
# A phone whose tags name only other computers is not ours, however few phones we know.
rm -f "$records/$OTHER_UDID.plist"
unpublish_phone
publish_phone "$PRIVATE_MAC" "identifier=$IDENTIFIER" \
    "authTag=$(auth_tag "$ELSEWHERE_HOST_ID" "$IDENTIFIER")"
expect "a phone that paired only with another computer" "$NOT_FOUND_STATUS" none
stop_phone

# 6. A new user through the widget: the card's setup sheet, "Open Finder", the connection
# window. The phone is on the cable, has never been paired and has Wi-Fi connections off. Once
# they are on it advertises itself, and then the cable comes out.
unpublish_phone
# stats_say <python expression over the simulated iPhone's stats `s`>
stats_say() {
    "$PYTHON" -c 'import json,sys
s = json.load(open(sys.argv[1]))
sys.exit(0 if eval(sys.argv[2]) else 1)' "$work/stats.json" "$1" 2>/dev/null
}
window_flow() {
    local window="$work/window" gui status=0
    mkdir -p "$window/home" "$window/data" "$window/config" "$window/runtime" "$window/handshake"
    chmod 700 "$window/runtime"
    # No pairing yet: the phone shows its Trust dialog when asked, and the window test answers
    # it as the person at the phone would.
    start_phone both normal false "\"hostPairRecord\": \"none\", \"pairReply\": \"dialog\",
        \"trustDialog\": \"$window/handshake/trust-dialog\"," false
    env -u USBMUXD_SOCKET_ADDRESS -u DISPLAY -u WAYLAND_DISPLAY HOME="$window/home" \
        XDG_DATA_HOME="$window/data" XDG_CONFIG_HOME="$window/config" \
        XDG_RUNTIME_DIR="$window/runtime" QT_QPA_PLATFORM=offscreen LANG=en_US.UTF-8 \
        DBUS_SESSION_BUS_ADDRESS="unix:path=$window/no-session-bus" \
        TOVRIN_WINDOW_HANDSHAKE="$window/handshake" \
        timeout 150 "$WINDOW_TEST" >"$window/test.log" 2>&1 &
    gui=$!
    for _ in $(seq 1200); do
        [ -e "$window/handshake/wifi-on" ] && break
        kill -0 "$gui" 2>/dev/null || break
        sleep 0.1
    done
    if [ -e "$window/handshake/wifi-on" ]; then
        if stats_say "s['devices']['$SERIAL'].get('wifiConnections') is True"; then
            publish_phone "$PHONE_MAC"
            kill -USR1 "$PHONE"
            for _ in $(seq 100); do
                stats_say "s.get('unplugged') is True" && [ ! -e /run/usbmuxd ] && break
                sleep 0.1
            done
            if [ -e /run/usbmuxd ]; then
                fail "the simulated iPhone's cable did not come out"
            fi
            touch "$window/handshake/unplugged"
        else
            fail "the window said Wi-Fi connections were on, but the phone has them off"
        fi
    fi
    wait "$gui" || status=$?
    if [ "$status" != 0 ]; then
        fail "through the window: the window test ended with $status:"
        cat "$window/test.log"
    else
        echo "ok: through the window: trusted, Wi-Fi connections on, unplugged, read over Wi-Fi"
    fi
    stop_phone
    unpublish_phone
}
if [ -n "$WINDOW_TEST" ]; then
    window_flow
else
    echo "skipped: through the window (the build has no tovrin-lockdown or idevicepair)"
fi

# 7. avahi-daemon stopped: USB only, worded as today; the connection check names the daemon.
kill "$AVAHI"
wait "$AVAHI" 2>/dev/null || true
start_phone usb normal
expect "avahi-daemon stopped, USB only" "$USB_STATUS" USB
expect_checks "connection check, avahi-daemon stopped (read over USB)" 0 false \
    passed,passed,passed,passed,passed,failed,skipped,skipped,skipped,skipped
stop_phone

finish
