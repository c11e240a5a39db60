# SPDX-License-Identifier: MIT
"""Conversions between text and the bytes that the network and files have for it."""
import ctypes
import sys

from . import _abi, _checks
from ._errors import Error, name_of
from ._library import c

# 223 octets hold 254 septets; of more, the library unpacks only a part.
MOST_PACKED = 223
_UNTOUCHED = b"\xff"


def _encoded(what, function, size, *arguments):
    """Calls a function that encodes into a buffer, and returns the bytes."""
    buffer = ctypes.create_string_buffer(max(size, 1))
    result = function(*arguments, buffer, len(buffer))
    if result < 0:
        raise Error(what, result, name_of("kelo_gsm_result", result))
    return buffer.raw[:result]


def gsm_encode(text):
    """Returns the septets of a text, one per byte: the GSM 7 bit default alphabet with its extension table."""
    encoded = _checks.text(text, "text")
    return _encoded("gsm_encode", c.kelo_gsm_encode, 2 * len(encoded), encoded)


def gsm_decode(septets):
    """Returns the text of septets, one per byte. There is no extension table: an escape becomes a space."""
    plain = _checks.octets(septets, "septets", 0xffff // 2)
    if any(septet > 127 for septet in plain):
        raise ValueError("a septet is at most 127")
    if not plain:
        return ""
    buffer = ctypes.create_string_buffer(2 * len(plain) + 1)
    length = c.kelo_util_convert_gsm8bit_alpha_string_to_utf8(plain, len(plain), buffer, len(buffer))
    return _checks.shown(buffer.raw[:length])


def gsm_pack(septets, ussd=False):
    """Packs eight septets into seven octets. With `ussd` the message ends as one of USSD does."""
    plain = _checks.octets(septets, "septets")
    return _encoded("gsm_pack", c.kelo_gsm_pack, len(plain) + 2, plain, len(plain), int(_checks.boolean(ussd, "ussd")))


def gsm_unpack(packed):
    """Returns the septets, one per byte, of at most 223 packed octets."""
    plain = _checks.octets(packed, "packed", MOST_PACKED)
    buffer = ctypes.create_string_buffer(255)
    count = c.kelo_util_ussd_unpack(buffer, len(buffer), plain, len(plain))
    return buffer.raw[:count]


def ussd_encode(text, coding=_abi.KELO_USSD_CHOOSE):
    """Returns the data coding scheme and the octets of a USSD message. `coding` is a KELO_USSD_ constant."""
    encoded = _checks.text(text, "text")
    number = _checks.integer(coding, "coding", _abi.KELO_USSD_SEPTETS, _abi.KELO_USSD_UCS2)
    scheme = ctypes.c_uint8()
    octets = _encoded("ussd_encode", c.kelo_ussd_encode, 2 * len(encoded) + 2, encoded, number, ctypes.byref(scheme))
    return scheme.value, octets


def ussd_decode(scheme, octets):
    """Returns the text of a message of at most 223 octets with this data coding scheme."""
    number = _checks.integer(scheme, "scheme", 0, 255)
    plain = _checks.octets(octets, "octets", MOST_PACKED)
    if not plain:
        return ""
    buffer = ctypes.create_string_buffer(_UNTOUCHED, 1024)
    length = c.kelo_util_convert_ussd_string_to_utf8(number, plain, len(plain), buffer, len(buffer))
    if length == 0 and buffer.raw[:1] == _UNTOUCHED:
        raise Error(f"ussd_decode: no text in scheme {number}", length)
    return _checks.shown(buffer.raw[:length])


def _converted(what, function, source, size, flags):
    """Calls one of the two conversions that move a pointer through the source and one through the target."""
    buffer = ctypes.create_string_buffer(size + 1)
    memory = ctypes.create_string_buffer(source, len(source) + 1)
    start, target = ctypes.addressof(memory), ctypes.addressof(buffer)
    source_at, target_at = ctypes.c_void_p(start), ctypes.c_void_p(target)
    result = function(ctypes.byref(source_at), start + len(source), ctypes.byref(target_at), target + size, flags)
    if result != _abi.KELO_UNICODE_COMPLETE:
        raise Error(what, result, name_of("kelo_unicode_result", result))
    return buffer.raw[:target_at.value - target]


def _in_order(units, byteorder):
    """Swaps the bytes of 16-bit units that are not in the byte order of the machine."""
    if byteorder not in ("big", "little"):
        raise ValueError("byteorder is 'big' or 'little'")
    if byteorder == sys.byteorder:
        return units
    swapped = bytearray(units)
    swapped[0::2], swapped[1::2] = units[1::2], units[0::2]
    return bytes(swapped)


def ucs2_encode(text, byteorder="big"):
    """Returns a text as UCS-2. A character above U+FFFF is a pair of surrogates there."""
    encoded = _checks.text(text, "text")
    units = _converted("ucs2_encode", c.kelo_util_ConvertUTF8toUTF16, encoded, 2 * len(encoded),
                       _abi.KELO_UNICODE_STRICT)
    return _in_order(units, byteorder)


def ucs2_decode(octets, byteorder="big"):
    """Returns the text of UCS-2. A surrogate without its other half is an error."""
    units = _checks.octets(octets, "octets")
    if len(units) % 2 != 0:
        raise ValueError("octets has half a unit at its end")
    encoded = _converted("ucs2_decode", c.kelo_util_ConvertUTF16toUTF8, _in_order(units, byteorder), 2 * len(units),
                         _abi.KELO_UNICODE_STRICT)
    return _checks.shown(encoded)


def hex_encode(octets):
    """Returns bytes as hexadecimal text: two upper-case digits for each."""
    plain = _checks.octets(octets, "octets")
    buffer = ctypes.create_string_buffer(2 * len(plain) + 1)
    result = c.kelo_hex_BinaryToString(plain, len(plain), buffer, len(buffer))
    if result < 0:
        raise Error("hex_encode", result)
    return buffer.raw[:result].decode("ascii")


def hex_decode(digits):
    """Returns the bytes of hexadecimal text: two digits of either case for each."""
    encoded = _checks.text(digits, "digits")
    buffer = ctypes.create_string_buffer(len(encoded) // 2 + 1)
    result = c.kelo_hex_StringToBinary(encoded, len(encoded), buffer, len(buffer))
    if result < 0:
        raise Error("hex_decode: an odd number of digits, or a character that is none", result)
    return buffer.raw[:result]


def utf8_cut(text, size):
    """Returns as many whole characters of a text as `size` bytes of UTF-8 hold, its terminator included."""
    encoded = str.encode(_checks.shown(_checks.text(text, "text")), "utf-8")
    buffer = ctypes.create_string_buffer(_checks.integer(size, "size", 1, _checks.MOST_BYTES))
    c.kelo_utf8_Copy(buffer, encoded, len(buffer), None)
    return _checks.shown(buffer.value)
