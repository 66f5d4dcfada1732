"""Tests of tools/check_floors.py on small trees."""

import os
import sys
import tempfile
import unittest

sys.path.insert(0, os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "tools"))

import check_floors  # noqa: E402

FLOORS = """set(TIV_FLOORS
    tiv_platform_api      1  platform
    tiv_common            2  common
    tiv_tables            4  config
    tiv_config            6  config
    tiv_hdc               6  hdc
    tiv_host              7  host
    tiv_daemon           10  daemon)
"""


class Tree(unittest.TestCase):
    def setUp(self):
        holder = tempfile.TemporaryDirectory()
        self.addCleanup(holder.cleanup)
        self.root = holder.name
        self.write("cmake/floors.cmake", FLOORS)
        for name in ("platform/a", "common/a", "config/low", "config/high", "hdc/a", "host/a",
                     "daemon/a"):
            self.write(f"src/{name}.h", "#pragma once\n")
            self.write(f"src/{name}.cpp", "")
        self.write("src/config/CMakeLists.txt",
                   "tiv_library(tiv_tables SOURCES low.cpp)\n"
                   "tiv_library(tiv_config SOURCES high.cpp DEPENDS tiv_tables)\n")

    def write(self, name, text):
        path = os.path.join(self.root, name)
        os.makedirs(os.path.dirname(path), exist_ok=True)
        with open(path, "w", encoding="utf-8") as out:
            out.write(text)

    def offences(self, name, include):
        self.write(f"src/{name}", f'#include "{include}"\n')
        return check_floors.check(self.root)

    def test_downwards_is_right(self):
        self.assertEqual([], self.offences("daemon/a.cpp", "common/a.h"))
        self.assertEqual([], self.offences("hdc/a.cpp", "config/low.h"))
        self.assertEqual([], self.offences("common/a.h", "platform/a.h"))

    def test_upwards_is_wrong(self):
        self.assertEqual(['src/common/a.h:1: "hdc/a.h": up from floor 2 to floor 6'],
                         self.offences("common/a.h", "hdc/a.h"))

    def test_sideways_is_wrong(self):
        self.assertEqual(['src/hdc/a.cpp:1: "config/high.h": sideways on floor 6'],
                         self.offences("hdc/a.cpp", "config/high.h"))

    def test_two_targets_of_one_folder_have_floors_of_their_own(self):
        self.assertEqual([], self.offences("config/high.cpp", "config/low.h"))
        self.assertEqual(['src/config/low.cpp:1: "config/high.h": up from floor 4 to floor 6'],
                         self.offences("config/low.cpp", "config/high.h"))

    def test_a_header_without_a_source_takes_the_lowest_floor_of_its_folder(self):
        self.write("src/config/only.h", "")
        self.assertEqual(['src/config/only.h:1: "hdc/a.h": up from floor 4 to floor 6'],
                         self.offences("config/only.h", "hdc/a.h"))

    def test_nobody_includes_what_stands_alone(self):
        self.assertEqual(['src/daemon/a.cpp:1: "host/a.h": host is included by no other folder'],
                         self.offences("daemon/a.cpp", "host/a.h"))

    def test_an_include_that_is_not_rooted_at_src_is_wrong(self):
        self.assertEqual(['src/hdc/a.cpp:1: "a.h": no such file below src'],
                         self.offences("hdc/a.cpp", "a.h"))

    def test_generated_headers_are_known(self):
        self.write("src/common/p.proto", "")
        self.write("src/common/v.h.in", "")
        self.assertEqual([], self.offences("hdc/a.cpp", "common/p.pb.h"))
        self.assertEqual([], self.offences("hdc/a.cpp", "common/v.h"))

    def test_a_folder_without_a_floor_is_wrong(self):
        self.assertEqual(["src/new/a.cpp: its folder has no floor in cmake/floors.cmake"],
                         self.offences("new/a.cpp", "common/a.h"))

    def test_headers_in_a_ring_are_wrong(self):
        self.write("src/common/b.h", '#include "common/a.h"\n')
        self.assertEqual(["headers in a ring: common/a.h -> common/b.h -> common/a.h"],
                         self.offences("common/a.h", "common/b.h"))


if __name__ == "__main__":
    unittest.main()
