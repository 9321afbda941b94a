#!/usr/bin/env bash
# The suite's environment stops and names what a test leaves running, and names nothing that
# ends by itself as the test ends. Usage: environment_test.sh AMBREL_TEST_ENV
set -u
launcher=$1
scratch=$(mktemp -d)
trap 'rm -rf "$scratch"' EXIT
failures=0
fail() {
    echo "FAILED: $*"
    failures=$((failures + 1))
}

# The launcher must not see that it is already inside an environment of its own.
unset TOVRIN_TEST_ENV

# A process left sleeping: stopped, and named in the log.
log=$scratch/left-sleeping
TOVRIN_TEST_LEFTOVER_LOG=$log "$launcher" /bin/sh -c \
    'sleep 600 & echo $! >"$0"' "$scratch/sleeper" || fail "the launcher failed"
sleeper=$(cat "$scratch/sleeper")
if kill -0 "$sleeper" 2>/dev/null; then
    fail "the sleeping process $sleeper is still running"
    kill "$sleeper"
fi
grep -q "sleep($sleeper)" "$log" 2>/dev/null || fail "the log does not name sleep($sleeper)"

# A process the test killed just before it ended, and one that ends by itself a moment later:
# neither is named.
log=$scratch/left-nothing
TOVRIN_TEST_LEFTOVER_LOG=$log "$launcher" /bin/sh -c \
    'sleep 600 & kill -9 $!; (sleep 0.3; true) & exit 0' || fail "the launcher failed"
[ ! -s "$log" ] || fail "the log names what ended by itself: $(cat "$log")"

# The test's own exit status comes through.
"$launcher" /bin/sh -c 'exit 3'
status=$?
[ "$status" -eq 3 ] || fail "the exit status 3 came through as $status"

if [ "$failures" -eq 0 ]; then
    echo "passed"
fi
exit $((failures > 0))
