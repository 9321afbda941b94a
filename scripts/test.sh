#!/usr/bin/env bash
# Installs what is missing, then builds and runs every test three ways: a normal build (g++, as
# users build it), one with the address and undefined-behaviour sanitizers and one with the
# thread sanitizer (clang; the thread sanitizer covers the libraries below the views, which hold
# all the threads); then fuzzes the parsers for a short, bounded time. Every test runs in an
# environment of the suite's own (tests/environment), whatever this shell has set.
#
# While one build's tests run, the next build compiles beside them at the lowest priority: the
# tests spend most of their time waiting (for timers, tools and X servers) and keep the processor
# whenever they want it, the compiler takes what they leave. When the tests end first, the build
# starts again at the script's own priority (ninja keeps what it finished), so that on a machine
# busy with other work it does not crawl on at the lowest.
#
# TOVRIN_FUZZ_SECONDS sets the seconds per fuzz target (15 unless set; see fuzz/README.md for
# long runs); TOVRIN_TEST_JOBS the tests run at once (3 unless set).
source "$(dirname "$0")/common.sh"

install_packages clang clang-format libclang-rt-14-dev desktop-file-utils appstream dpkg-dev
# GNOME's window manager with its X server, for the tests that must hold on GNOME too.
install_packages_alone mutter xwayland

jobs=${TOVRIN_TEST_JOBS:-3}
fuzz_seconds=${TOVRIN_FUZZ_SECONDS:-15}
status=0
passed=0
failed=0
skipped=0
stage_lines=()

# Notes how long a stage took: from its start ($SECONDS then) to now, or the given seconds.
note_stage() {
    local name=$1 seconds=$((SECONDS - $2))
    [ $# -lt 3 ] || seconds=$3
    stage_lines+=("$(printf '%-40s %3d min %02d s' "$name" $((seconds / 60)) $((seconds % 60)))")
}

scratch=$(mktemp -d)
# The build beside the tests runs in a process group of its own (so that it can be stopped as a
# whole); it goes with this script however the script ends.
build_group=""
trap '[ -z "$build_group" ] || kill -TERM -- "-$build_group" 2>/dev/null; rm -rf "$scratch"' EXIT
trap 'exit 130' INT
trap 'exit 143' TERM
# Processes a test left running are stopped by the test environment; it notes them here.
export TOVRIN_TEST_LEFTOVER_LOG=$scratch/leftovers

build_dir() {
    if [ "$1" = default ]; then
        echo "$TOVRIN_ROOT/build"
    else
        echo "$TOVRIN_ROOT/build-$1"
    fi
}

# Starts ctest for one build in the background (arguments after the name go to ctest); its
# output waits in a file until finish_tests prints it.
start_tests() {
    local name=$1
    test_title=$2
    shift 2
    (
        set +e
        started=$(date +%s)
        ctest "$@" --output-junit "$scratch/$name.xml" >"$scratch/$name.log" 2>&1
        echo $? >"$scratch/$name.status"
        echo $(($(date +%s) - started)) >"$scratch/$name.seconds"
    ) &
    test_pid=$!
    test_name=$name
    test_started=$SECONDS
}

# Waits for the tests started last, prints their output and adds their counts to the totals.
finish_tests() {
    local counts tests_passed tests_failed tests_skipped
    wait "$test_pid" || true
    say "$test_title"
    cat "$scratch/$test_name.log"
    [ "$(cat "$scratch/$test_name.status" 2>/dev/null)" = 0 ] || status=1
    if counts=$(python3 "$TOVRIN_ROOT/scripts/junit-totals.py" "$scratch/$test_name.xml"); then
        read -r tests_passed tests_failed tests_skipped <<<"$counts"
        passed=$((passed + tests_passed))
        failed=$((failed + tests_failed))
        skipped=$((skipped + tests_skipped))
    else
        status=1
    fi
    note_stage "$test_title" "$test_started" "$(cat "$scratch/$test_name.seconds" 2>/dev/null || echo 0)"
}

# Builds one preset at the lowest priority while the tests started last run. If the tests end
# first, the build is stopped and run again at this script's priority (an unprivileged process
# cannot raise its own priority back, so it has to start afresh; ninja keeps its finished work).
build_beside_tests() {
    local preset=$1 build_pid done_file=$scratch/build-$1.status
    setsid nice -n 19 bash -c "source '$TOVRIN_ROOT/scripts/common.sh'; set +e
        build_preset $preset; echo \$? >'$done_file.new'; mv '$done_file.new' '$done_file'" &
    build_pid=$!
    build_group=$build_pid
    while [ ! -e "$done_file" ] && [ ! -e "$scratch/$test_name.status" ]; do
        sleep 1
    done
    if [ ! -e "$done_file" ]; then
        say "The tests ended first: building ($preset) on at normal priority"
        kill -TERM -- "-$build_pid" 2>/dev/null || true
        wait "$build_pid" || true
        build_group=""
        build_preset "$preset"
        return
    fi
    wait "$build_pid" || true
    build_group=""
    [ "$(cat "$done_file")" = 0 ] || exit 1
}

started=$SECONDS
say "Checking the layout of the C++ sources (clang-format)"
if ! (cd "$TOVRIN_ROOT" && git ls-files -z -- '*.cpp' '*.h' | xargs -0 -r clang-format --dry-run --Werror); then
    say "Some sources are not formatted: run clang-format -i on them"
    status=1
fi
say "Checking that each folder includes only the folders below it"
python3 "$TOVRIN_ROOT/scripts/check-layers.py" "$TOVRIN_ROOT" || status=1
note_stage "Checks (format, layers)" "$started"

test_pid=""
for preset in default asan tsan; do
    started=$SECONDS
    if [ -n "$test_pid" ]; then
        say "Building ($preset) beside the tests of the last build"
        build_beside_tests "$preset"
        note_stage "Build ($preset), beside the tests" "$started"
        finish_tests
    else
        build_preset "$preset"
        note_stage "Build ($preset)" "$started"
    fi
    say "Testing ($preset), $jobs at a time; the output follows when they end"
    start_tests "$preset" "Tests ($preset)" --test-dir "$(build_dir "$preset")" -LE fuzz --output-on-failure \
        --parallel "$jobs" --timeout 300
done
finish_tests

# The parsers of outside data under libFuzzer, from the sanitizer build (see fuzz/README.md).
started=$SECONDS
say "Fuzzing each parser for $fuzz_seconds s"
export TOVRIN_FUZZ_SECONDS=$fuzz_seconds
start_tests fuzz "Fuzzing ($fuzz_seconds s per parser)" --test-dir "$(build_dir asan)" -L fuzz --output-on-failure --parallel 2
finish_tests

if [ -s "$TOVRIN_TEST_LEFTOVER_LOG" ]; then
    say "Processes the tests left running, stopped by the test environment:"
    sed 's/^/    /' "$TOVRIN_TEST_LEFTOVER_LOG"
fi
if [ $status -eq 0 ]; then
    say "All three builds passed their tests, and the fuzzers found nothing"
else
    say "Some tests failed (see above)"
fi
say "Time per stage"
printf '    %s\n' "${stage_lines[@]}"
printf '    %-40s %3d min %02d s\n' "All" $((SECONDS / 60)) $((SECONDS % 60))
echo "Total: $passed passed, $failed failed, $skipped skipped"
exit $status
