# SPDX-License-Identifier: MIT
"""Calls of the program's functions: their errors go to sys.unraisablehook, and end nothing."""
import ctypes
import functools


_CALLBACK = ctypes.CFUNCTYPE(None)


def guarded(function):
    """Returns a function that calls `function`, and hands what it raises to sys.unraisablehook.

    This is what ctypes does for every callback of C code: a call through it needs no other way to do so.
    """
    return _CALLBACK(function)


def call(function, *arguments):
    """Calls a function as that of guarded() does."""
    guarded(functools.partial(function, *arguments))()


class Visits:
    """A callback for C code that calls `function` for each of several things, and returns `stop` when that raises.

    done() raises the error when C code is over: one such as KeyboardInterrupt can come at any time.
    """

    def __init__(self, function, stop):
        self._function, self._stop, self._error = function, stop, None

    def __call__(self, *arguments):
        try:
            return self._function(*arguments)
        except BaseException as error:  # pylint: disable=broad-except
            self._error = error
            return self._stop

    def done(self):
        if self._error is not None:
            raise self._error


class NotCopied:
    """An object that owns something of the library, which a copy would release a second time."""

    def __reduce__(self):
        raise TypeError(f"a {type(self).__name__} cannot be copied")
