# What the widget's own runs inside wifi_end_to_end.sh share: the simulated iPhone started from
# a list of phones, the widget run as a desktop session runs it (offscreen, no session bus, its
# own muxer between the tools and the phone), and what the card shows, read from the state file
# the widget keeps for status bars.

SECOND_SERIAL=00008120000D22E33F44A55B
SECOND_UDID=00008120-000D22E33F44A55B
SECOND_HOST_ID=7D6C5B4A-3928-4716-A5B4-C3D2E1F00F1E
ELSEWHERE_HOST_ID=99999999-8888-7777-6666-555555555555
# Private Wi-Fi addresses, none of them in any pair record.
NEW_PRIVATE_MAC=06:a1:b2:c3:d4:e5
SECOND_PRIVATE_MAC=0a:77:66:55:44:33

# start_scenario <devices, a JSON array> [<usbmuxd mode>]: the simulated iPhone with these
# phones, as the system's usbmuxd at /run/usbmuxd unless the mode is "absent".
start_scenario() {
    local devices=$1 usbmuxd=${2:-absent}
    printf '{"usbmuxd": "%s", "buid": "%s", "devices": %s}\n' "$usbmuxd" "$BUID" "$devices" \
        >"$work/scenario.json"
    run_scenario 200
}

# phone_entry <serial> <address> <percentage> <host id> [<more settings>]
phone_entry() {
    printf '{"udid": "%s", "connection": "network", "address": "%s", "hostId": "%s",
             "wifiConnections": true, "recordWiFiMACAddress": "%s",
             "battery": {"BatteryCurrentCapacity": %s, "BatteryIsCharging": false,
                         "ExternalConnected": false}%s}' \
        "$1" "$2" "$4" "$PHONE_MAC" "$3" "${5:+, $5}"
}

# stats_count <python expression over the stats `s`>: prints its value.
stats_count() {
    "$PYTHON" -c 'import json,sys
s = json.load(open(sys.argv[1]))
print(eval(sys.argv[2]))' "$work/stats.json" "$1" 2>/dev/null
}
battery_reads() {
    stats_count "s['devices']['$1']['getValue'].get('com.apple.mobile.battery', 0)"
}

# write_record <folder> <udid> <host id>: a pairing as the program keeps a copy of it.
write_record() {
    mkdir -p "$1"
    chmod 700 "$1"
    "$PYTHON" - "$1/$2.plist" "$3" "$BUID" <<'PY'
import os, plistlib, sys
with open(sys.argv[1], "wb") as out:
    plistlib.dump({"HostID": sys.argv[2], "SystemBUID": sys.argv[3]}, out,
                  fmt=plistlib.FMT_BINARY)
os.chmod(sys.argv[1], 0o600)
PY
}

widget_dir=""
# start_widget <folder>: the widget with its home, data and runtime folders under <folder>.
start_widget() {
    widget_dir=$1
    mkdir -p "$widget_dir/home" "$widget_dir/config" "$widget_dir/data" "$widget_dir/runtime"
    chmod 700 "$widget_dir/runtime"
    env -u USBMUXD_SOCKET_ADDRESS -u DISPLAY -u WAYLAND_DISPLAY HOME="$widget_dir/home" \
        XDG_DATA_HOME="$widget_dir/data" XDG_CONFIG_HOME="$widget_dir/config" \
        XDG_RUNTIME_DIR="$widget_dir/runtime" QT_QPA_PLATFORM=offscreen LANG=en_US.UTF-8 \
        DBUS_SESSION_BUS_ADDRESS="unix:path=$widget_dir/no-session-bus" \
        timeout 200 "$TOVRIN" >"$widget_dir/widget.log" 2>&1 &
    WIDGET=$!
}
# ends <pid>: stops it, and kills it if it has not ended within 10 s.
ends() {
    kill "$1" 2>/dev/null || return 0
    for _ in $(seq 100); do
        kill -0 "$1" 2>/dev/null || break
        sleep 0.1
    done
    kill -9 "$1" 2>/dev/null || true
    wait "$1" 2>/dev/null || true
}
stop_widget() {
    ends "$WIDGET"
}
widget_state() {
    cat "$widget_dir/runtime/tovrin/state.json" 2>/dev/null
}
# widget_shows <python expression over the card's state `w` and its phone `p`>
widget_shows() {
    "$PYTHON" -c 'import json,sys
w = json.load(open(sys.argv[1]))
p = w.get("phone") or {}
sys.exit(0 if eval(sys.argv[2]) else 1)' "$widget_dir/runtime/tovrin/state.json" "$1" \
        2>/dev/null
}
# wait_widget <what> <expression>: waits up to a minute for the card to show it.
wait_widget() {
    for _ in $(seq 600); do
        if widget_shows "$2"; then
            echo "ok: $1"
            return 0
        fi
        if ! kill -0 "$WIDGET" 2>/dev/null; then
            break
        fi
        sleep 0.1
    done
    fail "$1: the card never showed it; its state: $(widget_state); it said:" \
        "$(cat "$widget_dir/widget.log"); avahi has: $(avahi-browse -r -t -p _apple-mobdev2._tcp 2>&1);" \
        "its muxer lists: $(USBMUXD_SOCKET_ADDRESS="UNIX:$widget_dir/runtime/tovrin/usbmuxd" \
            timeout 30 idevice_id -n 2>&1)"
}
# wait_advert <present|gone> <address> <MAC of its name>: as avahi reports the adverts, for at
# most 30 s. Gone is asked without resolving: resolving an advert that is going away can wait
# out avahi's own time limit.
wait_advert() {
    local escaped deadline=$((SECONDS + 30))
    escaped=$(printf '%s' "$3" | sed 's/:/\\058/g')
    while [ "$SECONDS" -lt "$deadline" ]; do
        if [ "$1" = present ]; then
            timeout 5 avahi-browse -r -t -p _apple-mobdev2._tcp 2>/dev/null |
                grep -q "^=.*;$2;" && return 0
        else
            timeout 5 avahi-browse -t -p _apple-mobdev2._tcp 2>/dev/null |
                grep -qF "$escaped" || return 0
        fi
        sleep 0.1
    done
    fail "the advert at $2 did not become $1"
}
expect_reads() {
    local what=$1 serial=$2 expected=$3 got
    got=$(battery_reads "$serial")
    if [ "$got" = "$expected" ]; then
        echo "ok: $what: $got"
    else
        fail "$what: expected $expected battery reads, got '$got'"
    fi
}

FIRST_CHECK_DONE="w['phoneSetupState'] != 'checking' and not w['isRefreshingPhone']"

