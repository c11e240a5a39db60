# SPDX-License-Identifier: MIT
"""Every public function and method is called with odd arguments, in a child process that must live.

Exceptions are what is expected. What is not: a signal, a fatal error, or a call that does not end.
"""
import contextlib
import inspect
import os
import random
import sqlite3
import subprocess
import sys
import threading
import unittest

SEEDS = 3
CALLS = 400
THREADS = 4
PARAMETERS = "/data/kelo-resource/sqlite3"

CHILD = """
import faulthandler; faulthandler.dump_traceback_later(200, exit=True)
import sys; sys.path[:0] = sys.argv[2:3]; import run; run.load_module(sys.argv[1]); import fuzz_test
fuzz_test.fuzz(int(sys.argv[3]))
print("alive")
"""


class Liar(bytes):
    """Bytes that give another length than they have."""

    def __len__(self):
        return 1 << 20

    def __bytes__(self):
        return b"x" * 4096


class Text(str):
    """A text that does not give its own bytes."""

    def encode(self, *_):
        return 5

    def __len__(self):
        return -1


class Number(int):
    """A number that compares as it likes."""

    def __le__(self, _):
        return True

    __ge__ = __lt__ = __gt__ = __le__

    def __index__(self):
        return 2**70


class Failing:
    """An object whose every use fails."""

    def __getattr__(self, name):
        raise OSError(name)

    def __index__(self):
        raise OSError("index")

    def __fspath__(self):
        raise OSError("path")

    def __iter__(self):
        raise OSError("iter")

    def __call__(self, *_):
        raise OSError("call")


def odd_values(kelo_utils):
    released = memoryview(b"gone")
    released.release()
    recursive = []
    recursive.append(recursive)
    item = kelo_utils.Item
    return [
        None, True, False, 0, 1, -1, 2, 5, 127, 255, 1003, 2**31 - 1, 2**31, -2**31, -2**31 - 1, 2**32 - 1, 2**63, 2**64,
        -2**64, 10**400, 0.0, -0.0, 0.01, 1e-12, 1e308, float("inf"), float("nan"), 1j, "", "a", "\0", "a\0b", "\udcff", "\ud800",
        "x" * 5000, "x" * 70000, "%s%n%d", "net", "[a]", "a=b", "\n", "/", "/tmp/f.ini", "/dev/full", "/dev/zero",
        "/proc/self/mem", "//", "..", b"", b"a", b"\0", b"\xff" * 300, bytearray(b"ab"), memoryview(b"abcd")[::2],
        released, Liar(b"ab"), Text("ab"), Number(3), Failing(), object(), [], [None],
        ["true"], ["true", "a\0"], ["true"] * 5000, ("sh", "-c", "exit 1"),
        recursive, {}, {"a": 1}, {"a": "text"}, {1: 2}, set(), iter([]), (x for x in "ab"), print, len, int, str, bytes,
        bool, float, lambda *_: 1 // 0, lambda: 1, Exception("x"), item(1003, "wan", "mtu", int, 1500),
        [item(1003, "wan", "mtu", int, 1500)],
        tuple.__new__(item, ()), [tuple.__new__(item, (1, "a" * 500, None, int, None))], "big", "little", range(3), Ellipsis,
        "select 1", "select", "pragma empty_result_callbacks = 1; select a from wifi where 0", "select zeroblob(1000000000)",
        "select fts3_tokenizer('simple', x'4141414141414141')", "attach '/dev/zero' as z", "begin exclusive", "a",
        "create table a (b)", "drop table a; vacuum", ".", "AT", "wifi", "text", "uint64",
    ]


def make_parameters():
    os.makedirs(PARAMETERS, exist_ok=True)
    for name in ("user_info.db", "factory_info.db"):
        with contextlib.closing(sqlite3.connect(os.path.join(PARAMETERS, name), isolation_level=None)) as database:
            database.execute("create table if not exists wifi (a)")
            database.execute("insert into wifi values ('x')")


