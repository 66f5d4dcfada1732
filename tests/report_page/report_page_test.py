#!/usr/bin/env python3
"""Tests of the report page in a headless Chromium: what it draws, tells and does.

usage: report_page_test.py [ReportPage.<test>]      TIVCTL_PROGRAM names the tivctl that makes pages
"""

import json
import os
import subprocess
import sys
import tempfile
import unittest

from browser import Browser, find_program
from results import HOSTILE_NAME, HOSTILE_SYMBOL, full_files, write_result

# Pixels of a section's canvases that have a colour of the page, however transparent, within a part
# of the drawn time.
INK = """((id, name, from, to) => {
  const style = getComputedStyle(document.documentElement).getPropertyValue('--' + name).trim();
  const want = parseInt(style.slice(1), 16);
  let count = 0;
  for (const canvas of document.querySelectorAll('#' + id + ' canvas')) {
    const left = from === 0 ? 0 : Math.round(72 + from * (canvas.width - 86));
    const right = to === 1 ? canvas.width : Math.round(72 + to * (canvas.width - 86));
    const data = canvas.getContext('2d').getImageData(left, 0, right - left, canvas.height).data;
    for (let i = 0; i < data.length; i += 4) {
      count += data[i + 3] > 60 && Math.abs(data[i] - (want >> 16)) < 6 &&
        Math.abs(data[i + 1] - (want >> 8 & 255)) < 6 && Math.abs(data[i + 2] - (want & 255)) < 6;
    }
  }
  return count;
})"""

ROWS = """(id => [...document.querySelectorAll('#' + id + ' tbody tr')]
  .map(row => [...row.cells].map(cell => cell.textContent)))"""

# Width of the axis beside a plot and behind it, and of the axis below it.
LEFT, RIGHT, BELOW = 72, 14, 18


