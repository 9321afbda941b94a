#!/usr/bin/env python3
"""What the widget costs while nothing happens: wake-ups, CPU time and memory when idle.

Starts the widget on an X server and a session bus of its own (Xvfb, dbus-daemon), in a session
of its own (temporary HOME and XDG folders, no system bus, no phone anywhere), lets it settle for
a warm-up, then watches it for a stretch of minutes and prints, per thread and for the whole
process:
  - voluntary wake-ups a minute (voluntary context switches: each is a sleep that ended),
  - CPU seconds an hour (the process's own, and that of the programs it ran and reaped),
  - resident memory at the end.
Threads are looked at ten times a second, so one that ends during the stretch (a phone read's
job) still counts with what it had done by its last look; a thread that lives less than a tenth
of a second between two looks (a tool run's output reader, say) is not seen at all, so the
per-thread table of a stretch with a phone read in it counts a few wake-ups too few. The whole
process is also counted exactly, by the kernel's own totals (every thread it ever had), which a
small library loaded into the widget (rusage_probe.c, built here with cc) reads at the start
and at the end of the stretch.

    bench/idle/idle.py --program build/bin/tovrin --warm-up 60 --minutes 5
    bench/idle/idle.py --hidden      # the card hidden from its menu first, as a user does
"""

import argparse
import os
import select
import shutil
import signal
import subprocess
import sys
import tempfile
import time

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "footprint"))
from footprint import start_xvfb  # noqa: E402  (the X server the footprint benchmark starts)

CLOCK_TICKS = os.sysconf("SC_CLK_TCK")


def read_line_from(pipe_end, what, timeout=10):
    text = b""
    deadline = time.monotonic() + timeout
    while b"\n" not in text and time.monotonic() < deadline:
        if select.select([pipe_end], [], [], 0.5)[0]:
            chunk = os.read(pipe_end, 256)
            if not chunk:
                break
            text += chunk
    os.close(pipe_end)
    if b"\n" not in text:
        sys.exit(f"{what} did not start")
    return text.decode().strip()


