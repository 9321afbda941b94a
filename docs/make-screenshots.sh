#!/usr/bin/env bash
# Makes the README's pictures of the card, light and dark, with the program's own
# --capture-preview on a virtual display (needs a build in build/, xvfb and python3).
#
# The iPhone in the pictures is the simulated one the tests use (on Wi-Fi, at 82 %), so that
# they show a reading on any machine; this computer's battery is read as usual. The program
# runs with empty, temporary home folders: nothing of yours is read or changed.
set -euo pipefail
cd "$(dirname "$0")/.."

work=$(mktemp -d)
simulator=
cleanup() {
    [ -z "$simulator" ] || kill "$simulator" 2>/dev/null || true
    rm -rf "$work"
}
trap cleanup EXIT
mkdir -p "$work/home" "$work/data" "$work/config"

cat > "$work/scenario.json" <<'JSON'
{"devices": [{"udid": "00008120000A1B2C3D4E5F60", "connection": "network", "address": "auto",
              "DeviceName": "iPhone", "ProductType": "iPhone15,2",
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
        USBMUXD_SOCKET_ADDRESS="UNIX:$work/usbmuxd" \
        xvfb-run -a -s "-screen 0 1440x900x24" \
        timeout 8 build/bin/tovrin --capture-preview "docs/card-$look.png" "--preview-$look" \
        >/dev/null 2>&1 || true
    if [ ! -s "docs/card-$look.png" ]; then
        echo "make-screenshots: no picture of the $look card was saved" >&2
        exit 1
    fi
    echo "docs/card-$look.png"
done
