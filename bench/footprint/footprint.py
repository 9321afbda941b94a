#!/usr/bin/env python3
"""Footprint of the desktop widget next to a minimal Qt Widgets window (the floor).

Starts its own Xvfb (1440 x 900) and reports, for the widget and the floor side by side:
  - time from launch to the first painted frame (median of several launches, the programs taking
    turns so that all see the same load; both programs print "first-paint <CLOCK_MONOTONIC
    seconds>" when started with --report-first-paint),
  - resident memory (VmRSS) a while after start, as min / median / max over as many copies
    running at once,
  - CPU time used while idle over a stretch of minutes, as a share of one core.
Targets: startup within 1.5x and memory within 1.25x of the floor; idle CPU under 0.05 %.

The widget is measured twice: on a machine with nothing to show ("no reading") and as a laptop
user sees it ("readings": a battery at 76 % from a made-up power-supply folder mounted over
/sys/class/power_supply in a private mount namespace, which needs unshare and user namespaces,
and a saved phone reading, so the card shows two dated readings).

Each program runs in a session of its own (temporary HOME and XDG folders, no D-Bus), so the
user's settings are never touched. A short run for CI:
    footprint.py --build build-bench --memory-after 20 --idle-minutes 0.33
"""

import argparse
import json
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
        ["Xvfb", "-displayfd", str(write_end), "-noreset", "-screen", "0", "1440x900x24",
         "-nolisten", "tcp"],
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


# The laptop battery of the "readings" case: 76 % of 57 Wh, on battery power.
POWER_SUPPLY = {
    "BAT0": {"type": "Battery", "present": "1", "status": "Discharging",
             "energy_now": "43320000", "energy_full": "57000000"},
    "AC": {"type": "Mains", "online": "0"},
}
# Seconds from the Unix epoch to the reference date of saved readings (2001-01-01 UTC).
REFERENCE_DATE = 978307200


def add_readings(root):
    """Writes the made-up battery and a saved phone reading into the session at `root`."""
    for supply, attributes in POWER_SUPPLY.items():
        folder = os.path.join(root, "power", supply)
        os.makedirs(folder, exist_ok=True)
        for name, value in attributes.items():
            with open(os.path.join(folder, name), "w") as attribute:
                attribute.write(value + "\n")
    cache = os.path.join(root, "data", "Ambrel")
    os.makedirs(cache, exist_ok=True)
    reading = {"id": "iphone", "name": "Anna\u2019s iPhone", "percentage": 54,
               "isCharging": False, "isPluggedIn": False,
               "lastUpdated": time.time() - REFERENCE_DATE - 300, "source": "Wi-Fi",
               "model": "iPhone15,2"}
    with open(os.path.join(cache, "battery-cache.json"), "w") as saved:
        json.dump(reading, saved)


def command(program, root):
    """Every program starts the same way, through the namespace wrapper that gives the readings
    case its power-supply folder (an empty one for the others), so that the wrapper's own
    processes cost all of them alike."""
    os.makedirs(os.path.join(root, "power"), exist_ok=True)
    # The mount is private to the program; the shell execs it, so the pid stays the program's.
    return ["unshare", "--user", "--map-root-user", "--mount", "sh", "-c",
            'mount --bind "$1" /sys/class/power_supply && shift && exec "$@"', "sh",
            os.path.join(root, "power"), program, "--report-first-paint"]


def session(root, display, readings=False):
    if readings:
        add_readings(root)
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
    })
    return environment


