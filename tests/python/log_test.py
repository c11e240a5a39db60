# SPDX-License-Identifier: MIT
"""Log lines."""
import os
import subprocess
import sys
import unittest

import kelo_utils

PROGRAM = """
import sys; sys.path[:0] = sys.argv[2:]; import run; run.load_module(sys.argv[1]); import kelo_utils
kelo_utils.set_log_tool(False)
def caller():
    kelo_utils.log(kelo_utils.LOG_LVL_ERR, "100 % of Zürich")
    kelo_utils.log(kelo_utils.LOG_LVL_DBUG, "not shown")
    kelo_utils.log(kelo_utils.LOG_LVL_WRN, "with its line end\\n")
    kelo_utils.log(-1, "x" * 10000)
caller()
def with_a_name_that_is_@long(): kelo_utils.log(kelo_utils.LOG_LVL_ERR, "y" * 5000)
with_a_name_that_is_@long()
import atexit; atexit.register(kelo_utils.log, kelo_utils.LOG_LVL_ERR, "the end")
""".replace("@", "very_" * 60)


class LogTest(unittest.TestCase):
    def test_lines_have_level_function_and_line(self):
        ended = subprocess.run([sys.executable, "-B", "-c", PROGRAM, sys.argv[1], os.path.dirname(os.path.abspath(__file__))],
                               check=True, stdout=subprocess.PIPE)
        lines = ended.stdout.decode().splitlines()
        self.assertEqual(len(lines), 5, lines)
        self.assertRegex(lines[0], r": =ERR= \| \[\d+ \| \d+-\S+\] \| caller 5 \| 100 % of Zürich$")
        self.assertRegex(lines[1], r": -WRN- .*\| caller 7 \| with its line end$")
        self.assertIn("| caller 8 | " + "x" * 3900, lines[2])
        self.assertRegex(lines[3], r"\| with_a_name\w* 10 \| y{3900}$")
        self.assertTrue(lines[4].endswith("| python 0 | the end"), lines[4])

    def test_the_threshold(self):
        before = kelo_utils.get_log_level()
        kelo_utils.set_log_level(kelo_utils.LOG_LVL_CRT)
        self.assertEqual(kelo_utils.get_log_level(), kelo_utils.LOG_LVL_CRT)
        kelo_utils.set_log_level(before)

    def test_bad_arguments(self):
        for level, text in ((6, "a"), (-2, "a"), ("ERR", "a"), (None, "a"), (True, "a"), (3, None), (3, b"a"), (3, "a\0")):
            with self.assertRaises((TypeError, ValueError)):
                kelo_utils.log(level, text)
        for level in (-1, 5, None, "a"):
            with self.assertRaises((TypeError, ValueError)):
                kelo_utils.set_log_level(level)
        with self.assertRaises(TypeError):
            kelo_utils.set_log_tool(1)