def start_bus(root):
    """A session bus that starts nothing on demand: every peer on it is the widget's."""
    config = os.path.join(root, "bus.conf")
    with open(config, "w") as out:
        out.write('<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"\n'
                  ' "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">\n'
                  "<busconfig><type>session</type>"
                  f"<listen>unix:path={os.path.join(root, 'bus')}</listen>"
                  "<auth>EXTERNAL</auth><policy context=\"default\">"
                  '<allow send_destination="*"/><allow own="*"/></policy></busconfig>\n')
    read_end, write_end = os.pipe()
    bus = subprocess.Popen(
        ["dbus-daemon", "--nofork", "--nopidfile", f"--config-file={config}",
         f"--print-address={write_end}"],
        pass_fds=(write_end,), stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
    os.close(write_end)
    return bus, read_line_from(read_end, "dbus-daemon")


def session(root, display, bus_address):
    for name in ("home", "config", "data", "cache", "run", "tmp"):
        os.makedirs(os.path.join(root, name), exist_ok=True)
    os.chmod(os.path.join(root, "run"), 0o700)
    return {
        "PATH": os.environ.get("PATH", "/usr/bin:/bin"),
        "LANG": "C.UTF-8",
        "DISPLAY": display,
        "HOME": os.path.join(root, "home"),
        "XDG_CONFIG_HOME": os.path.join(root, "config"),
        "XDG_DATA_HOME": os.path.join(root, "data"),
        "XDG_CACHE_HOME": os.path.join(root, "cache"),
        "XDG_RUNTIME_DIR": os.path.join(root, "run"),
        "TMPDIR": os.path.join(root, "tmp"),
        "DBUS_SESSION_BUS_ADDRESS": bus_address,
        "DBUS_SYSTEM_BUS_ADDRESS": "unix:path=/nonexistent/idle-bench-system-bus",
    }


def thread_counts(pid):
    """{tid: (name, voluntary switches, CPU ticks)} of the process's live threads."""
    counts = {}
    try:
        tids = os.listdir(f"/proc/{pid}/task")
    except FileNotFoundError:
        return counts
    for tid in tids:
        try:
            with open(f"/proc/{pid}/task/{tid}/status") as status:
                fields = dict(line.split(":", 1) for line in status if ":" in line)
            with open(f"/proc/{pid}/task/{tid}/stat") as stat:
                after_name = stat.read().rsplit(")", 1)[1].split()
        except (FileNotFoundError, ProcessLookupError):
            continue
        # Fields 14 and 15 (utime, stime) are the 12th and 13th after the name.
        counts[int(tid)] = (fields["Name"].strip(), int(fields["voluntary_ctxt_switches"]),
                            int(after_name[11]) + int(after_name[12]))
    return counts


def process_ticks(pid):
    """(own CPU ticks, reaped children's CPU ticks)."""
    with open(f"/proc/{pid}/stat") as stat:
        after_name = stat.read().rsplit(")", 1)[1].split()
    return int(after_name[11]) + int(after_name[12]), int(after_name[13]) + int(after_name[14])


def resident_kib(pid):
    with open(f"/proc/{pid}/status") as status:
        for line in status:
            if line.startswith("VmRSS:"):
                return int(line.split()[1])
    return 0


def watch(pid, seconds):
    """Per thread: (name, switches during the stretch, ticks during the stretch)."""
    first = thread_counts(pid)
    last = dict(first)
    deadline = time.monotonic() + seconds
    while time.monotonic() < deadline:
        time.sleep(min(0.1, max(deadline - time.monotonic(), 0)))
        last.update(thread_counts(pid))
    result = {}
    for tid, (name, switches, ticks) in last.items():
        _, switches_before, ticks_before = first.get(tid, (name, 0, 0))
        result[tid] = (name, switches - switches_before, ticks - ticks_before)
    return result


def exact_use(pid, usage_file, line_count):
    """The widget's (voluntary switches, CPU microseconds) so far, every thread included: asks
    its probe library, then reads the line it appended."""
    os.kill(pid, signal.SIGRTMIN + 5)
    deadline = time.monotonic() + 10
    while time.monotonic() < deadline:
        try:
            with open(usage_file) as lines:
                found = lines.read().splitlines()
        except FileNotFoundError:
            found = []
        if len(found) >= line_count:
            switches, user, system = (int(value) for value in found[line_count - 1].split())
            return switches, user + system
        time.sleep(0.05)
    sys.exit("the widget's probe library did not answer")


def visible_cards(env):
    """The X windows of the card that are on screen."""
    found = subprocess.run(["xdotool", "search", "--onlyvisible", "--name", "^Tovrin$"],
                           env=env, capture_output=True, text=True)
    return found.stdout.split()


def hide_card(env):
    """Hides the card the way a user does: its options menu, then "Hide widget"."""
    deadline = time.monotonic() + 60
    cards = []
    while not cards and time.monotonic() < deadline:
        cards = visible_cards(env)
        time.sleep(0.2)
    if not cards:
        sys.exit("the card did not come on screen")
    geometry = subprocess.run(["xdotool", "getwindowgeometry", "--shell", cards[0]], env=env,
                              capture_output=True, text=True).stdout
    values = dict(line.split("=", 1) for line in geometry.split() if "=" in line)
    # The options button sits at the right of the header: 25 from the right edge, 20 down.
    x = int(values["X"]) + int(values["WIDTH"]) - 25
    y = int(values["Y"]) + 20
    subprocess.run(["xdotool", "mousemove", str(x), str(y), "click", "1"], env=env, check=True)
    time.sleep(1)
    # Refresh, set up, Battery History, (the byline is not selectable), Hide.
    subprocess.run(["xdotool", "key", "Down", "Down", "Down", "Down", "Return"], env=env,
                   check=True)
    while visible_cards(env) and time.monotonic() < deadline:
        time.sleep(0.2)
    if visible_cards(env):
        sys.exit("the card did not hide")


def main():
    parser = argparse.ArgumentParser(description=__doc__.splitlines()[0])
    parser.add_argument("--program", default="build/bin/tovrin")
    parser.add_argument("--warm-up", type=float, default=60, help="seconds (60)")
    parser.add_argument("--minutes", type=float, default=5, help="length of the stretch (5)")
    parser.add_argument("--hidden", action="store_true",
                        help="hide the card from its menu before the warm-up")
    options = parser.parse_args()
    for tool in ("Xvfb", "dbus-daemon", "xdotool", "cc"):
        if shutil.which(tool) is None:
            sys.exit(f"{tool} is missing: sudo apt-get install xvfb dbus-daemon xdotool")

    # Stopped with a signal, it still stops what it started (the finally below).
    for number in (signal.SIGTERM, signal.SIGINT, signal.SIGHUP):
        signal.signal(number, lambda received, _frame: sys.exit(128 + received))
    root = tempfile.mkdtemp(prefix="tovrin-idle-")
    server = bus = widget = None
    try:
        server, display = start_xvfb()
        bus, address = start_bus(root)
        env = session(root, display, address)
        probe = os.path.join(root, "rusage_probe.so")
        subprocess.run(["cc", "-O2", "-shared", "-fPIC", "-o", probe,
                        os.path.join(os.path.dirname(os.path.abspath(__file__)), "rusage_probe.c")],
                       check=True)
        usage_file = os.path.join(root, "rusage")
        env = dict(env, LD_PRELOAD=probe, TOVRIN_RUSAGE_FILE=usage_file)
        widget = subprocess.Popen([os.path.abspath(options.program)], env=env,
                                  stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL,
                                  stderr=subprocess.DEVNULL, cwd=root)
        if options.hidden:
            hide_card(env)
        time.sleep(options.warm_up)
        if widget.poll() is not None:
            sys.exit(f"the widget ended during the warm-up (exit {widget.returncode})")
        seconds = options.minutes * 60
        own_before, children_before = process_ticks(widget.pid)
        exact_before = exact_use(widget.pid, usage_file, 1)
        threads = watch(widget.pid, seconds)
        exact_after = exact_use(widget.pid, usage_file, 2)
        own_after, children_after = process_ticks(widget.pid)
        memory = resident_kib(widget.pid)
        if widget.poll() is not None:
            sys.exit(f"the widget ended while watched (exit {widget.returncode})")
    finally:
        for process in (widget, bus, server):
            if process is not None and process.poll() is None:
                process.terminate()
                try:
                    process.wait(10)
                except subprocess.TimeoutExpired:
                    process.kill()
                    process.wait()
        shutil.rmtree(root, ignore_errors=True)

    minutes = seconds / 60
    per_hour = 3600 / seconds / CLOCK_TICKS
    shown = "hidden" if options.hidden else "shown"
    print(f"Idle for {minutes:g} min, card {shown}, after {options.warm_up:g} s of warm-up; "
          f"{len(threads)} threads seen")
    print(f"{'thread':<18} {'tid':>8} {'wake-ups/min':>13} {'CPU s/hour':>11}")
    for tid, (name, switches, ticks) in sorted(threads.items(), key=lambda item: -item[1][1]):
        print(f"{name:<18} {tid:>8} {switches / minutes:>13.1f} {ticks * per_hour:>11.3f}")
    total_switches = sum(switches for _, switches, _ in threads.values())
    own = (own_after - own_before) * per_hour
    children = (children_after - children_before) * per_hour
    print(f"{'whole process':<27} {total_switches / minutes:>13.1f} {own:>11.3f}")
    exact_switches = exact_after[0] - exact_before[0]
    exact_cpu = (exact_after[1] - exact_before[1]) / 1e6 * 3600 / seconds
    print(f"{'whole process, exact':<27} {exact_switches / minutes:>13.1f} {exact_cpu:>11.3f}"
          f"   ({exact_switches} wake-ups in {minutes:g} min)")
    print(f"programs it ran (CPU s/hour): {children:.3f}; own and theirs: {own + children:.3f}")
    print(f"resident memory at the end: {memory / 1024:.1f} MiB")


if __name__ == "__main__":
    main()
