#!/usr/bin/env bash
# Installs what is missing, then builds and runs every test three ways: a normal build (g++, as
# users build it), one with the address and undefined-behaviour sanitizers and one with the
# thread sanitizer (clang; the thread sanitizer covers the libraries below the views, which hold
# all the threads); then fuzzes the parsers for a short, bounded time. Every test runs in an
# environment of the suite's own (tests/environment), whatever this shell has set.
#
# TOVRIN_FUZZ_SECONDS sets the seconds per fuzz target (15 unless set; see fuzz/README.md for
# long runs); TOVRIN_TEST_JOBS the tests run at once (3 unless set).
source "$(dirname "$0")/common.sh"

install_packages clang clang-format libclang-rt-14-dev desktop-file-utils appstream dpkg-dev

jobs=${TOVRIN_TEST_JOBS:-3}
fuzz_seconds=${TOVRIN_FUZZ_SECONDS:-15}
status=0
passed=0
failed=0
skipped=0
stage_lines=()
stage_started=0
stage_name=""

start_stage() {
    stage_name=$1
    stage_started=$SECONDS
}

end_stage() {
    local seconds=$((SECONDS - stage_started))
    stage_lines+=("$(printf '%-44s %3d min %02d s' "$stage_name" $((seconds / 60)) $((seconds % 60)))")
}

# Processes a test left running are stopped by the test environment; it notes them here.
leftovers=$(mktemp)
trap 'rm -f "$leftovers"' EXIT
export TOVRIN_TEST_LEFTOVER_LOG=$leftovers

# Runs ctest with the given arguments and adds the counts of its JUnit report to the totals.
ctest_counted() {
    local report counts code tests_passed tests_failed tests_skipped
    report=$(mktemp --suffix=.xml)
    set +e
    ctest "$@" --output-junit "$report"
    code=$?
    set -e
    [ "$code" -eq 0 ] || status=1
    if counts=$(python3 "$TOVRIN_ROOT/scripts/junit-totals.py" "$report"); then
        read -r tests_passed tests_failed tests_skipped <<<"$counts"
        passed=$((passed + tests_passed))
        failed=$((failed + tests_failed))
        skipped=$((skipped + tests_skipped))
    else
        status=1
    fi
    rm -f "$report"
}

build_dir() {
    if [ "$1" = default ]; then
        echo "$TOVRIN_ROOT/build"
    else
        echo "$TOVRIN_ROOT/build-$1"
    fi
}

start_stage "Checks: clang-format and layers"
say "Checking the layout of the C++ sources (clang-format)"
if ! (cd "$TOVRIN_ROOT" && git ls-files -z -- '*.cpp' '*.h' | xargs -0 -r clang-format --dry-run --Werror); then
    say "Some sources are not formatted: run clang-format -i on them"
    status=1
fi
say "Checking that each folder includes only the folders below it"
python3 "$TOVRIN_ROOT/scripts/check-layers.py" "$TOVRIN_ROOT" || status=1
end_stage

for preset in default asan tsan; do
    start_stage "Build ($preset)"
    build_preset "$preset"
    end_stage
    start_stage "Tests ($preset)"
    say "Testing ($preset), $jobs at a time"
    ctest_counted --test-dir "$(build_dir "$preset")" -LE fuzz --output-on-failure \
        --parallel "$jobs" --timeout 300
    end_stage
done

# The parsers of outside data under libFuzzer, from the sanitizer build (see fuzz/README.md).
start_stage "Fuzzing ($fuzz_seconds s per target)"
say "Fuzzing each parser for $fuzz_seconds s"
export TOVRIN_FUZZ_SECONDS=$fuzz_seconds
ctest_counted --test-dir "$(build_dir asan)" -L fuzz --output-on-failure --parallel 2
end_stage

if [ -s "$leftovers" ]; then
    say "Processes the tests left running, stopped by the test environment:"
    sed 's/^/    /' "$leftovers"
fi
if [ $status -eq 0 ]; then
    say "All three builds passed their tests, and the fuzzers found nothing"
else
    say "Some tests failed (see above)"
fi
say "Time per stage"
printf '    %s\n' "${stage_lines[@]}"
printf '    %-44s %3d min %02d s\n' "All" $((SECONDS / 60)) $((SECONDS % 60))
echo "Total: $passed passed, $failed failed, $skipped skipped"
exit $status
