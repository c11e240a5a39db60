# SPDX-License-Identifier: MIT
"""Items: how they are described, registered and enumerated, and which thread may do that when."""
import collections
import contextlib
import ctypes
import threading

from . import _abi, _callbacks, _checks
from ._errors import Error
from ._library import c

NAME_SIZE = 31
MOST_ITEMS = 100000
MOST_NESTED = 16

_SCALARS = (_abi.KELO_DM_TYPE_SCALAR1, _abi.KELO_DM_TYPE_SCALAR2, _abi.KELO_DM_TYPE_SCALAR3, _abi.KELO_DM_TYPE_SCALAR4)
# Type and length with which an item of a Python type is registered; None is the length of the default.
_TYPES = {
    bool: (_abi.KELO_DM_TYPE_SCALAR1, 1),
    int: (_abi.KELO_DM_TYPE_SCALAR3, 4),
    str: (_abi.KELO_DM_TYPE_STRING, None),
    bytes: (_abi.KELO_DM_TYPE_BUFFER, None),
}


class Item(collections.namedtuple("Item", "id table key kind default")):
    """One item: its id, the table and the key under which it is stored, its type and its default.

    `kind` is bool, int, str or bytes. A number has 32 bits: -2147483648 to 4294967295. The default of an item that another
    part of the process has registered may be None, and so may its kind, when no Python type fits.
    """

    __slots__ = ()

    def __new__(cls, id, table, key, kind, default):  # pylint: disable=redefined-builtin
        if kind not in (bool, int, str, bytes):
            raise TypeError("kind is bool, int, str or bytes")
        number = _checks.integer(id, "id")
        if number == -1:
            raise ValueError("id -1 ends a table of items")
        table = _checks.identifier(table, "table", NAME_SIZE).decode("ascii")
        key = _checks.identifier(key, "key", NAME_SIZE).decode("ascii")
        if kind is bool:
            default = _checks.boolean(default, "default")
        elif kind is int:
            default = _checks.integer(default, "default", _checks.INT32_MIN, _checks.UINT32_MAX)
        elif kind is str:
            default = _checks.shown(_checks.text(default, "default"))
        else:
            default = _checks.octets(default, "default")
        return super().__new__(cls, number, table, key, kind, default)


class _Turns:
    """Lets any number of threads use the data manager, or one thread change what is registered."""

    def __init__(self):
        self._free, self._users, self._changing = threading.Condition(), 0, False
        # How many uses the thread is in, and whether it is in a change.
        self._own = threading.local()

    def after_fork(self):
        """In a child the thread that forked is where it was, and no other one is left."""
        self._free, self._users = threading.Condition(), getattr(self._own, "depth", 0)
        self._changing = getattr(self._own, "changing", False)

    @contextlib.contextmanager
    def use(self):
        depth = getattr(self._own, "depth", 0)
        # Each level takes a part of the thread's stack in the library, which Python does not count.
        if depth >= MOST_NESTED:
            raise RuntimeError(f"calls of callbacks of the store are {MOST_NESTED} deep")
        self._not_within_a_change()
        with self._free:
            self._free.wait_for(lambda: not self._changing)
            self._users += 1
        self._own.depth = depth + 1
        try:
            yield
        finally:
            self._own.depth = depth
            with self._free:
                self._users -= 1
                self._free.notify_all()

    @contextlib.contextmanager
    def change(self):
        # The thread would wait for itself.
        if getattr(self._own, "depth", 0) > 0:
            raise RuntimeError("a callback of the store cannot open or close a store")
        self._not_within_a_change()
        with self._free:
            self._free.wait_for(lambda: not self._changing and self._users == 0)
            self._changing = True
        self._own.changing = True
        try:
            yield
        finally:
            self._own.changing = False
            with self._free:
                self._changing = False
                self._free.notify_all()

    def _not_within_a_change(self):
        if getattr(self._own, "changing", False):
            raise RuntimeError("a signal's handler cannot use a store while the thread opens or closes one")


class _Process:
    """What this module has registered in the process, and what it knows to be registered."""

    def __init__(self):
        self.turns = _Turns()
        self.registered = {}
        self.known = {}
        # The library keeps pointers into tables until the process ends.
        self.tables = []


