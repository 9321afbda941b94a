#!/usr/bin/env bash
# Installs what is missing, then builds and runs every test three ways: a normal build, one with
# the address and undefined-behaviour sanitizers, and one with the thread sanitizer (the libraries
# below the views, which hold all the threads).
source "$(dirname "$0")/common.sh"

install_packages clang libclang-rt-14-dev desktop-file-utils appstream dpkg-dev

status=0
run_tests() {
    local preset=$1 dir="$TOVRIN_ROOT/build"
    [ "$preset" = default ] || dir="$TOVRIN_ROOT/build-$preset"
    say "Testing ($preset)"
    ctest --test-dir "$dir" --output-on-failure --parallel 2 --timeout 300 || status=1
}

for preset in default asan tsan; do
    build_preset "$preset"
    run_tests "$preset"
done
if [ $status -eq 0 ]; then
    say "All three builds passed their tests"
else
    say "Some tests failed (see above)"
fi
exit $status