class ReportPage(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        if not find_program():
            raise AssertionError("no Chromium is installed: tools/setup.sh installs one")
        cls.directory = tempfile.TemporaryDirectory(prefix="tiv_page_")
        cls.browser = Browser()

    @classmethod
    def tearDownClass(cls):
        cls.browser.close()
        cls.directory.cleanup()

    def make(self, files, missing=(), change=lambda page: page):
        """The path of the page of a result. `change` spoils its text."""
        result = tempfile.mkdtemp(dir=self.directory.name)
        write_result(result, files, missing)
        subprocess.run([os.environ["TIVCTL_PROGRAM"], "report", result, "--quiet"], check=True,
                       stderr=subprocess.DEVNULL)
        path = os.path.join(result, "report.html")
        with open(path, encoding="utf-8") as file:
            text = change(file.read())
        with open(path, "w", encoding="utf-8") as file:
            file.write(text)
        return path

    def open(self, files=None, missing=(), **options):
        page = self.browser.open("file://" + self.make(files or full_files(), missing), **options)
        page.settle()
        return page

    def ink(self, page, section, name, part=(0, 1)):
        return page.run(f"{INK}({json.dumps(section)}, {json.dumps(name)}, {part[0]}, {part[1]})")

    def rows(self, page, table):
        return page.run(f"{ROWS}({json.dumps(table)})")

    def text(self, page, selector):
        return page.run(f"document.querySelector({json.dumps(selector)}).textContent")

    def place(self, page, section, share, height=0.5):
        """A point of a section's plot: shares of the drawn time and of the drawn height."""
        left, top, wide, high = page.box(f"#{section} .plot")
        return left + LEFT + share * (wide - LEFT - RIGHT), top + height * (high - BELOW)

    def area(self, page, section):
        """Pixels of what is drawn between the axes of a section's plot."""
        _, _, wide, high = page.box(f"#{section} .plot")
        return (wide - LEFT - RIGHT) * (high - BELOW)

    def window(self, page):
        """The shown part of the run in seconds."""
        start, end = self.text(page, "#range").split(" of ")[0].split(" – ")
        return float(start.split()[0]), float(end.split()[0])

    def test_opens_without_an_error_or_a_request(self):
        page = self.open()
        page.run("window.scrollTo(0, document.body.scrollHeight)")
        page.settle()

        self.assertEqual(page.run("document.body.getAttribute('data-ready')"), "")
        self.assertEqual(page.collect().problems, [])
        self.assertEqual(page.requests, [])

    def test_head_tells_machine_and_state(self):
        page = self.open()

        self.assertEqual(self.text(page, "#state"), "complete")
        self.assertIn("2 cores, 8.0 GiB of memory", self.text(page, "#facts"))
        self.assertIn("16.000000000 s of the device's raw monotonic clock", self.text(page, "#facts"))
        self.assertTrue(page.run("document.getElementById('missing').hidden"))

    def test_incomplete_result_says_what_is_missing(self):
        page = self.open(missing=["data/55-Memory.data"])

        self.assertEqual(self.text(page, "#state"), "incomplete")
        self.assertIn("55-Memory.data", self.text(page, "#missing li"))

    def test_areas_of_the_cpu_are_as_large_as_its_shares(self):
        page = self.open()
        area = self.area(page, "cpu-0")

        self.assertAlmostEqual(self.ink(page, "cpu-0", "c0") / area, 0.4 * 0.5, delta=0.02)
        self.assertAlmostEqual(self.ink(page, "cpu-0", "c1") / area, 0.5 * 0.5, delta=0.02)
        self.assertEqual(self.ink(page, "cpu-0", "c8"), 0)

    def test_every_plot_has_ink_of_its_series(self):
        page = self.open()

        for section, colors in {"memory-0": ("c0", "c2", "c12"), "process-cpu": ("c0", "c1"),
                                "process-memory": ("c0", "c1")}.items():
            for name in colors:
                self.assertGreater(self.ink(page, section, name), 300, f"{section} {name}")

    def test_time_without_readings_is_left_blank(self):
        page = self.open()
        layers = ("c0", "c2")  # that of free memory is all but the axis's own

        for part in ((0.1, 0.3), (0.7, 0.9)):
            self.assertGreater(sum(self.ink(page, "memory-0", name, part) for name in layers), 1000)
        self.assertEqual([self.ink(page, "memory-0", name, (0.4, 0.55)) for name in layers], [0, 0])

    def test_process_that_is_gone_has_no_line(self):
        page = self.open()

        orange = "[...document.querySelectorAll('#process-memory canvas')].map(canvas => {{" \
                 " const wide = canvas.width - 86; let count = 0; const data = canvas.getContext('2d')" \
                 ".getImageData(72 + {0} * wide, 0, 0.4 * wide, canvas.height).data;" \
                 " for (let i = 0; i < data.length; i += 4) count += data[i] - data[i + 2] > 40;" \
                 " return count; }}).reduce((sum, count) => sum + count)"

        self.assertGreater(page.run(orange.format(0.05)), 300)
        self.assertEqual(page.run(orange.format(0.55)), 0)

    def test_click_in_the_legend_hides_a_series(self):
        page = self.open()
        left, top, wide, high = page.box("#cpu-0 button.key")
        page.click(left + wide / 2, top + high / 2)

        self.assertEqual(self.ink(page, "cpu-0", "c0"), 0)
        self.assertGreater(self.ink(page, "cpu-0", "c1"), 1000)
        page.click(left + wide / 2, top + high / 2)
        self.assertGreater(self.ink(page, "cpu-0", "c0"), 1000)

    def test_heat_map_tells_idle_from_busy_cores(self):
        page = self.open()
        pixel = "(y => { const c = document.querySelector('#cores-0 canvas'); return '#' +" \
                " [...c.getContext('2d').getImageData(72 + 100, y, 1, 1).data].slice(0, 3)" \
                ".map(v => v.toString(16).padStart(2, '0')).join(''); })"
        idle = page.run("getComputedStyle(document.documentElement).getPropertyValue('--heat0').trim()")

        self.assertNotEqual(page.run(f"{pixel}(8)"), idle)
        self.assertEqual(page.run(f"{pixel}(24)"), idle)

    def test_tables_hold_the_numbers(self):
        page = self.open()
        cores = {row[0]: row for row in self.rows(page, "core-table-0")}
        processes = {row[0]: row for row in self.rows(page, "processes")}

        self.assertEqual([cores[core][1] for core in ("cpu0", "cpu1", "all")],
                         ["65.0 %", "25.0 %", "45.0 %"])
        self.assertEqual(processes["busy"][1:8],
                         ["101", "1", "2.00 s", "50.0 %", "50.0 %", "3", "100 MiB"])

    def test_table_sorts_by_a_click_on_a_heading(self):
        page = self.open()
        self.assertEqual([row[1] for row in self.rows(page, "processes")], ["101", "102"])
        left, top, wide, high = page.box("#processes th button", 1)
        page.click(left + wide / 2, top + high / 2)
        descending = [row[1] for row in self.rows(page, "processes")]
        page.click(left + wide / 2, top + high / 2)

        self.assertEqual(descending, ["102", "101"])
        self.assertEqual([row[1] for row in self.rows(page, "processes")], ["101", "102"])
        self.assertEqual(page.run("document.querySelectorAll('#processes th')[1].ariaSort"), "ascending")

    def test_table_filters_by_a_text(self):
        page = self.open()
        page.type("#processes input", "BUS")

        self.assertEqual([row[0] for row in self.rows(page, "processes")], ["busy"])
        self.assertEqual(self.text(page, "#processes .count"), "1 of 2 rows")

    def test_drag_zooms_every_plot(self):
        page = self.open()
        whole = self.window(page)[1]
        page.drag(self.place(page, "cpu-0", 0.38), self.place(page, "cpu-0", 0.45))
        page.box("#memory-0 .plot")
        page.settle()

        self.assertAlmostEqual(self.window(page)[0], 0.38 * whole, delta=0.05)
        self.assertAlmostEqual(self.window(page)[1], 0.45 * whole, delta=0.05)
        self.assertEqual(self.text(page, "#cpu-0 .key b"), "40.0 %")
        self.assertAlmostEqual(self.ink(page, "cpu-0", "c0") / self.area(page, "cpu-0"), 0.4, delta=0.02)
        self.assertEqual(self.ink(page, "memory-0", "c0"), 0)
        self.assertFalse(page.run("document.querySelector('#memory-0 .empty').hidden"))

    def test_double_click_and_key_show_the_whole_run(self):
        page = self.open()
        whole = self.window(page)
        for again in ("double-click", "key"):
            page.drag(self.place(page, "cpu-0", 0.25), self.place(page, "cpu-0", 0.5))
            self.assertNotEqual(self.window(page), whole)
            if again == "key":
                page.key("0")
            else:
                page.click(*self.place(page, "memory-0", 0.5), count=2)
            self.assertEqual(self.window(page), whole, again)

    def test_shift_and_drag_pans(self):
        page = self.open()
        page.key("+")
        before = self.window(page)
        page.drag(self.place(page, "cpu-0", 0.5), self.place(page, "cpu-0", 0.75), modifiers=8)
        after = self.window(page)

        self.assertAlmostEqual(after[1] - after[0], before[1] - before[0], delta=0.02)
        self.assertAlmostEqual(before[0] - after[0], (before[1] - before[0]) / 4, delta=0.05)

    def test_drag_in_the_overview_chooses_a_part(self):
        page = self.open()
        whole = self.window(page)[1]
        left, top, wide, high = page.box("#overview")
        inner = wide - LEFT - RIGHT
        page.drag((left + LEFT + inner * 0.5, top + 10), (left + LEFT + inner * 0.75, top + 10))

        self.assertAlmostEqual(self.window(page)[0], 0.5 * whole, delta=0.05)
        self.assertAlmostEqual(self.window(page)[1], 0.75 * whole, delta=0.05)

    def test_cursor_is_shared(self):
        page = self.open(height=1400)
        page.mouse("mouseMoved", *self.place(page, "cpu-0", 0.25))
        page.settle()
        places = page.run("[...document.querySelectorAll('.plot.time .cursor')]"
                          ".map(line => line.style.display + ' ' + parseFloat(line.style.left).toFixed(0))")

        self.assertEqual(len(places), 4)
        self.assertEqual(len(set(places)), 1)
        self.assertTrue(places[0].startswith("block "), places)
        self.assertTrue(self.text(page, "#memory-0 .key").startswith("at 1.0"))
        self.assertEqual(self.text(page, "#cpu-0 .key b"), "40.0 %")

    def test_flame_graph_finds_functions(self):
        page = self.open()
        page.type("#flame-0 input", "WORK")
        self.assertEqual(self.text(page, "#flame-0 .count"), "60.00 % matched")
        self.assertGreater(self.ink(page, "flame-0", "hit"), 1000)
        page.type("#flame-0 input", "kernel")

        self.assertEqual(self.text(page, "#flame-0 .count"), "20.00 % matched")

    def test_flame_graph_zooms_and_comes_back(self):
        page = self.open()
        left, top, wide, _ = page.box("#flame-0 .flame")
        page.click(left + wide * 0.3, top + 3.5 * 18)
        self.assertEqual(self.text(page, "#flame-0 .crumb"), "work: 60 samples, 60.00 % of all")
        left, top, wide, high = page.box("#flame-0 .title button")
        page.click(left + wide / 2, top + high / 2)

        self.assertEqual(self.text(page, "#flame-0 .crumb"), "100 samples, 100.00 % of all")

    def test_functions_have_their_shares(self):
        functions = {row[0]: row for row in self.rows(self.open(), "functions-0")}

        self.assertEqual(functions["work"][2:], ["60.0 %", "60.0 %", "60", "60"])
        self.assertEqual(functions["main"][2:], ["0 %", "100 %", "0", "100"])

    def test_hostile_names_stay_text(self):
        page = self.open()
        page.run("window.scrollTo(0, document.body.scrollHeight)")
        page.settle()
        shown = HOSTILE_NAME.replace("\u202e", "\\u202e")

        self.assertIn(shown, [row[0] for row in self.rows(page, "processes")])
        self.assertIn(HOSTILE_SYMBOL, [row[0] for row in self.rows(page, "functions-0")])
        self.assertEqual(page.run("document.images.length"), 0)
        self.assertEqual(page.run("document.scripts.length"), 3)
        self.assertIsNone(page.run("document.body.dataset.owned || null"))

    def test_policy_stops_what_is_not_the_pages_own(self):
        page = self.open()
        page.run("{ const s = document.createElement('script'); s.textContent ="
                 " 'document.body.dataset.owned = 3'; document.body.append(s); }")
        page.run("fetch('https://example.com').catch(() => {})")

        self.assertIsNone(page.run("document.body.dataset.owned || null"))
        self.assertIn("Content Security Policy", " ".join(page.collect().problems))

    def test_dark_and_light_have_colours_of_their_own(self):
        page = self.open(dark=True)
        dark = page.run("getComputedStyle(document.body).backgroundColor")
        self.assertGreater(self.ink(page, "cpu-0", "c0"), 1000)
        left, top, wide, high = page.box("#theme")
        page.click(left + wide / 2, top + high / 2)

        self.assertNotEqual(page.run("getComputedStyle(document.body).backgroundColor"), dark)
        self.assertGreater(self.ink(page, "cpu-0", "c0"), 1000)

    def test_narrow_window_is_not_wider_than_itself(self):
        page = self.open(width=420)

        self.assertLessEqual(page.run("document.documentElement.scrollWidth"), 420)

    def test_result_without_readings_says_what_was_not_measured(self):
        page = self.open({"data/other.bin": "x"})

        self.assertEqual(page.run("document.querySelectorAll('.empty').length"), 6)
        self.assertIn("Not measured", self.text(page, "#cpu .empty"))
        self.assertEqual(page.collect().problems, [])

    def test_damaged_page_says_so(self):
        path = self.make(full_files(), change=lambda page: page.replace(
            'octet-stream">eJ', 'octet-stream">AAAA'))
        page = self.browser.open("file://" + path, wait=False)

        self.assertNotEqual(page.wait_until_ready(), "")
        self.assertEqual(self.text(page, "#state"), "this page cannot be shown")


if __name__ == "__main__":
    unittest.main(argv=sys.argv)