process = _Process()


def _default_bytes(item):
    if item.kind is bool:
        return bytes([item.default])
    if item.kind is int:
        return bytes(ctypes.c_uint32(item.default & _checks.UINT32_MAX))
    return str.encode(item.default, "utf-8", "surrogateescape") if item.kind is str else item.default


def register(items):
    """Registers items that are not registered yet with these values. It is called in a change of the registry."""
    new = [item for item in items if process.registered.get(item.id) != item]
    if not new:
        return
    rows = (_abi.kelo_dm_item * (len(new) + 1))()
    defaults = []
    for row, item in zip(rows, new):
        number, length = _TYPES[item.kind]
        content = _default_bytes(item)
        row.id = item.id
        row.desc.item_table, row.desc.item_key = item.table.encode(), item.key.encode()
        row.desc.def_type = row.desc.type = number
        row.desc.len = len(content)
        if length:
            ctypes.memmove(ctypes.addressof(row.desc) + _abi.kelo_dm_item_desc.def_value.offset, content, length)
        else:
            defaults.append(ctypes.create_string_buffer(content, len(content) + 1))
            row.desc.def_value = ctypes.c_ssize_t(ctypes.addressof(defaults[-1])).value
    rows[len(new)].id = -1
    process.tables.append((rows, defaults))
    result = c.kelo_dm_reg_def_items(rows)
    if result != 0:
        raise Error("register items", result)
    process.registered.update((item.id, item) for item in new)
    enumerate_items()


def _described(number, descriptor):
    """Returns the Item of a descriptor, which any part of the process may have registered."""
    table, key, length = descriptor.item_table, descriptor.item_key, descriptor.len
    content, kind, default = None, None, None
    if descriptor.def_type in _SCALARS and 0 < length <= ctypes.sizeof(ctypes.c_ssize_t):
        content = ctypes.string_at(ctypes.addressof(descriptor) + _abi.kelo_dm_item_desc.def_value.offset, length)
        kind = {1: bool, 4: int}.get(length)
    elif descriptor.def_value != 0 and length >= 0:
        kind = {_abi.KELO_DM_TYPE_STRING: str, _abi.KELO_DM_TYPE_BUFFER: bytes}.get(descriptor.def_type)
        content = ctypes.string_at(descriptor.def_value, length) if kind else None
    elif descriptor.def_type in (_abi.KELO_DM_TYPE_STRING, _abi.KELO_DM_TYPE_BUFFER):
        kind = str if descriptor.def_type == _abi.KELO_DM_TYPE_STRING else bytes
    if kind is not None and content is not None:
        default = value_of(kind, content)
    # The checks of Item are for what a program passes.
    return tuple.__new__(Item, (number, _checks.shown(table), _checks.shown(key), kind, default))


def value_of(kind, content):
    """Returns the Python value of stored bytes."""
    if kind is bool:
        return any(content)
    if kind is int:
        return ctypes.c_int32.from_buffer_copy(content).value if len(content) == 4 else None
    return _checks.shown(content) if kind is str else content


def enumerate_items():
    """Returns all registered items, in the order of registration."""
    found = []

    def collect(number, descriptor, _):
        found.append((number, _abi.kelo_dm_item_desc.from_buffer_copy(
            (ctypes.c_char * ctypes.sizeof(_abi.kelo_dm_item_desc)).from_address(descriptor))))
        return 0

    visits = _callbacks.Visits(collect, 1)
    c.kelo_dm_for_each_item(_abi.kelo_dm_item_fn(visits), None)
    visits.done()
    items = []
    for number, descriptor in found:
        own = process.registered.get(number)
        described = _described(number, descriptor)
        # An unsigned default is known only from the registration here.
        same = own and described.default is not None and (own.table, own.key, own.kind) == described[1:4] \
            and _default_bytes(own) == _default_bytes(described)
        items.append(own if same else described)
    process.known = {item.id: item for item in items}
    return items


def find(number):
    """Returns the registered item with this id, or None."""
    if number not in process.known:
        enumerate_items()
    return process.known.get(number)
