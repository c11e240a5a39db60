# SPDX-License-Identifier: MIT
"""Loads the shared library and gives its functions the types that the headers have."""
import ctypes

from . import _abi


def _check_layouts():
    pointer = ctypes.sizeof(ctypes.c_void_p)
    for record, layouts in _abi.LAYOUTS.items():
        size, offsets = layouts[pointer]
        found = {name: getattr(record, name).offset for name in offsets}
        if ctypes.sizeof(record) != size or found != offsets:
            raise ImportError(f"{record.__name__} has another layout here than in {_abi.LIBRARY}")


class _Library:
    """The functions as attributes. Each is looked up in the shared library when it is used for the first time."""

    def __init__(self):
        try:
            self._loaded = ctypes.CDLL(_abi.LIBRARY)
        except OSError as error:
            raise ImportError(f"{_abi.LIBRARY} cannot be loaded: {error}") from None
        if not hasattr(self._loaded, "kelo_dm_use_sqlite"):
            raise ImportError(f"{_abi.LIBRARY} was built without the additions that this module needs")

    def __getattr__(self, name):
        result, arguments = _abi.FUNCTIONS[name]
        function = getattr(self._loaded, name)
        function.restype, function.argtypes = result, arguments
        setattr(self, name, function)
        return function


_check_layouts()
c = _Library()
