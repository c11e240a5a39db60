# SPDX-License-Identifier: MIT
"""Log lines."""
import sys

from . import _abi, _checks
from ._library import c

# The library cuts a line at 4095 bytes, of which the beginning takes 95 and the name of the function. What it cuts first is the
# line end, and then the next line would follow in the same one.
MOST_NAME, MOST_TEXT = 100, 3900


def log(level, text):
    """Logs a text under the name and the line of the calling function.

    `level` is LOG_LVL_DBUG to LOG_LVL_EMR, or -1 for a line that passes every threshold. A line end is added to a text
    that has none. A text is cut at 3900 bytes, and the name at 100.
    """
    number = _checks.integer(level, "level", -1, _abi.LOG_LVL_EMR)
    encoded = _checks.text(text, "text")
    try:
        caller = sys._getframe(1)
        name, line = caller.f_code.co_name.encode("utf-8", "replace").replace(b"\0", b"?"), caller.f_lineno or 0
    except ValueError:
        name, line = b"python", 0  # no Python code has called, as at the end of the program
    encoded = encoded[:-1] if encoded.endswith(b"\n") else encoded
    c.kelo_log_line(number, name[:MOST_NAME], line, encoded[:MOST_TEXT] + b"\n")


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
