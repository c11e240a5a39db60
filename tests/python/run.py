#!/usr/bin/env python3
# SPDX-License-Identifier: MIT
"""Runs one file of tests against the library and the module of a build.

Usage: run.py BUILD TEST-FILE [ARGUMENT...]
The test may ask for the arguments with `support.arguments()`. The exit status is 77 when every test of the file was skipped.
"""
import ctypes
import importlib.util
import os
import sys
import unittest


def load_module(build):
    """Makes `import kelo_utils` find the module, and the module the library, which is loaded under its name already."""
    ctypes.CDLL(os.path.join(build, "libkelo_utils.so.0"))
    sys.path[:0] = [os.path.join(build, "python"), os.path.dirname(os.path.abspath(__file__))]


def main(build, file):
    load_module(build)
    origin = importlib.util.spec_from_file_location(os.path.basename(file)[:-len(".py")], file)
    tests = importlib.util.module_from_spec(origin)
    origin.loader.exec_module(tests)
    result = unittest.TextTestRunner(verbosity=2).run(unittest.defaultTestLoader.loadTestsFromModule(tests))
    for _, reason in result.skipped:
        print(f"[  SKIPPED ] {reason}")
    if not result.wasSuccessful() or result.testsRun == 0:
        return 1
    return 77 if len(result.skipped) == result.testsRun else 0


if __name__ == "__main__":
    sys.exit(main(sys.argv[1], sys.argv[2]))
