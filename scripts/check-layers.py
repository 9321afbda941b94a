#!/usr/bin/env python3
"""Checks that every source folder includes only the folders below it, and that the folders
without Qt include no Qt header. Prints each offending line and exits 1; exits 0 when clean.

Usage: check-layers.py [SOURCE_ROOT]
       check-layers.py --allowed-table   (the table below as "folder:allowed,allowed" lines, which
                                          the build reads to give each library only these folders)
"""

import pathlib
import re
import sys

# What each folder may include besides itself, lowest first. A folder of the program that is
# missing here is an error, so a new one gets its place in the order when it is made.
ALLOWED = {
    "model": set(),
    "platform": {"model"},
    "platform/linux": {"platform", "model"},
    "platform/qt": {"platform", "model"},
    "mac": {"platform", "model"},
    "phone": {"platform", "model"},
    # The phone settings helper, a program of its own: it shares only the phone layer's
    # description of how it is called.
    "helper": {"phone"},
    # The program's own usbmuxd for phones on the network. It parses its own messages and needs
    # nothing of the phone layer.
    "muxer": {"platform", "model"},
    # The connection check: it asks the muxer's parts (avahi, pair records) and the phone's
    # tools the same questions the program depends on.
    "diagnosis": {"muxer", "phone", "platform", "model"},
    # The battery history file (SQLite); it knows readings only as rows.
    "history": {"platform", "model"},
    "monitor": {"mac", "phone", "platform", "model"},
    # What is shown and said, decided without Qt; the card, the bars, the alerts and the
    # connection window share it.
    "presentation": {"history", "monitor", "diagnosis", "mac", "phone", "platform", "model"},
    # The widgets only draw what the presentation decided; the connection window shows the
    # connection check and the phone settings.
    "views": {"presentation", "history", "monitor", "diagnosis", "mac", "phone", "platform/qt",
              "platform", "model"},
    # The card as a desktop window, and the tray item.
    "shell": {"views", "presentation", "history", "monitor", "diagnosis", "mac", "phone",
              "platform/qt", "platform", "model"},
    # The one-shot switches: they print what the presentation and the monitor give them.
    "commands": {"presentation", "history", "monitor", "diagnosis", "mac", "phone", "platform/qt",
                 "platform", "model"},
    # The entry and the delegate: the one place that picks the platform's implementations.
    "app": {"shell", "commands", "views", "presentation", "history", "monitor", "diagnosis",
            "muxer", "mac", "phone", "platform/linux", "platform/qt", "platform", "model"},
}
# Folders whose code builds and is tested without Qt.
WITHOUT_QT = {"model", "platform", "platform/linux", "mac", "phone", "helper", "muxer", "diagnosis",
              "history", "monitor", "presentation"}
# Folders that are not part of the program's layers.
NOT_LAYERS = {"tests", "bench", "fuzz", "packaging", "docs", "scripts", "cmake", "build"}

PROJECT_INCLUDE = re.compile(r'^\s*#\s*include\s*"([^"]+)"')
# Qt's class headers (<QString>, <QtCore/QString>) and its lower-case ones (<qglobal.h>).
QT_INCLUDE = re.compile(r"^\s*#\s*include\s*<(Q[A-Za-z]*|Qt[A-Za-z]+/[^>]*|q[a-z0-9_]*\.h)>")


def layer_of(relative):
    parts = relative.parts
    if len(parts) >= 3 and parts[0] == "platform" and parts[1] in ("linux", "qt"):
        return f"platform/{parts[1]}"
    return parts[0]


def included_layer(include):
    parts = pathlib.PurePosixPath(include).parts
    if len(parts) < 2:
        return None
    if parts[0] == "platform" and len(parts) >= 3 and parts[1] in ("linux", "qt"):
        return f"platform/{parts[1]}"
    return parts[0]


def check(root):
    problems = []
    for path in sorted(root.rglob("*")):
        if path.suffix not in (".h", ".cpp") or not path.is_file():
            continue
        relative = path.relative_to(root)
        if relative.parts[0] in NOT_LAYERS or relative.parts[0].startswith("build"):
            continue
        if len(relative.parts) == 1:
            continue
        layer = layer_of(relative)
        if layer not in ALLOWED:
            problems.append(f"{relative}: the folder {layer}/ has no place in the layer order")
            continue
        without_qt = layer in WITHOUT_QT
        for number, line in enumerate(path.read_text(encoding="utf-8").splitlines(), 1):
            if without_qt and QT_INCLUDE.match(line):
                problems.append(f"{relative}:{number}: Qt in a folder without Qt: {line.strip()}")
                continue
            found = PROJECT_INCLUDE.match(line)
            if not found:
                continue
            target = included_layer(found.group(1))
            if target is None or target == layer:
                continue
            if target not in ALLOWED.get(layer, set()):
                problems.append(f"{relative}:{number}: {layer}/ may not include {target}/: "
                                f"{line.strip()}")
    return problems


def main(arguments):
    if arguments[1:] == ["--allowed-table"]:
        for folder, allowed in ALLOWED.items():
            print(f"{folder}:{','.join(sorted(allowed))}")
        return 0
    root = pathlib.Path(arguments[1] if len(arguments) > 1 else pathlib.Path(__file__).parent.parent)
    problems = check(root.resolve())
    for problem in problems:
        print(problem)
    if problems:
        print(f"{len(problems)} include(s) break the layers "
              "(model <- platform <- mac, phone, muxer <- monitor <- presentation <- views <- shell, "
              "commands <- app; no Qt below the views)")
        return 1
    print("Every folder includes only the folders below it; no Qt below the views")
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
