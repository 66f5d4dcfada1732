#!/usr/bin/env python3
"""Adds up the reports of test runs: failures with their output, skips with their reasons, and a
last line "N passed, N failed, N skipped".

usage: test_report.py [--skips FILE] NAME=REPORT...

REPORT is a JUnit file of ctest; anything that is no such file counts as one failure of the run NAME.
FILE gets one line "NAME<tab>test<tab>reason" per skip. Status 1 when something failed or when a run
held no test.
"""

import os
import sys
import xml.etree.ElementTree as ElementTree

PASSED, FAILED, SKIPPED = "passed", "failed", "skipped"


def skip_reason(output, default):
    """The text that a GoogleTest program prints below "file:line: Skipped", or that a script prints
    behind "skip: "."""
    lines = output.splitlines()
    for number, line in enumerate(lines):
        if line.startswith("skip: "):
            return line[len("skip: "):].strip()
        if line.endswith(": Skipped") and number + 1 < len(lines) and lines[number + 1].strip():
            return lines[number + 1].strip()
    return default


def read_case(case):
    """(outcome, name, text): the text is a failure's output or a skip's reason."""
    name = case.get("name", "")
    output = case.findtext("system-out") or ""
    status = case.get("status", "")
    skipped = case.find("skipped")
    if status == "disabled":
        return SKIPPED, name, "disabled"
    if case.find("failure") is not None or status == "fail":
        return FAILED, name, output
    if skipped is not None or status == "notrun":
        message = skipped.get("message", "") if skipped is not None else ""
        # A program that is missing or can't start is reported as one that wasn't run.
        if message.startswith(("SKIP_REGULAR_EXPRESSION", "SKIP_RETURN_CODE")):
            return SKIPPED, name, skip_reason(output, message)
        return FAILED, name, output or message or "not run"
    return PASSED, name, output


def read_report(path):
    """The cases of one run; a failure of its own when there is no report or no test in it."""
    if not os.path.isfile(path):
        return [(FAILED, path, "")]
    try:
        cases = [read_case(case) for case in ElementTree.parse(path).getroot().iter("testcase")]
    except ElementTree.ParseError as error:
        return [(FAILED, path, str(error))]
    return cases or [(FAILED, "no tests", "")]


def main(arguments):
    skips_file = None
    if arguments[:1] == ["--skips"]:
        skips_file, arguments = arguments[1], arguments[2:]
    counts = {PASSED: 0, FAILED: 0, SKIPPED: 0}
    skips = []
    for argument in arguments:
        run, _, path = argument.partition("=")
        for outcome, name, text in read_report(path):
            counts[outcome] += 1
            if outcome == FAILED:
                print(f"FAILED {run}: {name}\n{text.rstrip()}".rstrip())
            elif outcome == SKIPPED:
                skips.append(f"{run}\t{name}\t{text}")
    for skip in skips:
        run, name, reason = skip.split("\t", 2)
        print(f"SKIPPED {run}: {name}: {reason}")
    if skips_file:
        with open(skips_file, "w", encoding="utf-8") as out:
            out.writelines(skip + "\n" for skip in skips)
    print(f"{counts[PASSED]} passed, {counts[FAILED]} failed, {counts[SKIPPED]} skipped")
    return 1 if counts[FAILED] > 0 or counts[PASSED] == 0 else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1:]))
