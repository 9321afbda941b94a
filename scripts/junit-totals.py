#!/usr/bin/env python3
"""Prints "PASSED FAILED SKIPPED" for one CTest JUnit report (ctest --output-junit FILE).

A test that ran and passed has status "run"; one that failed, "fail"; one that was skipped
(GTEST_SKIP, or not run at all), "notrun" or "disabled", or carries a <skipped> element.
Exits 2, with a line on standard error, when the report is missing or not a CTest report.
"""

import sys
import xml.etree.ElementTree as ElementTree


def totals(path):
    root = ElementTree.parse(path).getroot()
    if root.tag != "testsuite":
        raise ValueError(f"{path}: not a CTest JUnit report (root element {root.tag})")
    passed = failed = skipped = 0
    for case in root.iter("testcase"):
        status = case.get("status", "")
        if case.find("skipped") is not None or status in ("notrun", "disabled"):
            skipped += 1
        elif status == "run" and case.find("failure") is None:
            passed += 1
        else:
            failed += 1
    return passed, failed, skipped


def main(arguments):
    if len(arguments) != 2:
        print("usage: junit-totals.py REPORT.xml", file=sys.stderr)
        return 2
    try:
        passed, failed, skipped = totals(arguments[1])
    except (OSError, ElementTree.ParseError, ValueError) as error:
        print(f"junit-totals: {error}", file=sys.stderr)
        return 2
    print(passed, failed, skipped)
    return 0


if __name__ == "__main__":
    sys.exit(main(sys.argv))
