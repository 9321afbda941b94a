#!/usr/bin/env python3
"""Instructions each program runs from launch to just after its first painted frame, under
valgrind's callgrind: a startup figure that, unlike the wall clock, does not move with the
machine's load.

Runs the floor and the widget (no reading, and readings) once each in the same sessions as
footprint.py, asks callgrind for a dump as soon as the program prints "first-paint", then ends
it. Prints the totals, the ratios to the floor, and where the profiles are kept (--keep), for
callgrind_annotate.
    instructions.py --build build-bench [--keep FOLDER]
"""

import argparse
import os
import re
import select
import shutil
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import footprint  # noqa: E402


def profile(program, readings, display, scratch, output, timeout=180):
    """Returns the instructions run up to the first paint, or None when it never came."""
    root = os.path.join(scratch, os.path.basename(output))
    environment = footprint.session(root, display, readings)
    arguments = footprint.command(program, root)
    arguments = arguments[:-1] + ["valgrind", "--tool=callgrind", "--callgrind-out-file=" + output,
                                  arguments[-1]]
    process = subprocess.Popen(arguments, env=environment, stdin=subprocess.DEVNULL,
                               stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    try:
        buffer = b""
        deadline = time.monotonic() + timeout
        while b"first-paint " not in buffer and time.monotonic() < deadline:
            if select.select([process.stderr], [], [], 0.5)[0]:
                chunk = os.read(process.stderr.fileno(), 4096)
                if not chunk:
                    break
                buffer += chunk
        if b"first-paint " not in buffer:
            return None
        # valgrind's gdb server keeps its pipes in the program's TMPDIR; the dump lands in
        # `output`.1 before the call returns.
        subprocess.run(["callgrind_control", "--dump", str(process.pid)],
                       env=dict(os.environ, TMPDIR=environment["TMPDIR"]),
                       stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL, check=True)
    finally:
        process.kill()
        process.wait()
    # callgrind opens `output` at start but writes each dump to a numbered file of its own.
    if os.path.exists(output) and os.path.getsize(output) == 0:
        os.remove(output)
    with open(output + ".1") as dump:
        for line in dump:
            match = re.match(r"summary: (\d+)", line)
            if match:
                return int(match.group(1))
    return None


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", default="build-bench",
                        help="the build folder with the benchmarks (default: build-bench)")
    parser.add_argument("--keep", help="a folder to keep the callgrind profiles in")
    options = parser.parse_args()
    if shutil.which("valgrind") is None or shutil.which("callgrind_control") is None:
        sys.exit("the measurement needs valgrind")

    widget = os.path.join(options.build, "bin", "tovrin")
    floor = os.path.join(options.build, "bench", "tovrin_footprint_floor")
    cases = {"floor": (floor, False), "no reading": (widget, False), "readings": (widget, True)}
    server, display = footprint.start_xvfb()
    scratch = tempfile.mkdtemp(prefix="tovrin-instructions-")
    keep = options.keep or scratch
    os.makedirs(keep, exist_ok=True)
    totals = {}
    try:
        for name, (program, readings) in cases.items():
            output = os.path.join(keep, "callgrind-" + name.replace(" ", "-"))
            totals[name] = profile(program, readings, display, scratch, output)
            if totals[name] is None:
                sys.exit(f"{name}: no first paint under callgrind")
    finally:
        server.terminate()
        server.wait()
        shutil.rmtree(scratch, ignore_errors=True)

    print(f"{'instructions to the first paint':36}{'millions':>10}{'ratio':>8}")
    for name, total in totals.items():
        print(f"{name:36}{total / 1e6:10.1f}{total / totals['floor']:8.2f}")
    if options.keep:
        print(f"profiles in {options.keep} (callgrind_annotate <file>.1)")


if __name__ == "__main__":
    main()
