#!/usr/bin/env bash
# Installs what is missing, builds Tovrin and runs it. On a desktop the card appears on the
# wallpaper and the tray gets its item. Without a display, the card is drawn on a virtual one,
# saved as a PNG, and the readings are printed.
source "$(dirname "$0")/common.sh"

install_packages
# Running needs the program, its helper and its files; the tests and benchmarks are built by
# the test command.
build_preset default tovrin_program
tovrin="$TOVRIN_ROOT/build/bin/tovrin"

if [ -n "${DISPLAY:-}" ] || [ -n "${WAYLAND_DISPLAY:-}" ]; then
    say "Starting Tovrin on your desktop (quit from its tray item or the card's … menu)"
    exec "$tovrin" "$@"
fi

preview="$TOVRIN_ROOT/build/tovrin-preview.png"
rm -f "$preview"
say "No display here: drawing the card on a virtual display (Xvfb)"
xvfb-run -a -s "-screen 0 1440x900x24 -noreset" \
    timeout 8 "$tovrin" --capture-preview "$preview" "$@" >/dev/null 2>&1 || true
if [ -s "$preview" ]; then
    say "Saved a picture of the card: $preview"
else
    say "The card could not be captured on the virtual display"
fi
say "Readings of this computer and the iPhone (tovrin --readings):"
"$tovrin" --readings
