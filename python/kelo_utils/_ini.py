# SPDX-License-Identifier: MIT
"""INI files as mappings."""
import collections.abc
import contextlib
import ctypes
import math
import os
import stat
import threading

from . import _abi, _callbacks, _checks
from ._errors import Error
from ._library import c

# A line holds 511 bytes with its newline; the "=" and the newline, or the two brackets of a header, are two of them.
MOST_SECTION, MOST_KEY, MOST_LINE = 507, 508, 508

# The library locks no file: within this process these calls exclude each other.
_lock = threading.RLock()


def _after_fork():
    """Replaces the lock in a child: the thread that had it may not be there."""
    global _lock  # pylint: disable=global-statement
    _lock = threading.RLock()


os.register_at_fork(after_in_child=_after_fork)


@contextlib.contextmanager
def _using(path):
    """Keeps other threads away from the files. The library would read a device or a pipe without end."""
    with _lock:
        try:
            regular = stat.S_ISREG(os.stat(path).st_mode)
        except OSError:
            regular = True  # the library says what is wrong with it
        if not regular:
            raise Error(f"ini: {_checks.shown(path)} is no regular file", 0)
        yield


def _section_name(name):
    encoded = b"" if name is None else _checks.text(name, "section", MOST_SECTION)
    if b"\n" in encoded or b"\r" in encoded:
        raise ValueError("section has a line end")
    return encoded


def _key_name(key):
    encoded = _checks.text(key, "key", MOST_KEY)
    if not encoded or encoded[0] <= 32 or encoded[-1] <= 32 or encoded[:1] in b"[#;" or \
            any(separator in encoded for separator in (b"=", b":", b"\n", b"\r")):
        raise ValueError("key is empty, or reads as something else")
    return encoded


def _value_text(value, key):
    encoded = _checks.text(value, "value", MOST_LINE)
    if b"\n" in encoded or b"\r" in encoded:
        raise ValueError("value has a line end")
    if encoded and (encoded[0] <= 32 or encoded[-1] < 32):
        raise ValueError("value has white space at an end, which reads as something else")
    quoted = any(mark in encoded for mark in (b'"', b"#", b";")) or encoded.endswith(b" ")
    length = len(encoded) + encoded.count(b'"') + (2 if quoted else 0)
    if len(key) + length > MOST_LINE:
        raise ValueError(f"key and value have more than {MOST_LINE} bytes together")
    return encoded


def _different(names):
    """Returns the texts of names, without those that occur again in either case."""
    first = {}
    for name in names:
        first.setdefault(name.lower(), _checks.shown(name))
    return list(first.values())


class Section(collections.abc.MutableMapping):
    """One section of a file: keys and values are texts. The case of ASCII letters in names does not matter."""

    def __init__(self, file, name):
        if not isinstance(file, Ini):
            raise TypeError("file is an Ini")
        self._file, self._name = file._path, _section_name(name)

    def _text(self, key, default):
        buffer = ctypes.create_string_buffer(_abi.INI_BUFFERSIZE)
        c.ini_gets(self._name, key, default, buffer, len(buffer), self._file)
        return buffer.value

    def __getitem__(self, key):
        encoded = _key_name(key)
        with _using(self._file):
            value = self._text(encoded, b"\1")
            # A value may be equal to one default, but not to two.
            if value == b"\1" and self._text(encoded, b"\2") == b"\2":
                raise KeyError(key)
        return _checks.shown(value)

    def __contains__(self, key):
        try:
            self[key]
        except (KeyError, TypeError, ValueError):
            return False
        return True

    def __setitem__(self, key, value):
        encoded = _key_name(key)
        if isinstance(value, bool):
            value = "1" if value else "0"
        elif isinstance(value, int):
            value = int.__str__(_checks.integer(value, "value"))
        elif isinstance(value, float):
            if not math.isfinite(_checks.real(value, "value")):
                raise ValueError("value is no finite number")
            value = float.__repr__(value)
        self._put("set", encoded, _value_text(value, encoded))

    def __delitem__(self, key):
        with _using(self._file):
            self[key]  # a missing key is an error
            self._put("delete", _key_name(key), None)

    def _put(self, what, key, value):
        with _using(self._file):
            result = c.ini_puts(self._name, key, value, self._file)
        if result != 1:
            raise Error(f"ini: cannot {what} in {_checks.shown(self._file)}", result)

    def _names(self):
        names = []

        def count(section, *_):
            lines.append(section)
            return 1

        with _using(self._file):
            lines = []
            visits = _callbacks.Visits(count, 0)
            c.ini_browse(_abi.ini_callback(visits), None, self._file)
            visits.done()
            buffer = ctypes.create_string_buffer(_abi.INI_BUFFERSIZE)
            for index in range(len(lines)):
                # After the last key, and for a key without a name, the length is 0.
                if c.ini_getkey(self._name, index, buffer, len(buffer), self._file) > 0:
                    names.append(buffer.value)
        return _different(names)

    def __iter__(self):
        return iter(self._names())

    def __len__(self):
        return len(self._names())

    def get_int(self, key, default=0):
        """Returns a value as a whole number of 32 bits: decimal, or hexadecimal after "0x"."""
        fallback = _checks.integer(default, "default")
        with _using(self._file):
            return c.ini_getl(self._name, _key_name(key), fallback, self._file)

    def get_float(self, key, default=0.0):
        """Returns a value as a number of single precision."""
        fallback = _checks.real(default, "default")
        with _using(self._file):
            return c.ini_getf(self._name, _key_name(key), fallback, self._file)

    def get_bool(self, key, default=False):
        """Returns a value that begins with T, Y or 1 as True, and with F, N or 0 as False."""
        fallback = int(_checks.boolean(default, "default"))
        with _using(self._file):
            return bool(c.ini_getbool(self._name, _key_name(key), fallback, self._file))

    def __repr__(self):
        return f"Section({_checks.shown(self._file)!r}, {_checks.shown(self._name)!r})"


class Ini(collections.abc.Mapping):
    """An INI file: names of sections with their Section. A file that does not exist has none.

    The name None, or the empty text, is that of the section before the first header, which is not counted. A Section of any
    name can be had, also one that the file does not have yet: setting a key makes it. `del ini[name]` deletes a section.
    """

    def __init__(self, path):
        self._path = _checks.path(path, "path")

    def __getitem__(self, name):
        return Section(self, name)

    def __contains__(self, name):
        try:
            wanted = _section_name(name)
        except (TypeError, ValueError):
            return False
        return wanted.lower() in (encoded.lower() for encoded in self._names())

    def __delitem__(self, name):
        encoded = _section_name(name)
        if name is not None and name not in self:
            raise KeyError(name)
        with _using(self._path):
            result = c.ini_puts(encoded, None, None, self._path)
        if result != 1:
            raise Error(f"ini: cannot delete a section of {_checks.shown(self._path)}", result)

    def _names(self):
        names, buffer = [], ctypes.create_string_buffer(_abi.INI_BUFFERSIZE)
        with _using(self._path):
            while c.ini_getsection(len(names), buffer, len(buffer), self._path) > 0:
                names.append(buffer.value)
        return names

    def __iter__(self):
        return iter(_different(self._names()))

    def __len__(self):
        return sum(1 for _ in self)

    def __repr__(self):
        return f"Ini({_checks.shown(self._path)!r})"
