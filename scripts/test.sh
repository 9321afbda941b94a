#!/usr/bin/env bash
# Installs what is missing, then builds and runs every test three ways: a normal build, one with
# the address and undefined-behaviour sanitizers, and one with the thread sanitizer (the libraries
# below the views, which hold all the threads); then fuzzes the parsers for a bounded time.
source "$(dirname "$0")/common.sh"

install_packages clang clang-format libclang-rt-14-dev desktop-file-utils appstream dpkg-dev

status=0
passed=0
failed=0
skipped=0
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

run_tests() {
    local preset=$1 dir="$TOVRIN_ROOT/build"
    [ "$preset" = default ] || dir="$TOVRIN_ROOT/build-$preset"
    say "Testing ($preset)"
    ctest_counted --test-dir "$dir" --output-on-failure --parallel 2 --timeout 300
}

say "Checking the layout of the C++ sources (clang-format)"
if ! (cd "$TOVRIN_ROOT" && git ls-files -z -- '*.cpp' '*.h' | xargs -0 -r clang-format --dry-run --Werror); then
    say "Some sources are not formatted: run clang-format -i on them"
    status=1
fi

say "Checking that each folder includes only the folders below it"
python3 "$TOVRIN_ROOT/scripts/check-layers.py" "$TOVRIN_ROOT" || status=1

for preset in default asan tsan; do
    build_preset "$preset"
    run_tests "$preset"
done

# The parsers of outside data under libFuzzer (clang, address and undefined sanitizers), each for
# TOVRIN_FUZZ_SECONDS (60 unless set); see fuzz/README.md for longer runs.
fuzz_dir="$TOVRIN_ROOT/build-fuzz"
say "Fuzzing (${TOVRIN_FUZZ_SECONDS:-60} s per target) in ${fuzz_dir#"$TOVRIN_ROOT"/}"
if [ ! -f "$fuzz_dir/build.ninja" ]; then
    cmake -S "$TOVRIN_ROOT" -B "$fuzz_dir" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo \
        -DCMAKE_CXX_COMPILER=clang++ -DTOVRIN_BUILD_FUZZERS=ON -DTOVRIN_WITH_GUI=OFF \
        -DBUILD_TESTING=OFF -DTOVRIN_BUILD_BENCHMARKS=OFF >/dev/null
fi
cmake --build "$fuzz_dir" --parallel "$(nproc)" --target ambrel_fuzzers
ctest_counted --test-dir "$fuzz_dir" -L fuzz --output-on-failure --parallel 2

if [ $status -eq 0 ]; then
    say "All three builds passed their tests, and the fuzzers found nothing"
else
    say "Some tests failed (see above)"
fi
echo "Total: $passed passed, $failed failed, $skipped skipped"
exit $status
