# SPDX-License-Identifier: MIT
"""The module as a whole: its names, its documentation, and the Python that can read it."""
import ast
import ctypes
import inspect
import os
import re
import subprocess
import sys
import unittest

import kelo_utils
from kelo_utils import _abi

FOLDER = os.path.dirname(kelo_utils.__file__)
OLDEST = (3, 9)


class ModuleTest(unittest.TestCase):
    def test_every_public_name_is_there_and_described(self):
        self.assertEqual(len(set(kelo_utils.__all__)), len(kelo_utils.__all__))
        for name in kelo_utils.__all__:
            public = getattr(kelo_utils, name)
            if not callable(public):
                continue
            self.assertTrue(inspect.getdoc(public), name)
            if inspect.isclass(public):
                for part, member in vars(public).items():
                    if not part.startswith("_") and (callable(member) or isinstance(member, property)):
                        self.assertTrue(inspect.getdoc(member), f"{name}.{part}")

    def test_the_oldest_python_can_read_it(self):
        for name in sorted(os.listdir(FOLDER)):
            if name.endswith(".py"):
                with open(os.path.join(FOLDER, name), encoding="utf-8") as file:
                    ast.parse(file.read(), name, feature_version=OLDEST)

    def test_nothing_but_the_standard_library_is_imported(self):
        if not hasattr(sys, "stdlib_module_names"):
            self.skipTest("this machine's Python does not tell what its own modules are")
        for name in sorted(os.listdir(FOLDER)):
            if not name.endswith(".py"):
                continue
            with open(os.path.join(FOLDER, name), encoding="utf-8") as file:
                tree = ast.parse(file.read())
            for node in ast.walk(tree):
                imported = [alias.name for alias in node.names] if isinstance(node, ast.Import) else \
                    [node.module] if isinstance(node, ast.ImportFrom) and node.level == 0 else []
                for module in imported:
                    self.assertIn(module.split(".")[0], sys.stdlib_module_names, name)

    def test_the_example_of_the_page_prints_what_the_page_says(self):
        here = os.path.dirname(os.path.abspath(__file__))
        with open(os.path.join(here, "../../docs/python.md"), encoding="utf-8") as file:
            page = file.read()
        example, printed = (re.search(rf"```{kind}\n(.*?)```", page, re.DOTALL)[1] for kind in ("python", "text"))
        load = "import sys; sys.path[:0] = sys.argv[2:]; import run; run.load_module(sys.argv[1])\n"
        ended = subprocess.run([sys.executable, "-B", "-c", load + example, sys.argv[1], here], check=True,
                               stdout=subprocess.PIPE, timeout=100)
        self.assertEqual(ended.stdout.decode(), printed)

    def test_constants_are_those_of_the_headers(self):
        self.assertEqual((kelo_utils.KELO_RUN_NOT_FOUND, kelo_utils.SQL_VER, kelo_utils.KELO_TIMER_MAGIC),
                         (-4, 0x00010001, 0x4A726451))
        self.assertEqual(_abi.ENUMS["kelo_at_result"][-2], "KELO_AT_TOO_LONG")

    def test_records_have_the_layout_of_the_device_and_of_this_machine(self):
        self.assertEqual((_abi.LAYOUTS[_abi.kelo_dm_item][4][0], _abi.LAYOUTS[_abi.kelo_dm_item][8][0]), (84, 96))
        self.assertEqual(ctypes.sizeof(_abi.kelo_dm_item), 84 if ctypes.sizeof(ctypes.c_void_p) == 4 else 96)
        self.assertEqual(_abi.LAYOUTS[_abi.kelo_timer_info][4], (44, {
            "value": 0, "interval": 8, "cb": 16, "link": 24, "magic": 32, "timer_id": 36, "state": 40}))

    def test_every_function_of_the_list_is_in_the_library(self):
        library = ctypes.CDLL(_abi.LIBRARY)
        for name in _abi.FUNCTIONS:
            self.assertTrue(hasattr(library, name), name)
