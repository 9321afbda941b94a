# The card follows the phone: the widget itself, run as a desktop session runs it (offscreen,
# no session bus), with its own muxer between the tools and the simulated iPhone. What the card
# shows is read from the state file the widget keeps for status bars; how often the phone was
# read, from the simulated iPhone's counts. No phone is read on the five-minute cycle here: every
# wait is far shorter, so each read seen after the first check came from an arrival.
#
# Sourced by wifi_end_to_end.sh inside its namespaces, with avahi-daemon running.

. "$(dirname "$0")/arrivals_common.sh"

# A. Plugged in: the card found no phone at start; the phone appears on the cable (the system's
# usbmuxd starts with it) and is read at once, once.
rm -f /run/usbmuxd
start_widget "$work/plug"
wait_widget "at start, no phone" "$FIRST_CHECK_DONE and w['phone'] is None"
start_scenario "[{\"udid\": \"$SERIAL\", \"connection\": \"usb\", \"hostId\": \"$HOST_ID\",
                  \"battery\": {\"BatteryCurrentCapacity\": 64, \"BatteryIsCharging\": false,
                                \"ExternalConnected\": false}}]" normal
wait_widget "plugged in: read over USB" "p.get('source') == 'USB' and p.get('percentage') == 64"
expect_reads "plugged in: one read" "$SERIAL" 1
stop_widget
stop_phone

# B. A sleeping phone on a private address no pair record has, named by its tag: the card shows
# the last reading it kept while the phone sleeps, and reads it as soon as its Wi-Fi wakes.
mkdir -p "$work/wake/data"
cp -a "$work/plug/data/Ambrel" "$work/wake/data/"
start_scenario "[$(phone_entry "$SERIAL" 127.0.0.2 57 "$HOST_ID" \
    "\"advert\": {\"mac\": \"$NEW_PRIVATE_MAC\", \"tagsForHost\": true,
                  \"tagsFor\": [\"$ELSEWHERE_HOST_ID\"], \"host\": \"iphone-one.local\"},
     \"wifiSchedule\": {\"startAsleep\": true, \"awake\": 600, \"asleep\": 600}")]"
start_widget "$work/wake"
wait_widget "asleep: the last reading, and the phone not found" \
    "$FIRST_CHECK_DONE and w['phoneSetupState'] == 'notFound' and p.get('percentage') == 64"
kill -USR2 "$PHONE"
wait_widget "awake: read over Wi-Fi" \
    "w['phoneSetupState'] == 'ready' and p.get('source') == 'Wi-Fi' and p.get('percentage') == 57"
expect_reads "awake: one read" "$SERIAL" 1
# Asleep again: nothing changes at once; the next read decides.
kill -USR2 "$PHONE"
wait_advert gone 127.0.0.2 "$NEW_PRIVATE_MAC"
sleep 1
if widget_shows "w['phoneSetupState'] == 'ready' and p.get('percentage') == 57"; then
    echo "ok: asleep again: the card keeps its reading"
else
    fail "asleep again: the card changed at once: $(widget_state)"
fi
stop_widget
stop_phone

# C. Two paired phones on private addresses: one named by its tag, one without tags, found by
# asking it. Each is listed at its own address and read as itself, never swapped.
records="$work/two/data/Ambrel/pair-records"
write_record "$records" "$UDID" "$HOST_ID"
write_record "$records" "$SECOND_UDID" "$SECOND_HOST_ID"
start_scenario "[$(phone_entry "$SERIAL" 127.0.0.2 64 "$HOST_ID" \
    "\"advert\": {\"mac\": \"$NEW_PRIVATE_MAC\", \"tagsForHost\": true,
                  \"host\": \"iphone-one.local\"}"),
                 $(phone_entry "$SECOND_SERIAL" 127.0.0.3 41 "$SECOND_HOST_ID" \
    "\"advert\": {\"mac\": \"$SECOND_PRIVATE_MAC\", \"host\": \"iphone-two.local\"}")]"
wait_advert present 127.0.0.2 "$NEW_PRIVATE_MAC"
wait_advert present 127.0.0.3 "$SECOND_PRIVATE_MAC"
start_widget "$work/two"
wait_widget "two phones: the card reads one over Wi-Fi" \
    "(w['phoneSetupState'] == 'ready' and p.get('source') == 'Wi-Fi' and
      p.get('percentage') in (64, 41))"
widget_muxer="UNIX:$work/two/runtime/tovrin/usbmuxd"
listed=$(USBMUXD_SOCKET_ADDRESS=$widget_muxer timeout 30 idevice_id -n 2>&1 | sort | tr '\n' ' ')
if [ "$listed" = "$UDID $SECOND_UDID " ]; then
    echo "ok: two phones: both listed: $listed"
else
    fail "two phones: expected both listed, got '$listed'"
fi
for pair in "$UDID=64" "$SECOND_UDID=41"; do
    got=$(USBMUXD_SOCKET_ADDRESS=$widget_muxer timeout 30 ideviceinfo -n -u "${pair%=*}" \
        -q com.apple.mobile.battery -k BatteryCurrentCapacity 2>&1)
    if [ "$got" = "${pair#*=}" ]; then
        echo "ok: two phones: ${pair%=*} reads as itself: $got"
    else
        fail "two phones: ${pair%=*} should read ${pair#*=}, got '$got'"
    fi
done
stop_widget
stop_phone

# D. A flapping advert: a locked phone (every read fails, so each arrival would want one) whose
# Wi-Fi wakes and sleeps every two seconds. Within the 30-second debounce it is read once.
mkdir -p "$work/flap/data"
cp -a "$work/two/data/Ambrel" "$work/flap/data/"
rm -f "$work/flap/data/Ambrel/battery-cache.json"
start_scenario "[$(phone_entry "$SERIAL" 127.0.0.2 64 "$HOST_ID" \
    "\"fault\": \"locked\",
     \"advert\": {\"mac\": \"$NEW_PRIVATE_MAC\", \"tagsForHost\": true,
                  \"host\": \"iphone-one.local\"},
     \"wifiSchedule\": {\"startAsleep\": true, \"awake\": 2, \"asleep\": 1}")]"
start_widget "$work/flap"
wait_widget "flapping: the first check finds no phone" \
    "$FIRST_CHECK_DONE and w['phoneSetupState'] == 'notFound'"
connections() {
    stats_count "s['devices']['$SERIAL']['connections']"
}
# The first arrival's read reaches the phone (one connection, two with its retry).
for _ in $(seq 600); do
    [ "$(connections)" -ge 1 ] && break
    sleep 0.1
done
wakes_before=$(stats_count "s['devices']['$SERIAL'].get('wifiWakes', 0)")
sleep 20
wakes=$(( $(stats_count "s['devices']['$SERIAL'].get('wifiWakes', 0)") - wakes_before ))
reached=$(connections)
if [ "$reached" -ge 1 ] && [ "$reached" -le 2 ] && [ "$wakes" -ge 5 ]; then
    echo "ok: flapping: $wakes more wakes after the first read, still one read ($reached connections)"
else
    fail "flapping: expected one read (1 or 2 connections) and at least 5 more wakes; got" \
        "$reached connections and $wakes wakes"
fi
# The flaps went on reaching the program all along: once the debounce is over, one reads again.
for _ in $(seq 600); do
    [ "$(connections)" -gt "$reached" ] && break
    sleep 0.1
done
if [ "$(connections)" -gt "$reached" ]; then
    echo "ok: flapping: after the debounce an arrival reads again"
else
    fail "flapping: no arrival read the phone again after the debounce"
fi
stop_widget
stop_phone
