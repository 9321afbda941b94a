#!/usr/bin/env bash
# Makes the README's pictures of the card, light and dark, with the program's own
# --capture-preview on a virtual display (needs a build in build/, xvfb and python3), and of the
# connection window in four states.
#
# The pictures show what a laptop user sees: the computer's battery at 76 % on battery power
# (a made-up power-supply folder mounted over /sys/class/power_supply, and the host name
# "Anna’s ThinkPad", in private namespaces of this script's own; needs unshare and user
# namespaces) and the simulated iPhone the tests use (on the cable, at 82 %: over Wi-Fi the
# program finds a phone through avahi and its pair record, which this script does not set up).
# The program runs with empty, temporary home folders: nothing of yours is read or changed.
set -euo pipefail
cd "$(dirname "$0")/.."

work=$(mktemp -d)
simulator=
cleanup() {
    [ -z "$simulator" ] || kill "$simulator" 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT
mkdir -p "$work/home" "$work/data" "$work/config" "$work/power/BAT0" "$work/power/AC"
mkdir -m 700 "$work/run"
printf 'Battery\n' > "$work/power/BAT0/type"
printf '1\n' > "$work/power/BAT0/present"
printf 'Discharging\n' > "$work/power/BAT0/status"
printf '43320000\n' > "$work/power/BAT0/energy_now"
printf '57000000\n' > "$work/power/BAT0/energy_full"
printf 'Mains\n' > "$work/power/AC/type"
printf '0\n' > "$work/power/AC/online"
if ! unshare --user --map-root-user --mount --uts true 2>/dev/null; then
    echo "make-screenshots: unshare with user namespaces is needed for the laptop battery" >&2
    exit 1
fi

cat > "$work/scenario.json" <<'JSON'
{"devices": [{"udid": "00008120000A1B2C3D4E5F60", "connection": "usb",
              "DeviceName": "Anna’s iPhone", "ProductType": "iPhone15,2",
              "battery": {"BatteryCurrentCapacity": 82, "BatteryIsCharging": false,
                          "ExternalConnected": false}}]}
JSON
python3 tests/simphone/simphone.py --scenario "$work/scenario.json" --socket "$work/usbmuxd" \
    --stats "$work/stats.json" --lifetime 60 > "$work/ready" &
simulator=$!
for _ in $(seq 50); do
    [ -s "$work/ready" ] && break
    sleep 0.1
done

for look in light dark; do
    rm -f "docs/card-$look.png"
    # The program keeps running after the capture; timeout ends it once the picture is saved.
    HOME="$work/home" XDG_DATA_HOME="$work/data" XDG_CONFIG_HOME="$work/config" \
        USBMUXD_SOCKET_ADDRESS="UNIX:$work/usbmuxd" LC_ALL=en_US.UTF-8 \
        XDG_RUNTIME_DIR="$work/run" \
        unshare --user --map-root-user --mount --uts sh -c '
            mount --bind "$1/power" /sys/class/power_supply &&
            python3 -c "import socket; socket.sethostname(\"Anna’s ThinkPad\")" &&
            exec xvfb-run -a -s "-screen 0 1440x900x24 -noreset" \
                timeout 8 build/bin/tovrin --capture-preview "docs/card-$2.png" "--preview-$2"
        ' sh "$work" "$look" >/dev/null 2>&1 || true
    if [ ! -s "docs/card-$look.png" ]; then
        echo "make-screenshots: no picture of the $look card was saved" >&2
        exit 1
    fi
    echo "docs/card-$look.png"
done

# The connection window in four states (all well, the phone locked, Wi-Fi connections off,
# avahi-daemon stopped), drawn by its own test (on an X server it starts): its phone row from the
# simulated iPhone, its check from the real check against answers set for each state.
rm -f docs/connection-*.png
TOVRIN_CAPTURE_DIR="$PWD/docs" DBUS_SYSTEM_BUS_ADDRESS="unix:path=$work/no-bus" \
    LC_ALL=en_US.UTF-8 build/tests/ambrel_connection_window_tests \
    --gtest_filter='*CaptureFourStatesLightAndDark' >/dev/null
for state in well locked wifi-off avahi-stopped; do
    for look in light dark; do
        if [ ! -s "docs/connection-$state-$look.png" ]; then
            echo "make-screenshots: no picture of the connection window ($state, $look)" >&2
            exit 1
        fi
        echo "docs/connection-$state-$look.png"
    done
done
