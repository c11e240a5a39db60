# SPDX-License-Identifier: MIT
"""The exceptions of the module."""
from . import _abi


class Error(Exception):
    """A function of the library has failed.

    `code` is its result, and `name` the name of this result in the headers, or None when it has none there.
    """

    def __init__(self, what, code, name=None):
        super().__init__(what, code, name)
        self.what, self.code, self.name = what, code, name

    def __str__(self):
        return f"{self.what}: {self.name or 'result'} ({self.code})"


class TimedOut(Error):
    """A limit of time was over. `output` is what had arrived until then."""

    def __init__(self, what, code, name=None, output=None):
        super().__init__(what, code, name)
        self.output = output


class ModemError(Error):
    """The modem has refused a command. `lines` came before its final result; `reason` is its number, or None."""

    def __init__(self, what, code, name=None, lines=(), reason=None):
        super().__init__(what, code, name)
        self.lines, self.reason = list(lines), reason

    def __str__(self):
        return super().__str__() + (f", reason {self.reason}" if self.reason is not None else "")


def name_of(enum, code):
    """Returns the name of a result of the enumeration `enum`, or None."""
    return _abi.ENUMS[enum].get(code)
