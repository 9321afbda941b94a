#!/usr/bin/env python3
"""Footprint of the desktop widget next to a minimal Qt Widgets window (the floor).

Starts its own Xvfb (1440 x 900) and reports, for the widget and the floor side by side:
  - time from exec to the first painted frame (median of several launches; both programs print
    "first-paint <CLOCK_MONOTONIC seconds>" when TOVRIN_REPORT_FIRST_PAINT=1),
  - resident memory (VmRSS) a while after start,
  - CPU time used while idle over a stretch of minutes, as a share of one core.
Targets: startup within 1.5x and memory within 1.25x of the floor; idle CPU under 0.05 %.

Each program runs in a session of its own (temporary HOME and XDG folders, no D-Bus), so the
user's settings are never touched. A short run for CI:
    footprint.py --build build --memory-after 20 --idle-minutes 0.33
"""

import argparse
import os
import select
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

CLOCK_TICKS = os.sysconf("SC_CLK_TCK")


def start_xvfb():
    read_end, write_end = os.pipe()
    server = subprocess.Popen(
        ["Xvfb", "-displayfd", str(write_end), "-screen", "0", "1440x900x24", "-nolisten", "tcp"],
        pass_fds=(write_end,), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    os.close(write_end)
    number = b""
    while select.select([read_end], [], [], 10)[0]:
        chunk = os.read(read_end, 16)
        if not chunk:
            break
        number += chunk
        if b"\n" in number:
            break
    os.close(read_end)
    if not number.strip():
        server.kill()
        sys.exit("Xvfb did not start")
    return server, ":" + number.decode().strip()


def session(root, display):
    for name in ("home", "config", "data", "run", "tmp"):
        os.makedirs(os.path.join(root, name), exist_ok=True)
    os.chmod(os.path.join(root, "run"), 0o700)
    environment = dict(os.environ)
    for name in ("WAYLAND_DISPLAY", "QT_QPA_PLATFORM"):
        environment.pop(name, None)
    environment.update({
        "DISPLAY": display,
        "HOME": os.path.join(root, "home"),
        "XDG_CONFIG_HOME": os.path.join(root, "config"),
        "XDG_DATA_HOME": os.path.join(root, "data"),
        "XDG_RUNTIME_DIR": os.path.join(root, "run"),
        "TMPDIR": os.path.join(root, "tmp"),
        "DBUS_SESSION_BUS_ADDRESS": "unix:path=/nonexistent/footprint-bus",
        "DBUS_SYSTEM_BUS_ADDRESS": "unix:path=/nonexistent/footprint-bus",
        "TOVRIN_REPORT_FIRST_PAINT": "1",
    })
    return environment


def launch(program, environment):
    started = time.monotonic()
    process = subprocess.Popen([program], env=environment, stdin=subprocess.DEVNULL,
                               stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)
    return process, started


def first_paint(process, started, timeout=30):
    deadline = time.monotonic() + timeout
    buffer = b""
    while time.monotonic() < deadline:
        if not select.select([process.stderr], [], [], 0.5)[0]:
            continue
        chunk = os.read(process.stderr.fileno(), 4096)
        if not chunk:
            break
        buffer += chunk
        for line in buffer.split(b"\n"):
            if line.startswith(b"first-paint "):
                return float(line.split()[1]) - started
    return None


def stop(process):
    process.terminate()
    try:
        process.wait(5)
    except subprocess.TimeoutExpired:
        process.kill()
        process.wait()


def resident_kib(pid):
    with open(f"/proc/{pid}/status") as status:
        for line in status:
            if line.startswith("VmRSS:"):
                return int(line.split()[1])
    return None


def cpu_seconds(pid):
    with open(f"/proc/{pid}/stat") as stat:
        fields = stat.read().rsplit(")", 1)[1].split()
    # utime and stime are fields 14 and 15; after the command name they are at 11 and 12.
    return (int(fields[11]) + int(fields[12])) / CLOCK_TICKS


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", default="build", help="the build folder (default: build)")
    parser.add_argument("--runs", type=int, default=5, help="launches for the startup median")
    parser.add_argument("--memory-after", type=float, default=60,
                        help="seconds after start when memory is read (default 60)")
    parser.add_argument("--idle-minutes", type=float, default=10,
                        help="minutes of idle CPU measurement (default 10)")
    parser.add_argument("--strict", action="store_true", help="exit 1 when a target is missed")
    options = parser.parse_args()

    widget = os.path.join(options.build, "bin", "tovrin")
    floor = os.path.join(options.build, "bench", "tovrin_footprint_floor")
    for program in (widget, floor):
        if not os.access(program, os.X_OK):
            sys.exit(f"{program} is not built")

    server, display = start_xvfb()
    scratch = tempfile.mkdtemp(prefix="tovrin-footprint-")
    try:
        startup = {"widget": [], "floor": []}
        for run in range(options.runs):
            for name, program in (("widget", widget), ("floor", floor)):
                environment = session(os.path.join(scratch, f"{name}-{run}"), display)
                process, started = launch(program, environment)
                seconds = first_paint(process, started)
                stop(process)
                if seconds is None:
                    sys.exit(f"{name} did not report its first paint")
                startup[name].append(seconds)

        # Both long runs side by side on the same server.
        running = {}
        for name, program in (("widget", widget), ("floor", floor)):
            process, started = launch(program, session(os.path.join(scratch, name), display))
            first_paint(process, started)
            running[name] = (process, started)
        time.sleep(max(0.0, options.memory_after - (time.monotonic() - running["widget"][1])))
        memory = {name: resident_kib(process.pid) for name, (process, _) in running.items()}
        before = {name: (cpu_seconds(process.pid), time.monotonic())
                  for name, (process, _) in running.items()}
        time.sleep(options.idle_minutes * 60)
        idle = {}
        for name, (process, _) in running.items():
            used = cpu_seconds(process.pid) - before[name][0]
            idle[name] = 100.0 * used / (time.monotonic() - before[name][1])
        for process, _ in running.values():
            stop(process)
    finally:
        server.terminate()
        server.wait()
        shutil.rmtree(scratch, ignore_errors=True)

    widget_start = statistics.median(startup["widget"])
    floor_start = statistics.median(startup["floor"])
    rows = [
        ("first paint (median of %d), ms" % options.runs, widget_start * 1000,
         floor_start * 1000, widget_start / floor_start, "<= 1.5x", widget_start <= 1.5 * floor_start),
        ("resident memory after %g s, MiB" % options.memory_after, memory["widget"] / 1024,
         memory["floor"] / 1024, memory["widget"] / memory["floor"], "<= 1.25x",
         memory["widget"] <= 1.25 * memory["floor"]),
        ("idle CPU over %g min, %% of a core" % options.idle_minutes, idle["widget"],
         idle["floor"], None, "< 0.05 %", idle["widget"] < 0.05),
    ]
    print(f"{'measure':44} {'widget':>10} {'floor':>10} {'ratio':>7}  target")
    for label, mine, base, ratio, target, met in rows:
        ratio_text = f"{ratio:7.2f}" if ratio is not None else " " * 7
        print(f"{label:44} {mine:10.3f} {base:10.3f} {ratio_text}  {target:9} "
              f"{'met' if met else 'MISSED'}")
    if options.strict and not all(row[-1] for row in rows):
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
