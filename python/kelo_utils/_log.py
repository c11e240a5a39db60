# SPDX-License-Identifier: MIT
"""Log lines."""
import sys

from . import _abi, _checks
from ._library import c


def log(level, text):
    """Logs a text under the name and the line of the calling function.

    `level` is LOG_LVL_DBUG to LOG_LVL_EMR, or -1 for a line that passes every threshold. A line end is added to a text
    that has none. The library cuts a message at 4219 bytes.
    """
    number = _checks.integer(level, "level", -1, _abi.LOG_LVL_EMR)
    encoded = _checks.text(text, "text")
    caller = sys._getframe(1)
    name = caller.f_code.co_name.encode("utf-8", "replace").replace(b"\0", b"?")
    if not encoded.endswith(b"\n"):
        # The line end would be the first that a cut removes.
        encoded = encoded[:_abi.KELO_LOG_BUFFER_SIZE - 2] + b"\n"
    c.kelo_log_line(number, name, caller.f_lineno or 0, encoded)


def get_log_level():
    """Returns the threshold, LOG_LVL_DBUG to LOG_LVL_CRT."""
    return c.kelo_get_log_level()


def set_log_level(level):
    """Sets the threshold: messages of a lower level are dropped."""
    c.kelo_set_log_level(_checks.integer(level, "level", _abi.LOG_LVL_DBUG, _abi.LOG_LVL_CRT))


def set_log_tool(enable):
    """Sends log lines to the diagnostic channel (True), or prints them on standard output (False).

    The choice is written to "/data/log_enable", for every daemon that looks there.
    """
    c.kelo_set_log_tool_enable(int(_checks.boolean(enable, "enable")))
