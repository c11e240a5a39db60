# SPDX-License-Identifier: MIT
"""Programs and AT commands."""
import os
import pathlib
import signal
import socket
import threading
import time
import unittest

import kelo_utils
from kelo_utils import Error, ModemError, TimedOut, at, run


class RunTest(unittest.TestCase):
    def test_a_program_ends(self):
        self.assertEqual(run(["sh", "-c", "echo out; echo err >&2; exit 3"], 10), (3, None, "out\nerr\n"))
        ended = run(("sh", "-c", "kill -9 $$"), 10)
        self.assertEqual((ended.exit_code, ended.signal, ended.output), (None, signal.SIGKILL, ""))
        self.assertEqual(run([pathlib.Path("/bin/echo"), b"a", "", "b c"], 10).output, "a  b c\n")

    def test_output_is_cut_or_left_out(self):
        self.assertEqual(run(["echo", "12345"], 10, output_size=3).output, "123")
        self.assertEqual(run(["echo", "12345"], 10, output_size=0).output, "")

    def test_output_of_any_bytes(self):
        command = ["printf", r"\377a\000b"]
        self.assertEqual(run(command, 10, text=False).output, b"\xffa\0b")
        self.assertEqual(os.fsencode(run(command, 10).output), b"\xffa\0b")

    def test_a_silent_program_is_killed(self):
        start = time.monotonic()
        with self.assertRaises(TimedOut) as caught:
            run(["sh", "-c", "echo begun; sleep 60"], 0.3)
        self.assertLess(time.monotonic() - start, 30)
        self.assertEqual((caught.exception.name, caught.exception.output), ("KELO_RUN_TIMED_OUT", "begun\n"))
        self.assertIsInstance(caught.exception, Error)

    def test_a_missing_program(self):
        for name in ("no-such-program", "/no/such/program"):
            with self.assertRaises(Error) as caught:
                run([name], 10)
            self.assertEqual(caught.exception.name, "KELO_RUN_NOT_FOUND")

    def test_bad_arguments(self):
        for arguments in ([], [""], "ls", b"ls", None, 5, ["a\0b"], [None], [b"a\0"], {"ls"}, ["x"] * 5000):
            with self.assertRaises((TypeError, ValueError)):
                run(arguments, 10)
        for timeout in (0, -1, float("nan"), 1e10, None, "1", True):
            with self.assertRaises((TypeError, ValueError)):
                run(["true"], timeout)
        for size in (-1, 2**31, 1.5, None):
            with self.assertRaises((TypeError, ValueError)):
                run(["true"], 1, size)


class Modem(threading.Thread):
    """Answers one command, as the service of the modem does."""

    def __init__(self, *answers):
        super().__init__(daemon=True)
        self._socket = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
        self._socket.bind(("127.0.0.1", 5555))
        self._answers, self.command = answers, None

    def run(self):
        with self._socket:
            self.command, sender = self._socket.recvfrom(65536)
            for answer in self._answers:
                self._socket.sendto(answer, sender)

    def __enter__(self):
        self.start()
        return self

    def __exit__(self, *_):
        self.join()


class AtTest(unittest.TestCase):
    def test_lines_of_a_reply(self):
        with Modem(b"AT+CSQ\r\r\n+CSQ: 20,99\r\n", b"\r\nsecond\r\n\r\nOK\r\n") as modem:
            self.assertEqual(at("AT+CSQ\n"), ["+CSQ: 20,99", "second"])
        self.assertEqual(modem.command, b"AT+CSQ\r")

    def test_a_refusal_has_its_reason(self):
        with Modem(b"info\r\n+CME ERROR: 10\r\n"), self.assertRaises(ModemError) as caught:
            at("AT+CPIN?")
        error = caught.exception
        self.assertEqual((error.name, error.reason, error.lines), ("KELO_AT_CME_ERROR", 10, ["info"]))
        with Modem(b"\r\nERROR\r\n"), self.assertRaises(ModemError) as caught:
            at("ATX")
        self.assertEqual((caught.exception.name, caught.exception.reason), ("KELO_AT_ERROR", None))

    def test_a_silent_modem(self):
        with self.assertRaises(TimedOut) as caught:
            at("AT", 0.1)
        self.assertEqual((caught.exception.name, caught.exception.output), ("KELO_AT_TIMED_OUT", []))

    def test_bad_arguments(self):
        for command in (None, 5, b"AT", "A\0T", "A" * 65507):
            with self.assertRaises((TypeError, ValueError)):
                at(command, 0.1)
        with self.assertRaises(ValueError):
            kelo_utils.at("AT", 0)
