# SPDX-License-Identifier: MIT
"""The shared utility library of the router's daemons, for programs in Python.

Settings (Store, Item), INI files (Ini), parameters (Parameters), timers (Timer), programs and AT commands with a limit of time
(run, at), log lines (log), and text as the network has it (gsm_encode and others). The module needs the shared library and
nothing else. A failure of the library is an Error with its result; an argument that it could not take is a TypeError or a
ValueError, and so is the use of what is closed. The constants have the names of the C headers.
"""
from . import _abi
from ._abi import *  # noqa: F401,F403
from ._command import Ended, at, run
from ._errors import Error, ModemError, TimedOut
from ._ini import Ini, Section
from ._log import get_log_level, log, set_log_level, set_log_tool
from ._parameters import Parameters, close_parameters, query_parameters, restore_parameters
from ._registry import Item
from ._store import Store, Subscription
from ._text import (gsm_decode, gsm_encode, gsm_pack, gsm_unpack, hex_decode, hex_encode, ucs2_decode, ucs2_encode,
                    ussd_decode, ussd_encode, utf8_cut)
from ._timer import Timer

__version__ = _abi.VERSION
__all__ = [
    "Ended", "Error", "Ini", "Item", "ModemError", "Parameters", "Section", "Store", "Subscription", "TimedOut", "Timer", "at",
    "close_parameters", "get_log_level", "gsm_decode", "gsm_encode", "gsm_pack", "gsm_unpack", "hex_decode", "hex_encode",
    "log", "query_parameters", "restore_parameters", "run", "set_log_level", "set_log_tool", "ucs2_decode", "ucs2_encode",
    "ussd_decode", "ussd_encode", "utf8_cut", *_abi.__all__,
]
