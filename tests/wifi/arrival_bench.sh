# How soon the card shows a phone that appears: from the plug-in (the system's usbmuxd starts
# with the phone on the cable) and from the Wi-Fi advert (a sleeping phone wakes and announces
# itself) to the card's first fresh reading, each run with a new widget whose first check found
# no phone. Prints every run's seconds, then the median and the slowest.
#
# Sourced by wifi_end_to_end.sh inside its namespaces (TOVRIN_WIFI_PART=bench), with
# avahi-daemon running; bench/arrival/arrival.sh runs it. TOVRIN_BENCH_RUNS sets the number of
# runs of each kind (default 20).

. "$(dirname "$0")/arrivals_common.sh"

RUNS=${TOVRIN_BENCH_RUNS:-20}
now_ms() { echo $(($(date +%s%N) / 1000000)); }
# until_shown <expression>: polls the card's state every 20 ms for up to a minute.
until_shown() {
    for _ in $(seq 3000); do
        widget_shows "$1" && return 0
        sleep 0.02
    done
    return 1
}
summary() {
    "$PYTHON" -c 'import statistics,sys
values = sorted(float(v) / 1000 for v in sys.argv[2:])
print("%s: %d runs, median %.2f s, fastest %.2f s, slowest %.2f s" % (
    sys.argv[1], len(values), statistics.median(values), values[0], values[-1]))' "$@"
}

plug_times=()
for run in $(seq "$RUNS"); do
    rm -f /run/usbmuxd
    rm -rf "$work/bench"
    start_widget "$work/bench"
    until_shown "$FIRST_CHECK_DONE and w['phone'] is None" || { fail "plug-in run $run: no first check"; stop_widget; continue; }
    started=$(now_ms)
    start_scenario "[{\"udid\": \"$SERIAL\", \"connection\": \"usb\", \"hostId\": \"$HOST_ID\"}]" normal
    if until_shown "p.get('source') == 'USB'"; then
        plug_times+=("$(($(now_ms) - started))")
        echo "plug-in run $run: ${plug_times[-1]} ms"
    else
        fail "plug-in run $run: never read"
    fi
    stop_widget
    stop_phone
done
# The last run's pairing copy lets the Wi-Fi runs read the phone.
records=$(mktemp -d "$work/records.XXXXXX")
cp -a "$work/bench/data/Ambrel/pair-records/." "$records/"

advert_times=()
for run in $(seq "$RUNS"); do
    rm -rf "$work/bench"
    mkdir -p "$work/bench/data/Ambrel/pair-records"
    chmod 700 "$work/bench/data/Ambrel" "$work/bench/data/Ambrel/pair-records"
    cp -a "$records/." "$work/bench/data/Ambrel/pair-records/"
    start_scenario "[$(phone_entry "$SERIAL" 127.0.0.2 57 "$HOST_ID" \
        "\"advert\": {\"mac\": \"$NEW_PRIVATE_MAC\", \"tagsForHost\": true,
                      \"host\": \"iphone-one.local\"},
         \"wifiSchedule\": {\"startAsleep\": true, \"awake\": 600, \"asleep\": 600}")]"
    start_widget "$work/bench"
    until_shown "$FIRST_CHECK_DONE and w['phoneSetupState'] == 'notFound'" || { fail "advert run $run: no first check"; stop_widget; stop_phone; continue; }
    started=$(now_ms)
    kill -USR2 "$PHONE"
    if until_shown "p.get('source') == 'Wi-Fi'"; then
        advert_times+=("$(($(now_ms) - started))")
        echo "advert run $run: ${advert_times[-1]} ms"
    else
        fail "advert run $run: never read"
    fi
    stop_widget
    stop_phone
done

[ ${#plug_times[@]} -gt 0 ] && summary "plug-in to a fresh reading" "${plug_times[@]}"
[ ${#advert_times[@]} -gt 0 ] && summary "Wi-Fi advert to a fresh reading" "${advert_times[@]}"