def launch(arguments, environment):
    started = time.monotonic()
    process = subprocess.Popen(arguments, env=environment, stdin=subprocess.DEVNULL,
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


def spread(values):
    ordered = sorted(values)
    return ordered[0], statistics.median(ordered), ordered[-1]


def main():
    parser = argparse.ArgumentParser(description=__doc__,
                                     formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", default="build-bench",
                        help="the build folder with the benchmarks (default: build-bench)")
    parser.add_argument("--runs", type=int, default=5,
                        help="launches for the startup median, and copies for memory")
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
    if subprocess.run(["unshare", "--user", "--map-root-user", "--mount", "true"],
                      stderr=subprocess.DEVNULL).returncode != 0:
        sys.exit("the measurement needs unshare with user namespaces")

    # name: (program, session with readings)
    cases = {"bare": (widget, False), "readings": (widget, True), "floor": (floor, False)}
    server, display = start_xvfb()
    scratch = tempfile.mkdtemp(prefix="tovrin-footprint-")
    running = []
    try:
        startup = {name: [] for name in cases}
        names = list(cases)
        for run in range(options.runs):
            # Each launch round starts with another program, so no one always follows the same.
            for name in names[run % len(names):] + names[:run % len(names)]:
                program, readings = cases[name]
                root = os.path.join(scratch, f"{name}-{run}")
                environment = session(root, display, readings)
                process, started = launch(command(program, root), environment)
                seconds = first_paint(process, started)
                stop(process)
                if seconds is None:
                    sys.exit(f"{name} did not report its first paint")
                startup[name].append(seconds)

        # The long runs side by side on the same server: as many copies of each as launches.
        for copy in range(options.runs):
            for name, (program, readings) in cases.items():
                root = os.path.join(scratch, f"{name}-long-{copy}")
                process, started = launch(command(program, root),
                                          session(root, display, readings))
                if first_paint(process, started) is None:
                    sys.exit(f"{name} did not report its first paint")
                running.append((name, process, started))
        time.sleep(max(0.0, options.memory_after - (time.monotonic() - running[0][2])))
        memory = {name: [] for name in cases}
        for name, process, _ in running:
            memory[name].append(resident_kib(process.pid) / 1024)
        before = [(cpu_seconds(process.pid), time.monotonic()) for _, process, _ in running]
        time.sleep(options.idle_minutes * 60)
        idle = {name: [] for name in cases}
        for (name, process, _), (used_before, since) in zip(running, before):
            used = cpu_seconds(process.pid) - used_before
            idle[name].append(100.0 * used / (time.monotonic() - since))
    finally:
        for _, process, _ in running:
            stop(process)
        server.terminate()
        server.wait()
        shutil.rmtree(scratch, ignore_errors=True)

    floor_start = statistics.median(startup["floor"])
    floor_memory = statistics.median(memory["floor"])
    rows = []
    for name, label in (("bare", "no reading"), ("readings", "readings")):
        start = statistics.median(startup[name])
        resident = statistics.median(memory[name])
        rows += [
            (f"first paint, {label} (median of {options.runs}), ms", start * 1000,
             floor_start * 1000, start / floor_start, "<= 1.5x", start <= 1.5 * floor_start),
            (f"resident memory, {label}, {options.memory_after:g} s, MiB", resident, floor_memory,
             resident / floor_memory, "<= 1.25x", resident <= 1.25 * floor_memory),
        ]
    busiest = max(idle["bare"] + idle["readings"])
    rows.append((f"idle CPU over {options.idle_minutes:g} min, % of a core", busiest,
                 max(idle["floor"]), None, "< 0.05 %", busiest < 0.05))
    print(f"{'measure':44} {'widget':>10} {'floor':>10} {'ratio':>7}  target")
    for label, mine, base, ratio, target, met in rows:
        ratio_text = f"{ratio:7.2f}" if ratio is not None else " " * 7
        print(f"{label:44} {mine:10.3f} {base:10.3f} {ratio_text}  {target:9} "
              f"{'met' if met else 'MISSED'}")
    print()
    print("min / median / max over the launches (first paint, ms) and the copies (memory, MiB):")
    for name in cases:
        print(f"  {name:9} first paint "
              + " / ".join(f"{value * 1000:.1f}" for value in spread(startup[name]))
              + "   memory " + " / ".join(f"{value:.1f}" for value in spread(memory[name])))
    if options.strict and not all(row[-1] for row in rows):
        return 1
    return 0


if __name__ == "__main__":
    sys.exit(main())