def targets(kelo_utils):
    """Returns every public function, every class, and the methods of live and of closed objects."""
    found = [getattr(kelo_utils, name) for name in kelo_utils.__all__ if callable(getattr(kelo_utils, name))]
    store = kelo_utils.Store([kelo_utils.Item(1003, "wan", "mtu", int, 1500), kelo_utils.Item(5, "wan", "apn", str, "a")])
    closed_store, timer, closed_timer = kelo_utils.Store(), kelo_utils.Timer(lambda: None, 0.01), kelo_utils.Timer(print, 1)
    closed_store.close()
    closed_timer.close()
    subscription = store.subscribe(lambda *_: None)
    ini = kelo_utils.Ini("/tmp/fuzz.ini")
    objects = [store, closed_store, timer, closed_timer, subscription, ini, ini["net"],
               kelo_utils.Parameters("wifi", {"a": "text"})]
    # Objects whose constructor was never called.
    objects += [kind.__new__(kind) for kind in (kelo_utils.Store, kelo_utils.Timer, kelo_utils.Ini, kelo_utils.Section,
                                                kelo_utils.Subscription, kelo_utils.Parameters)]
    special = ("__init__", "__getitem__", "__setitem__", "__delitem__", "__contains__", "__iter__", "__len__", "__enter__",
               "__exit__", "__repr__", "__reduce__", "__eq__")
    for each in objects:
        kind = type(each)
        for name in dir(kind):
            if name.startswith("_") and name not in special:
                continue
            if isinstance(inspect.getattr_static(kind, name), property):
                found.append(lambda each=each, name=name: getattr(each, name))
            else:
                found.append(getattr(each, name))
    return found


def fuzz(seed):
    """Calls them in one thread, and then in several at once, which share the objects."""
    import kelo_utils  # pylint: disable=import-outside-toplevel
    sys.unraisablehook = lambda report: None
    make_parameters()
    values, callables = odd_values(kelo_utils), targets(kelo_utils)
    call_each(kelo_utils, callables, values, random.Random(seed), CALLS)
    threads = [threading.Thread(target=call_each, daemon=True,
                                args=(kelo_utils, random.Random(number).sample(callables, len(callables)), values,
                                      random.Random(f"{seed} {number}"), CALLS)) for number in range(THREADS)]
    for thread in threads:
        thread.start()
    for thread in threads:
        thread.join()


def call_each(kelo_utils, callables, values, rng, calls):
    # A value that no program passes, but that would make a call long: a limit of time is short here.
    short = {kelo_utils.run: 1, kelo_utils.at: 1}
    for turn in range(calls):
        target = callables[turn % len(callables)] if turn < len(callables) else rng.choice(callables)
        arguments = [rng.choice(values) for _ in range(rng.choice((0, 1, 1, 1, 2, 2, 3, 4)))]
        if target in (kelo_utils.set_log_tool, print):
            arguments = arguments[:1] if not isinstance((arguments or [0])[0], bool) else [None]
        place = short.get(target)
        if place is not None and len(arguments) > place and isinstance(arguments[place], (int, float)):
            arguments[place] = min(arguments[place], 0.2)
        elif target is kelo_utils.at and len(arguments) < 2:
            continue
        try:
            result = target(*arguments)
            if inspect.isgenerator(result) or hasattr(result, "__next__"):
                list(zip(range(10), result))
            if isinstance(result, (kelo_utils.Timer, kelo_utils.Subscription)) and rng.random() < 0.9:
                getattr(result, "close", None) and result.close()
                getattr(result, "cancel", None) and result.cancel()
        except Exception:  # pylint: disable=broad-except
            pass


class FuzzTest(unittest.TestCase):
    def test_a_program_lives_through_odd_arguments(self):
        here = os.path.dirname(os.path.abspath(__file__))
        for seed in range(SEEDS):
            with self.subTest(seed=seed):
                ended = subprocess.run([sys.executable, "-B", "-X", "faulthandler", "-c", CHILD, sys.argv[1], here, str(seed)],
                                       stdout=subprocess.PIPE, stderr=subprocess.PIPE, stdin=subprocess.DEVNULL, timeout=250)
                self.assertEqual(ended.returncode, 0, ended.stderr.decode(errors="replace")[-3000:])
                self.assertTrue(ended.stdout.endswith(b"alive\n"), ended.stdout[-500:])
