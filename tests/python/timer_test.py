# SPDX-License-Identifier: MIT
"""Timers: when functions are called, and when not."""
import copy
import gc
import os
import signal
import subprocess
import sys
import threading
import time
import unittest

from kelo_utils import Timer

WAIT = 20


class Counter:
    """Counts calls, and lets a test wait for them."""

    def __init__(self):
        self.calls, self._changed = 0, threading.Condition()

    def __call__(self):
        with self._changed:
            self.calls += 1
            self._changed.notify_all()

    def wait_for(self, calls):
        with self._changed:
            return self._changed.wait_for(lambda: self.calls >= calls, WAIT)


class TimerTest(unittest.TestCase):
    def test_one_call(self):
        counter, start = Counter(), time.monotonic()
        with Timer(counter, 0.05) as timer:
            self.assertTrue(timer.running)
            self.assertTrue(counter.wait_for(1))
            self.assertGreaterEqual(time.monotonic() - start, 0.05)
            time.sleep(0.1)
            self.assertEqual(counter.calls, 1)
            self.assertEqual(timer.remaining, 0.0)
            timer.start()
            self.assertTrue(counter.wait_for(2))

    def test_calls_again_and_again(self):
        counter = Counter()
        with Timer(counter, 0.001, 0.01):
            self.assertTrue(counter.wait_for(5))
        calls = counter.calls
        time.sleep(0.1)
        self.assertLessEqual(counter.calls, calls + 1, "a call may have been running")

    def test_a_stopped_timer_is_started_again(self):
        counter, timer = Counter(), Timer(Counter(), 1000)
        timer.close()
        timer = Timer(counter, 1000, 1000)
        self.addCleanup(timer.close)
        self.assertFalse(timer.running)
        timer.stop()
        timer.start()
        self.assertTrue(990 < timer.remaining <= 1000)
        timer.stop()
        self.assertEqual((timer.running, timer.remaining), (False, 0.0))
        timer.start()
        self.assertTrue(990 < timer.remaining <= 1000, "reading the time that is left does not change the timer")

    def test_the_time_begins_again(self):
        with Timer(Counter(), 100) as timer:
            time.sleep(0.05)
            before = timer.remaining
            timer.start()
            self.assertGreater(timer.remaining, before)

    def test_functions_are_called_one_after_the_other(self):
        running, most, counter = [0], [0], Counter()

        def work():
            running[0] += 1
            most[0] = max(most[0], running[0])
            time.sleep(0.01)
            running[0] -= 1
            counter()

        timers = [Timer(work, 0.01) for _ in range(8)]
        for timer in timers:
            timer.start()
        self.assertTrue(counter.wait_for(8))
        for timer in timers:
            timer.close()
        self.assertEqual(most, [1])

    def test_python_code_runs_that_needs_a_large_stack(self):
        depths = []

        def recurse(depth):
            return depth if depth == 500 else recurse(depth + 1)

        counter = Counter()
        with Timer(lambda: (depths.append(recurse(0)), counter()), 0.01):
            self.assertTrue(counter.wait_for(1))
        self.assertEqual(depths, [500])

    def test_a_function_is_kept_while_nobody_else_has_it(self):
        counter = Counter()
        timer = Timer(lambda: counter(), 0.05)
        timer.start()
        gc.collect()
        self.assertTrue(counter.wait_for(1))
        timer.close()

    def test_an_error_is_reported_and_the_timer_goes_on(self):
        reports, counter, before = [], Counter(), sys.unraisablehook

        def fail():
            counter()
            raise OSError("no modem")

        sys.unraisablehook = lambda report: reports.append((report.exc_type, str(report.exc_value)))
        try:
            with Timer(fail, 0.01, 0.01):
                self.assertTrue(counter.wait_for(3))
        finally:
            time.sleep(0.05)
            sys.unraisablehook = before
        self.assertEqual(set(reports), {(OSError, "no modem")})

    def test_a_timer_is_closed_in_its_own_call(self):
        counter = Counter()

        def once():
            timer.close()
            counter()

        timer = Timer(once, 0.01, 0.01)
        timer.start()
        self.assertTrue(counter.wait_for(1))
        time.sleep(0.1)
        self.assertEqual(counter.calls, 1)

    def test_a_closed_timer_refuses_everything(self):
        timer = Timer(print, 1)
        timer.close()
        timer.close()
        self.assertFalse(timer.running)
        for call in (timer.start, timer.stop, lambda: timer.remaining):
            with self.assertRaises(ValueError):
                call()

    def test_many_timers_come_and_go(self):
        threads = threading.active_count()
        for _ in range(4):
            timers = [Timer(print, 1000) if number % 2 else Timer(Counter(), 0.0001, 0.01) for number in range(40)]
            for timer in timers:
                timer.start()
            for timer in timers:
                timer.close()
        last = time.monotonic() + WAIT
        while threading.active_count() > threads + 2 and time.monotonic() < last:
            time.sleep(0.01)
        self.assertLessEqual(threading.active_count(), threads + 2)

    def test_bad_times_and_functions(self):
        for seconds in (0, -1, float("nan"), float("inf"), 2**31, 10**400, "1", None, True, 1j):
            with self.assertRaises((TypeError, ValueError)):
                Timer(print, seconds)
            if seconds is not None:
                with self.assertRaises((TypeError, ValueError)):
                    Timer(print, 1, seconds)
        for function in (None, 5, "print"):
            with self.assertRaises(TypeError):
                Timer(function, 1)
        timer = Timer(print, 1)
        with self.assertRaises(RuntimeError):
            timer.__init__(print, 1)
        with self.assertRaises(TypeError):
            copy.copy(timer)
        timer.close()

    def test_a_child_has_no_timers_and_makes_new_ones(self):
        timer = Timer(print, 1000)
        timer.start()
        child = os.fork()
        if child == 0:
            counter = Counter()
            closed = not timer.running
            with Timer(counter, 0.01):
                called = counter.wait_for(1)
            os._exit(0 if closed and called else 1)
        self.assertEqual(os.waitpid(child, 0)[1], 0)
        self.assertTrue(timer.running)
        timer.close()

    def test_a_child_that_a_function_has_forked_ends_with_the_function(self):
        children, counter = [], Counter()

        def fork():
            child = os.fork()
            if child:
                children.append(child)
                counter()

        with Timer(fork, 0.01):
            self.assertTrue(counter.wait_for(1))
        last = time.monotonic() + WAIT
        while (ended := os.waitpid(children[0], os.WNOHANG))[0] == 0 and time.monotonic() < last:
            time.sleep(0.01)
        if ended[0] == 0:
            os.kill(children[0], signal.SIGKILL)
            os.waitpid(children[0], 0)
        self.assertEqual(ended, (children[0], 0))

    def test_a_timer_is_made_once_also_by_what_it_is_given(self):
        class Sneaky(float):
            """A number that makes the timer first."""

            def __float__(self):
                timer.__init__(print, 1)
                return 1.0

        timer = Timer.__new__(Timer)
        with self.assertRaises(RuntimeError):
            timer.__init__(print, Sneaky(1))
        timer.start()
        timer.close()

    def test_a_program_ends_while_its_timers_run(self):
        program = ("import sys; sys.path[:0] = sys.argv[2:]; import run; run.load_module(sys.argv[1]); import kelo_utils\n"
                   "timers = [kelo_utils.Timer(lambda: None, 0.002, 0.002) for _ in range(5)]\n"
                   "for timer in timers: timer.start()\n")
        for _ in range(3):
            subprocess.run([sys.executable, "-B", "-c", program, sys.argv[1], os.path.dirname(os.path.abspath(__file__))],
                           check=True, timeout=100)
