# SPDX-License-Identifier: MIT
"""Checks of arguments. Nothing reaches the library that has not passed one of them.

The results are plain objects of the built-in types: a subclass could say another length than it has.
"""
import operator
import os
import re

INT32_MIN, INT32_MAX, UINT32_MAX = -2**31, 2**31 - 1, 2**32 - 1
MOST_BYTES = 16 * 1024 * 1024

_IDENTIFIER = re.compile(r"[A-Za-z_][A-Za-z0-9_]*", re.ASCII)


def integer(value, what, low=INT32_MIN, high=INT32_MAX):
    """Returns a whole number from `low` to `high`."""
    if isinstance(value, bool):
        raise TypeError(f"{what} is a whole number, not a truth value")
    try:
        number = int.__add__(operator.index(value), 0)
    except TypeError:
        raise TypeError(f"{what} is a whole number, not {type(value).__name__}") from None
    if not low <= number <= high:
        raise ValueError(f"{what} is from {low} to {high}, not {number}")
    return number


def boolean(value, what):
    if not isinstance(value, bool):
        raise TypeError(f"{what} is True or False, not {type(value).__name__}")
    return value


def real(value, what):
    """Returns a number as a float."""
    if isinstance(value, bool) or not isinstance(value, (int, float)):
        raise TypeError(f"{what} is a number, not {type(value).__name__}")
    try:
        return float.__add__(float(value), 0.0)
    except OverflowError:
        raise ValueError(f"{what} is too large") from None


def seconds(value, what, high):
    """Returns a length of time above 0."""
    number = real(value, what)
    if not 0 < number <= high:
        raise ValueError(f"{what} is above 0 and at most {high}, in seconds")
    return number


def text(value, what, most=MOST_BYTES):
    """Returns the bytes of a text without NUL: in UTF-8, and bytes that were read and are no UTF-8 as they were."""
    if not isinstance(value, str):
        raise TypeError(f"{what} is a text, not {type(value).__name__}")
    encoded = str.encode(value, "utf-8", "surrogateescape")
    if b"\0" in encoded:
        raise ValueError(f"{what} has a NUL character")
    if len(encoded) > most:
        raise ValueError(f"{what} has more than {most} bytes")
    return encoded


def shown(encoded):
    """Returns the text of bytes that came from the library."""
    return encoded.decode("utf-8", "surrogateescape")


def octets(value, what, most=MOST_BYTES):
    """Returns the bytes of an object that has some."""
    if not isinstance(value, (bytes, bytearray, memoryview)):
        raise TypeError(f"{what} is bytes, not {type(value).__name__}")
    copied = memoryview(value).tobytes()
    if len(copied) > most:
        raise ValueError(f"{what} has more than {most} bytes")
    return copied


def path(value, what, most=4095):
    """Returns the bytes of a path."""
    try:
        plain = os.fspath(value)
    except TypeError:
        raise TypeError(f"{what} is a path, not {type(value).__name__}") from None
    if isinstance(plain, str):
        encoded = text(plain, what, most)
    else:
        encoded = octets(plain, what, most)
    if not encoded or b"\0" in encoded:
        raise ValueError(f"{what} is empty or has a NUL byte")
    return encoded


def identifier(value, what, most):
    """Returns the bytes of a name that can be a part of SQL text."""
    encoded = text(value, what, most)
    if not _IDENTIFIER.fullmatch(encoded.decode("latin-1")):
        raise ValueError(f"{what} has letters, digits and underscores, and begins with no digit")
    return encoded


def function(value, what):
    if not callable(value):
        raise TypeError(f"{what} can be called, unlike {type(value).__name__}")
    return value
