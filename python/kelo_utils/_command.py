# SPDX-License-Identifier: MIT
"""Programs and AT commands with a limit of time."""
import collections
import ctypes

from . import _abi, _checks
from ._errors import Error, ModemError, TimedOut, name_of
from ._library import c

MOST_SECONDS = _checks.INT32_MAX // 1000
MOST_WORDS = 4096
AT_COMMAND_SIZE = 65506

Ended = collections.namedtuple("Ended", "exit_code signal output")
Ended.__doc__ = """How a program has ended. `exit_code` or `signal` is None; `output` is what it has printed."""


def _milliseconds(timeout):
    return max(1, int(_checks.seconds(timeout, "timeout", MOST_SECONDS) * 1000))


def _words(arguments):
    if isinstance(arguments, (str, bytes)) or not isinstance(arguments, (list, tuple)):
        raise TypeError("arguments is a list or a tuple of words")
    words = [_checks.text(word, "a word") if isinstance(word, str) else _checks.path(word, "a word")
             for word in tuple(arguments)]
    if not words or not words[0] or len(words) > MOST_WORDS:
        raise ValueError(f"a command has 1 to {MOST_WORDS} words, and the first is not empty")
    return words


def run(arguments, timeout, output_size=65536, text=True):
    """Runs a program without a shell, and returns an Ended.

    `arguments` are the words of the command. `timeout` is the limit of time in seconds. When it is over, the program and
    its process group are killed, and TimedOut is raised, which has the output. `output_size` is how many bytes of standard
    output and standard error are kept, 0 for none. With `text` false the output is bytes. A program that cannot be started
    raises Error. The wait is not ended by Ctrl-C.
    """
    words = _words(arguments)
    limit = _milliseconds(timeout)
    size = _checks.integer(output_size, "output_size", 0, _checks.MOST_BYTES) + 1
    as_text = _checks.boolean(text, "text")
    vector = (ctypes.c_char_p * (len(words) + 1))(*words, None)
    output, code = ctypes.create_string_buffer(size), ctypes.c_int32()
    result = c.kelo_run(vector, limit, output, size, ctypes.byref(code))
    kept = output.raw.rstrip(b"\0")  # a program may print NUL bytes, too
    printed = _checks.shown(kept) if as_text else kept
    if result == _abi.KELO_RUN_EXITED:
        return Ended(code.value, None, printed)
    if result == _abi.KELO_RUN_KILLED:
        return Ended(None, code.value, printed)
    what, name = f"run {_checks.shown(words[0])}", name_of("kelo_run_result", result)
    if result == _abi.KELO_RUN_TIMED_OUT:
        raise TimedOut(what, result, name, printed)
    raise Error(what, result, name)


def at(command, timeout=20.0):
    """Sends an AT command to the service of the modem, and returns the lines of its reply before OK.

    `timeout` is the limit of time for the whole exchange in seconds. Another final result than OK raises ModemError; no final
    result in time raises TimedOut, whose `output` has the lines that have arrived.
    """
    encoded = _checks.text(command, "command", AT_COMMAND_SIZE)
    limit = _milliseconds(timeout)
    buffer, reason = ctypes.create_string_buffer(65536), ctypes.c_int32(-1)
    result = c.kelo_at_exchange(encoded, limit, buffer, len(buffer), ctypes.byref(reason))
    lines = _checks.shown(buffer.value).split("\n")[:-1]
    if result == _abi.KELO_AT_OK:
        return lines
    what, name = "at", name_of("kelo_at_result", result)
    if result == _abi.KELO_AT_TIMED_OUT:
        raise TimedOut(what, result, name, lines)
    if result > _abi.KELO_AT_OK:
        raise ModemError(what, result, name, lines, reason.value if reason.value >= 0 else None)
    raise Error(what, result, name)
