#!/usr/bin/env bash
# Regenerates bench/REPORT.md from one go of measurements on this machine:
#   - the command runner's cost per run and its drain rate (ambrel_command_runner_bench),
#   - the card's render time (ambrel_card_render_bench, offscreen),
#   - a phone read against the sum of its tool runs (ambrel_phone_read_bench),
#   - a USB read through the program's muxer against the same read straight, and the memory
#     the muxer adds (ambrel_muxer_bench; built when libimobiledevice's ideviceinfo is there),
#   - the widget's startup, memory and idle CPU next to a minimal Qt window
#     (bench/footprint/footprint.py, with a short idle window unless told otherwise).
# Each program runs --runs times; every figure is the min / median / max over those runs of
# the program's own median. bench/report.py writes the report from the measurements.
#
# Usage: bench/report.sh [--build DIR] [--runs N] [--idle-minutes M] [--memory-after S]
#                        [--only muxer]
# The build folder (default: build-bench, the "bench" preset) must be an optimised build without
# sanitizers, with the benchmarks; it is configured when missing and the needed targets are built. --only muxer measures the muxer
# alone and puts its section in place of the one the report has, leaving the rest as it is.
set -euo pipefail

ROOT=$(cd "$(dirname "$0")/.." && pwd)
BUILD="$ROOT/build-bench"
RUNS=3
IDLE_MINUTES=0.25
MEMORY_AFTER=10
FOOTPRINT_LAUNCHES=3
ONLY=

while [ $# -gt 0 ]; do
    case "$1" in
        --build) BUILD=$(cd "$2" 2>/dev/null && pwd || echo "$2"); shift 2 ;;
        --runs) RUNS=$2; shift 2 ;;
        --idle-minutes) IDLE_MINUTES=$2; shift 2 ;;
        --memory-after) MEMORY_AFTER=$2; shift 2 ;;
        --only) ONLY=$2; shift 2 ;;
        -h|--help) sed -n '2,17p' "$0"; exit 0 ;;
        *) echo "unknown option: $1" >&2; exit 2 ;;
    esac
done
case "$RUNS" in ''|*[!0-9]*|0) echo "--runs needs a positive whole number" >&2; exit 2 ;; esac
case "$ONLY" in ''|muxer) ;; *) echo "--only knows only: muxer" >&2; exit 2 ;; esac

say() { printf '\033[1m==> %s\033[0m\n' "$*"; }

if [ ! -f "$BUILD/build.ninja" ]; then
    say "Configuring $BUILD"
    cmake -S "$ROOT" -B "$BUILD" -G Ninja -DCMAKE_BUILD_TYPE=RelWithDebInfo -DBUILD_TESTING=OFF \
        -DTOVRIN_BUILD_BENCHMARKS=ON >/dev/null
fi
if grep -Eq '^TOVRIN_SANITIZE:STRING=.+' "$BUILD/CMakeCache.txt"; then
    echo "$BUILD is a sanitizer build; measure an optimised one" >&2
    exit 2
fi
if ! grep -q '^TOVRIN_BUILD_BENCHMARKS:BOOL=ON' "$BUILD/CMakeCache.txt"; then
    echo "$BUILD is configured without the benchmarks; use -DTOVRIN_BUILD_BENCHMARKS=ON" >&2
    exit 2
fi
BUILD_TYPE=$(sed -n 's/^CMAKE_BUILD_TYPE:STRING=//p' "$BUILD/CMakeCache.txt")

# The muxer's benchmark needs libimobiledevice's ideviceinfo at configure time.
MUXER_BENCH=
if grep -q 'ambrel_muxer_bench' "$BUILD/build.ninja"; then
    MUXER_BENCH=ambrel_muxer_bench
elif [ -n "$ONLY" ]; then
    echo "$BUILD has no ambrel_muxer_bench (ideviceinfo was not found when it was configured)" >&2
    exit 2
fi
if [ -n "$ONLY" ]; then
    BENCHES=$MUXER_BENCH
    TARGETS=$MUXER_BENCH
else
    BENCHES="ambrel_command_runner_bench ambrel_card_render_bench ambrel_phone_read_bench $MUXER_BENCH"
    TARGETS="tovrin tovrin_footprint_floor $BENCHES"
fi

say "Building the measured programs in $BUILD"
# shellcheck disable=SC2086 # word splitting of the target list is meant
cmake --build "$BUILD" --parallel 2 --target $TARGETS

SCRATCH=$(mktemp -d "${TMPDIR:-/tmp}/tovrin-report-XXXXXX")
trap 'rm -rf "$SCRATCH"' EXIT
LOAD_BEFORE=$(cut -d' ' -f1-3 /proc/loadavg)
STARTED=$(date -u '+%Y-%m-%d %H:%M UTC')

for run in $(seq 1 "$RUNS"); do
    for bench in $BENCHES; do
        say "Run $run of $RUNS: $bench"
        QT_QPA_PLATFORM=${QT_QPA_PLATFORM:-offscreen} "$BUILD/bench/$bench" \
            --benchmark_out="$SCRATCH/$bench-$run.json" --benchmark_out_format=json \
            >/dev/null
    done
    if [ -z "$ONLY" ]; then
        say "Run $run of $RUNS: footprint (idle window $IDLE_MINUTES min)"
        python3 "$ROOT/bench/footprint/footprint.py" --build "$BUILD" --runs "$FOOTPRINT_LAUNCHES" \
            --memory-after "$MEMORY_AFTER" --idle-minutes "$IDLE_MINUTES" \
            >"$SCRATCH/footprint-$run.txt"
    fi
done
LOAD_AFTER=$(cut -d' ' -f1-3 /proc/loadavg)

COMMIT=$(git -C "$ROOT" rev-parse --short HEAD 2>/dev/null || echo unknown)
if [ -n "$(git -C "$ROOT" status --porcelain 2>/dev/null)" ]; then
    COMMIT="$COMMIT with uncommitted changes"
fi

export SCRATCH RUNS IDLE_MINUTES MEMORY_AFTER FOOTPRINT_LAUNCHES STARTED LOAD_BEFORE LOAD_AFTER \
    COMMIT BUILD_TYPE
if [ -n "$ONLY" ]; then
    python3 "$ROOT/bench/report.py" --only muxer "$ROOT/bench/REPORT.md"
    say "Wrote the muxer's section of bench/REPORT.md"
else
    python3 "$ROOT/bench/report.py" "$ROOT/bench/REPORT.md"
    say "Wrote bench/REPORT.md"
fi
