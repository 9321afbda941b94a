#!/bin/bash
# How soon the card shows a phone that appears: from the plug-in, and from the Wi-Fi advert of a
# phone whose Wi-Fi wakes, to the card's first fresh reading; the real widget, the real tools,
# the simulated iPhone and a real avahi-daemon, in private namespaces (run it as root).
#
#   bench/arrival/arrival.sh [<build folder> [<runs of each kind>]]     # default: build, 20
set -eu
root=$(cd "$(dirname "$0")/../.." && pwd)
build=${1:-$root/build}
export TOVRIN_BENCH_RUNS=${2:-20}
export TOVRIN_WIFI_PART=bench
exec "$root/tests/wifi/wifi_end_to_end.sh" "$build/bin/tovrin" "$(command -v python3)" \
    "$root/tests/simphone/simphone.py"
