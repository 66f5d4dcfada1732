"""Tests of tools/test_report.py on small reports."""

import contextlib
import io
import os
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "tools"))

import test_report  # noqa: E402

PASS = '<testcase name="a" status="run"><system-out/></testcase>'
FAIL = '<testcase name="b" status="fail"><failure message=""/><system-out>why</system-out></testcase>'
MISSING = '<testcase name="c" status="notrun"><skipped message="Unable to find executable"/></testcase>'
SKIP = ('<testcase name="d" status="notrun">'
        '<skipped message="SKIP_REGULAR_EXPRESSION_MATCHED"/>'
        "<system-out>x.cpp:5: Skipped\nneeds root\n\n[  SKIPPED ] D</system-out></testcase>")
SCRIPT_SKIP = ('<testcase name="e" status="notrun"><skipped message="SKIP_RETURN_CODE=77"/>'
               "<system-out>skip: no browser</system-out></testcase>")
DISABLED = '<testcase name="f" status="disabled"/>'


class Report(unittest.TestCase):
    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.root = holder.name

    def run_on(self, *cases):
        path = os.path.join(self.root, "report.xml")
        with open(path, "w", encoding="utf-8") as out:
            out.write("<testsuite>" + "".join(cases) + "</testsuite>")
        return self.run_with("release=" + path)

    def run_with(self, *arguments):
        out = io.StringIO()
        with contextlib.redirect_stdout(out):
            status = test_report.main(["--skips", os.path.join(self.root, "skips"), *arguments])
        return status, out.getvalue().splitlines()

    def test_counts_what_passed(self):
        self.assertEqual((0, ["2 passed, 0 failed, 0 skipped"]), self.run_on(PASS, PASS))

    def test_prints_a_failure_with_its_output(self):
        self.assertEqual((1, ["FAILED release: b", "why", "1 passed, 1 failed, 0 skipped"]),
                         self.run_on(PASS, FAIL))

    def test_a_program_that_is_missing_has_failed(self):
        status, lines = self.run_on(PASS, MISSING)
        self.assertEqual((1, "1 passed, 1 failed, 0 skipped"), (status, lines[-1]))

    def test_prints_each_skip_with_its_reason(self):
        self.assertEqual((0, ["SKIPPED release: d: needs root", "SKIPPED release: e: no browser",
                              "SKIPPED release: f: disabled", "1 passed, 0 failed, 3 skipped"]),
                         self.run_on(PASS, SKIP, SCRIPT_SKIP, DISABLED))

    def test_lists_the_skips_for_scripts(self):
        self.run_on(PASS, SKIP)
        with open(os.path.join(self.root, "skips"), encoding="utf-8") as skips:
            self.assertEqual("release\td\tneeds root\n", skips.read())

    def test_a_run_without_tests_or_report_has_failed(self):
        self.assertEqual(1, self.run_on()[0])
        self.assertEqual(1, self.run_with("release=build failed")[0])
        self.assertEqual(1, self.run_on(SKIP)[0])

    def test_adds_several_runs(self):
        path = os.path.join(self.root, "report.xml")
        self.run_on(PASS)
        self.assertEqual((0, ["2 passed, 0 failed, 0 skipped"]),
                         self.run_with("release=" + path, "asan=" + path))


if __name__ == "__main__":
    unittest.main()
